// Character sets, base32 and hexadecimal digits: the part of text.h that knows tables.

#include <array>
#include <cstdint>

#include "utility/text.h"

namespace {

void AppendUtf8(std::string& to, std::uint32_t codePoint) {
    const auto add = [&](std::uint32_t byte) { to += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (codePoint < 0x80) {
        add(codePoint);
    } else if (codePoint < 0x800) {
        add(0xC0 | codePoint >> 6);
        add(0x80 | (codePoint & 0x3F));
    } else {
        add(0xE0 | codePoint >> 12);
        add(0x80 | (codePoint >> 6 & 0x3F));
        add(0x80 | (codePoint & 0x3F));
    }
}

// Bytes 0x80 to 0x9F of Windows-1252; the five that it leaves open stay as they are.
constexpr std::array<std::uint16_t, 32> Windows1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

constexpr std::string_view Base32Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

// How many bytes a sequence has that begins with this byte; 0 for none.
std::size_t SequenceLength(unsigned char first) noexcept {
    if (first < 0x80) return 1;
    if (first < 0xC2) return 0;
    if (first < 0xE0) return 2;
    if (first < 0xF0) return 3;
    return first < 0xF5 ? 4 : 0;
}

}  // namespace

bool IsValidUtf8(std::string_view text) noexcept {
    for (std::size_t i = 0; i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i]);
        const std::size_t length = SequenceLength(first);
        if (length == 0 || i + length > text.size()) return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
        }
        const auto second = length > 1 ? static_cast<unsigned char>(text[i + 1]) : 0;
        if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return false;  // overlong, surrogates
        if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return false;  // overlong, too large
        i += length;
    }
    return true;
}

std::string Latin1ToUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size() + text.size() / 8);
    for (const char c : text)
        AppendUtf8(result, static_cast<unsigned char>(c));
    return result;
}

std::string Windows1252ToUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size() + text.size() / 8);
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        AppendUtf8(result, byte >= 0x80 && byte < 0xA0 ? Windows1252[byte - 0x80U] : byte);
    }
    return result;
}

std::string EncodeBase32(std::string_view bytes) {
    std::string result;
    std::uint32_t pending = 0;
    unsigned bits = 0;
    for (const char c : bytes) {
        pending = (pending << 8 | static_cast<unsigned char>(c)) & 0xFFFF;
        bits += 8;
        for (; bits >= 5; bits -= 5)
            result += Base32Digits[pending >> (bits - 5) & 31];
    }
    if (bits > 0) result += Base32Digits[pending << (5 - bits) & 31];
    return result;
}

std::optional<std::string> DecodeBase32(std::string_view text) {
    std::string result;
    std::uint32_t pending = 0;
    unsigned bits = 0;
    for (char c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        const std::size_t value = Base32Digits.find(c);
        if (value == std::string_view::npos) return std::nullopt;
        pending = (pending << 5 | static_cast<std::uint32_t>(value)) & 0xFFFF;
        bits += 5;
        if (bits >= 8) {
            bits -= 8;
            result += static_cast<char>(static_cast<unsigned char>(pending >> bits & 0xFF));
        }
    }
    // What is left over must be the zeros that filled up the last digit.
    if (bits >= 5 || (pending & ((1U << bits) - 1)) != 0) return std::nullopt;
    return result;
}

std::string EncodeHex(std::string_view bytes) {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::string result;
    result.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        result += Digits[static_cast<unsigned char>(c) >> 4];
        result += Digits[static_cast<unsigned char>(c) & 15];
    }
    return result;
}
