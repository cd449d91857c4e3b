#include "utility/text.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace {

bool IsSpace(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

char ToLowerAscii(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

std::string LowerAscii(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = ToLowerAscii(c);
    return result;
}

int CompareNoCase(std::string_view a, std::string_view b) noexcept {
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        const auto x = static_cast<unsigned char>(ToLowerAscii(a[i]));
        const auto y = static_cast<unsigned char>(ToLowerAscii(b[i]));
        if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

bool EqualNoCase(std::string_view a, std::string_view b) noexcept {
    return a.size() == b.size() && CompareNoCase(a, b) == 0;
}

bool StartsWithNoCase(std::string_view text, std::string_view start) noexcept {
    return text.size() >= start.size() && CompareNoCase(text.substr(0, start.size()), start) == 0;
}

std::size_t FindNoCase(std::string_view text, std::string_view what, std::size_t from) noexcept {
    if (what.empty()) return from <= text.size() ? from : std::string_view::npos;
    const char first = ToLowerAscii(what[0]);
    for (std::size_t i = from; i + what.size() <= text.size(); ++i) {
        if (ToLowerAscii(text[i]) == first && StartsWithNoCase(text.substr(i), what)) return i;
    }
    return std::string_view::npos;
}

std::string_view TrimLeft(std::string_view text) noexcept {
    while (!text.empty() && IsSpace(text.front()))
        text.remove_prefix(1);
    return text;
}

std::string_view TrimRight(std::string_view text) noexcept {
    while (!text.empty() && IsSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string_view Trim(std::string_view text) noexcept {
    return TrimLeft(TrimRight(text));
}

void ReplaceAll(std::string& text, std::string_view from, std::string_view to) {
    std::size_t found = text.find(from);
    if (found == std::string::npos) return;
    std::string result;
    result.reserve(text.size());
    std::size_t start = 0;
    for (; found != std::string::npos; found = text.find(from, start)) {
        result.append(text, start, found - start);
        result.append(to);
        start = found + from.size();
    }
    result.append(text, start);
    text = std::move(result);
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0;;) {
        const std::size_t end = text.find(separator, start);
        pieces.push_back(text.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) return pieces;
        start = end + 1;
    }
}

std::string Join(const std::vector<std::string>& parts, std::string_view separator) {
    std::string result;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i) result += separator;
        result += parts[i];
    }
    return result;
}

std::string CrLfToLf(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    std::size_t start = 0;
    for (std::size_t cr; (cr = text.find('\r', start)) != std::string_view::npos;) {
        const bool isLineEnd = cr + 1 < text.size() && text[cr + 1] == '\n';
        result.append(text, start, cr - start + (isLineEnd ? 0 : 1));
        start = cr + 1;
    }
    result.append(text, start);
    return result;
}

std::string LfToCrLf(std::string_view text) {
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    std::string result(text.size() + lines, '\0');
    char* to = result.data();
    std::size_t start = 0;
    for (std::size_t lf; (lf = text.find('\n', start)) != std::string_view::npos; start = lf + 1) {
        std::memcpy(to, text.data() + start, lf - start);
        to += lf - start;
        *to++ = '\r';
        *to++ = '\n';
    }
    if (start < text.size()) std::memcpy(to, text.data() + start, text.size() - start);
    return result;
}

void MakeCrLf(std::string& text) {
    std::size_t from = text.size();
    std::size_t to = from + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    text.resize(to);
    char* const bytes = text.data();
    while (to > from) {  // by as many as there are line ends left
        const std::size_t lineEnd = std::string_view(bytes, from).rfind('\n');
        const std::size_t length = from - lineEnd - 1;
        std::memmove(bytes + to - length, bytes + lineEnd + 1, length);
        to -= length + 2;
        bytes[to] = '\r';
        bytes[to + 1] = '\n';
        from = lineEnd;
    }
}

std::string OneLine(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c == '\r' || c == '\n' || c == '\0') c = ' ';
    }
    return result;
}

std::optional<std::int64_t> ParseNumber(std::string_view text) noexcept {
    std::int64_t value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (fault != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::int32_t LeadingNumber(std::string_view text) noexcept {
    while (!text.empty() && (IsSpace(text.front()) || text.front() == '\v' || text.front() == '\f'))
        text.remove_prefix(1);
    const bool negative = !text.empty() && text.front() == '-';
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) text.remove_prefix(1);
    std::int64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') break;
        value = std::min<std::int64_t>(value * 10 + (c - '0'), std::int64_t{1} << 31);
    }
    if (negative) value = -value;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}
