// headerwords.h - encoded words of header text, with their charsets (RFC 2047).
//
// Unlike encodedword.h, which reads and writes the stored form: words of at
// most 75 characters, and none of them ends within a character.
//
// Threads  Any.

#ifndef LISTHAVEN_MIME_HEADERWORDS_H
#define LISTHAVEN_MIME_HEADERWORDS_H

#include <cstddef>
#include <string>
#include <string_view>

struct CHeaderWord {
    static constexpr std::size_t MaxSize = 75;

    std::string_view charset;  // without a language
    bool isBase64 = false;
    std::string_view text;
    std::size_t size = 0;  // of the whole word

    bool IsUtf8() const noexcept;
    bool IsLatin1() const noexcept;  // or ASCII
};

// The word that text begins with.  Lenient: it may be too long, and hold
// question marks; what follows it is a blank, a special or nothing.
bool ReadHeaderWord(std::string_view text, CHeaderWord& word);

std::string DecodeHeaderWord(const CHeaderWord& word);  // bytes of its charset

std::string_view HeaderCharset(std::string_view bytes) noexcept;  // utf-8 when they are, else iso-8859-1

// Words with a blank between them, the first of them of at most firstRoom
// characters (at least 40).  CR, LF and NUL become blanks.
void AppendHeaderWords(std::string_view bytes, std::string_view charset, std::size_t firstRoom, std::string& out);

#endif  // LISTHAVEN_MIME_HEADERWORDS_H
