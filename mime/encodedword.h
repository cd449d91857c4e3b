// encodedword.h - encoded words of header text (RFC 2047).

#ifndef LISTHAVEN_MIME_ENCODEDWORD_H
#define LISTHAVEN_MIME_ENCODEDWORD_H

#include <string>
#include <string_view>

// One word for the whole text, labelled ISO-8859-1 whatever the bytes are;
// unchanged when it needs none or already holds "=?".
std::string EncodeHeaderWord(std::string_view text);

// Charsets are ignored: the bytes are taken as they are.  White space between
// two words stays.  Malformed words are copied.
std::string DecodeHeaderText(std::string_view text);

#endif  // LISTHAVEN_MIME_ENCODEDWORD_H
