#include "mime/charactertext.h"

#include <algorithm>
#include <array>

#include "utility/text.h"

namespace {

struct StandIn {
    std::uint32_t codePoint;
    std::string_view text;
};

constexpr std::array<StandIn, 18> StandIns = {{
    {0x2010, "-"},
    {0x2011, "-"},
    {0x2012, "-"},
    {0x2013, "-"},
    {0x2014, "--"},
    {0x2018, "'"},
    {0x2019, "'"},
    {0x201A, ","},
    {0x201C, "\""},
    {0x201D, "\""},
    {0x201E, "\""},
    {0x2022, "*"},
    {0x2026, "..."},
    {0x2032, "'"},
    {0x2039, "<"},
    {0x203A, ">"},
    {0x20AC, "EUR"},
    {0x2122, "(TM)"},
}};

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

std::uint32_t DecodeAt(std::string_view text, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(text[at++]);
    std::uint32_t codePoint = lead < 0x80 ? lead : lead < 0xE0 ? lead & 0x1Fu : lead < 0xF0 ? lead & 0x0Fu : lead & 7u;
    while (at < text.size() && IsContinuation(text[at])) {
        codePoint = (codePoint << 6) | (static_cast<unsigned char>(text[at++]) & 0x3Fu);
    }
    return codePoint;
}

}  // namespace

bool IsLatin1Text(std::string_view text) {
    return !IsValidUtf8(text);
}

void AppendUtf8(std::string& text, std::uint32_t codePoint) {
    const auto tail = [&](unsigned shift) { text += static_cast<char>(0x80u | ((codePoint >> shift) & 0x3Fu)); };
    if (codePoint < 0x80) {
        text += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        text += static_cast<char>(0xC0u | (codePoint >> 6));
        tail(0);
    } else if (codePoint < 0x10000) {
        text += static_cast<char>(0xE0u | (codePoint >> 12));
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0u | (codePoint >> 18));
        tail(12);
        tail(6);
        tail(0);
    }
}

bool AppendLatin1(std::string& text, std::uint32_t codePoint) {
    if (codePoint < 0x100) {
        text += static_cast<char>(codePoint);
        return true;
    }
    const auto found = std::find_if(StandIns.begin(), StandIns.end(),
                                    [&](const StandIn& standIn) { return standIn.codePoint == codePoint; });
    if (found == StandIns.end()) return false;
    text += found->text;
    return true;
}

std::string Utf8ToLatin1(std::string_view validUtf8) {
    std::string result;
    result.reserve(validUtf8.size());
    for (std::size_t at = 0; at < validUtf8.size();) {
        const std::uint32_t codePoint = DecodeAt(validUtf8, at);
        if (!AppendLatin1(result, codePoint)) result += "&#" + std::to_string(codePoint) + ";";
    }
    return result;
}

std::size_t CountCharacters(std::string_view validUtf8) noexcept {
    return static_cast<std::size_t>(
        std::count_if(validUtf8.begin(), validUtf8.end(), [](char c) { return !IsContinuation(c); }));
}
