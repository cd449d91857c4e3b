// charactertext.h - code points in 8-bit text, for the HTML conversions.
//
// Threads  Any.

#ifndef LISTHAVEN_MIME_CHARACTERTEXT_H
#define LISTHAVEN_MIME_CHARACTERTEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

bool IsLatin1Text(std::string_view text);  // has bytes above 127 that are not UTF-8

void AppendUtf8(std::string& text, std::uint32_t codePoint);

// False, and nothing appended, when ISO-8859-1 has neither it nor a usual ASCII
// stand-in for it.
bool AppendLatin1(std::string& text, std::uint32_t codePoint);

// Other characters become decimal references.
std::string Utf8ToLatin1(std::string_view validUtf8);

std::size_t CountCharacters(std::string_view validUtf8) noexcept;

#endif  // LISTHAVEN_MIME_CHARACTERTEXT_H
