// flathtml.h - the text of HTML that is too strange to be laid out.
//
// Parsing takes time in proportion to the square of the attributes of a tag and
// of the depth of elements, so HTML made for it could hold up a program.
//
// Threads  Any.

#ifndef LISTHAVEN_MIME_FLATHTML_H
#define LISTHAVEN_MIME_FLATHTML_H

#include <string>
#include <string_view>

bool HasOversizedTag(std::string_view html);  // thousands of attributes; linear

// Tags and comments dropped, a line break for each tag of a block; linear.
// html is UTF-8.
std::string FlatHtmlToText(std::string_view html);

#endif  // LISTHAVEN_MIME_FLATHTML_H
