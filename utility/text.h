// text.h - small operations on 8-bit text.
//
// "Without regard to case" folds A-Z only; other bytes compare as they are.
// White space is blank, TAB, CR and LF.

#ifndef LISTHAVEN_UTILITY_TEXT_H
#define LISTHAVEN_UTILITY_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

char ToLowerAscii(char c) noexcept;
std::string LowerAscii(std::string_view text);
int CompareNoCase(std::string_view a, std::string_view b) noexcept;  // <0, 0, >0
bool EqualNoCase(std::string_view a, std::string_view b) noexcept;
bool StartsWithNoCase(std::string_view text, std::string_view start) noexcept;
std::size_t FindNoCase(std::string_view text, std::string_view what, std::size_t from = 0) noexcept;  // npos

// For ordered containers with names as keys; takes views without copying.
struct CLessNoCase {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept { return CompareNoCase(a, b) < 0; }
};

std::string_view TrimLeft(std::string_view text) noexcept;
std::string_view TrimRight(std::string_view text) noexcept;
std::string_view Trim(std::string_view text) noexcept;

void ReplaceAll(std::string& text, std::string_view from, std::string_view to);  // from must not be empty; linear
std::vector<std::string_view> Split(std::string_view text, char separator);      // "" gives one empty piece
std::string Join(const std::vector<std::string>& parts, std::string_view separator);

std::string CrLfToLf(std::string_view text);  // every CR LF; other CRs stay
std::string LfToCrLf(std::string_view text);  // every LF, also one behind a CR
void MakeCrLf(std::string& text);             // likewise, in its place if it has the room

// CR, LF and NUL become blanks: what may go into a header line or a protocol command.
std::string OneLine(std::string_view text);

// The whole text must be a decimal number in range.
std::optional<std::int64_t> ParseNumber(std::string_view text) noexcept;
// As far as it goes, like atoi(): white space, sign, digits; 0 when there are none; saturates.
std::int32_t LeadingNumber(std::string_view text) noexcept;

bool IsValidUtf8(std::string_view text) noexcept;
std::string Latin1ToUtf8(std::string_view text);
std::string Windows1252ToUtf8(std::string_view text);

std::string EncodeBase32(std::string_view bytes);                // RFC 4648, upper case, no padding
std::optional<std::string> DecodeBase32(std::string_view text);  // either case
std::string EncodeHex(std::string_view bytes);                   // lower case

#endif  // LISTHAVEN_UTILITY_TEXT_H
