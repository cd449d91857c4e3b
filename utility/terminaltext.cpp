#include "utility/terminaltext.h"

#include "utility/text.h"

std::size_t HarmfulLength(std::string_view text) noexcept {
    const auto byte = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const auto isWithin = [](unsigned value, unsigned least, unsigned most) { return value >= least && value <= most; };
    if (text.empty()) return 0;
    if (byte(0) < 0x20 || byte(0) == 0x7F) return 1;
    if (byte(0) == 0xC2 && isWithin(byte(1), 0x80, 0x9F)) return 2;
    const bool separates = byte(1) == 0x80 && isWithin(byte(2), 0xA8, 0xAE);  // U+2028 to U+202E
    const bool isolates = byte(1) == 0x81 && isWithin(byte(2), 0xA6, 0xA9);   // U+2066 to U+2069
    return byte(0) == 0xE2 && (separates || isolates) ? 3 : 0;
}

std::string Printable(std::string_view text) {
    const std::string converted = IsValidUtf8(text) ? std::string() : Latin1ToUtf8(text);
    std::string_view rest = converted.empty() ? text : converted;
    std::string result;
    result.reserve(rest.size());
    while (!rest.empty()) {
        const std::size_t harmful = HarmfulLength(rest);
        result += harmful == 0 ? rest.front() : rest.front() == '\t' ? ' ' : '?';
        rest.remove_prefix(harmful == 0 ? 1 : harmful);
    }
    return result;
}
