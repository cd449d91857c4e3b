#include <libxml/HTMLparser.h>

#include <cstdint>
#include <optional>

#include "mime/charactertext.h"
#include "mime/htmlconversion.h"
#include "utility/text.h"

namespace {

constexpr std::size_t LongestReference = 16;  // between "&" and ";": longer than any name or number of use

std::optional<std::uint32_t> NumberOf(std::string_view digits) {
    std::uint32_t base = 10;
    if (!digits.empty() && ToLowerAscii(digits.front()) == 'x') {
        base = 16;
        digits.remove_prefix(1);
    }
    if (digits.empty()) return std::nullopt;
    std::uint32_t number = 0;
    for (const char digit : digits) {
        const char c = ToLowerAscii(digit);
        std::uint32_t value = 99;
        if (c >= '0' && c <= '9') value = static_cast<std::uint32_t>(c - '0');
        if (c >= 'a' && c <= 'f') value = static_cast<std::uint32_t>(c - 'a') + 10;
        if (value >= base) return std::nullopt;
        number = number * base + value;
        if (number > 0x10FFFF) return std::nullopt;
    }
    return number;
}

bool IsText(std::uint32_t codePoint) {
    if (codePoint < 0x20) return codePoint == '\t' || codePoint == '\n' || codePoint == '\r';
    return codePoint != 0x7F && (codePoint < 0xD800 || codePoint > 0xDFFF);
}

// reference is what stands between "&" and ";".
std::optional<std::uint32_t> CodePointOf(std::string_view reference) {
    if (reference.empty()) return std::nullopt;
    if (reference.front() == '#') {
        const auto number = NumberOf(reference.substr(1));
        return number && IsText(*number) ? number : std::nullopt;
    }
    const std::string name(reference);
    const htmlEntityDesc* entity = htmlEntityLookup(reinterpret_cast<const xmlChar*>(name.c_str()));
    if (entity == nullptr) return std::nullopt;
    return entity->value;
}

// Numbers 128 to 159 are meant as Windows-1252 by those who write them.
void AppendCharacter(std::string& text, std::uint32_t codePoint) {
    if (codePoint >= 0x80 && codePoint < 0xA0) {
        const char byte = static_cast<char>(codePoint);
        text += Windows1252ToUtf8(std::string_view(&byte, 1));
        return;
    }
    AppendUtf8(text, codePoint);
}

}  // namespace

std::string EncodeEntities(std::string_view text) {
    std::string result;
    result.reserve(text.size() + text.size() / 16);
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string DecodeEntities(std::string_view text) {
    std::size_t ampersand = text.find('&');
    if (ampersand == std::string_view::npos) return std::string(text);
    const bool isLatin1 = IsLatin1Text(text);
    std::string result;
    result.reserve(text.size());
    std::size_t done = 0;
    for (; ampersand != std::string_view::npos; ampersand = text.find('&', ampersand + 1)) {
        const std::string_view ahead = text.substr(ampersand + 1, LongestReference + 1);
        const std::size_t semicolon = ahead.find(';');
        if (semicolon == std::string_view::npos) continue;
        const auto codePoint = CodePointOf(ahead.substr(0, semicolon));
        if (!codePoint) continue;
        result += text.substr(done, ampersand - done);
        done = ampersand;
        if (!isLatin1) {
            AppendCharacter(result, *codePoint);
        } else if (!AppendLatin1(result, *codePoint)) {
            continue;
        }
        done = ampersand + 1 + semicolon + 1;
    }
    result += text.substr(done);
    return result;
}
