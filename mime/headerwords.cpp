#include "mime/headerwords.h"

#include <algorithm>

#include "mime/transferencoding.h"
#include "utility/text.h"

namespace {

constexpr std::size_t LongestCharset = 30;
constexpr std::string_view WordEnds = " \t\r\n,;:<>()[]\"\\";

bool IsContinuation(char c) noexcept {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// What every place of a header takes in a word.
bool IsPlainInWord(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ' || c == '!' ||
           c == '*' || c == '+' || c == '-' || c == '/';
}

bool BreaksLine(char c) noexcept {
    return c == '\r' || c == '\n' || c == '\0';
}

void AppendInWord(std::string_view character, std::string& out) {
    for (const char c : character) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == ' ' || BreaksLine(c))
            out += '_';
        else if (IsPlainInWord(c))
            out += c;
        else
            out.append({'=', CoderTables::HexDigits[byte >> 4], CoderTables::HexDigits[byte & 15]});
    }
}

std::size_t SizeInWord(std::string_view character) noexcept {
    std::size_t size = 0;
    for (const char c : character)
        size += IsPlainInWord(c) || BreaksLine(c) ? 1 : 3;
    return size;
}

}  // namespace

bool CHeaderWord::IsUtf8() const noexcept {
    return EqualNoCase(charset, "utf-8") || EqualNoCase(charset, "utf8");
}

bool CHeaderWord::IsLatin1() const noexcept {
    return EqualNoCase(charset, "iso-8859-1") || EqualNoCase(charset, "us-ascii");
}

bool ReadHeaderWord(std::string_view text, CHeaderWord& word) {
    if (!text.starts_with("=?")) return false;
    const std::size_t charsetEnd = text.substr(0, LongestCharset + 3).find('?', 2);
    if (charsetEnd == std::string_view::npos || charsetEnd == 2 || charsetEnd + 2 >= text.size() ||
        text[charsetEnd + 2] != '?')
        return false;
    word.charset = text.substr(2, charsetEnd - 2);
    word.charset = word.charset.substr(0, word.charset.find('*'));
    if (word.charset.empty() || word.charset.find_first_of(WordEnds) != std::string_view::npos) return false;
    const char encoding = ToLowerAscii(text[charsetEnd + 1]);
    if (encoding != 'q' && encoding != 'b') return false;
    word.isBase64 = encoding == 'b';
    const std::size_t from = charsetEnd + 3;
    const std::string_view token = text.substr(0, text.find_first_of(" \t\r\n", from));
    for (std::size_t end = token.find("?=", from); end != std::string_view::npos; end = token.find("?=", end + 1)) {
        if (end + 2 < token.size() && WordEnds.find(token[end + 2]) == std::string_view::npos) continue;
        word.text = token.substr(from, end - from);
        word.size = end + 2;
        return true;
    }
    return false;
}

std::string DecodeHeaderWord(const CHeaderWord& word) {
    if (word.isBase64) return DecodeBase64Text(word.text);
    std::string text(word.text);
    std::replace(text.begin(), text.end(), '_', ' ');
    return DecodeQuotedPrintable(text);
}

std::string_view HeaderCharset(std::string_view bytes) noexcept {
    return IsValidUtf8(bytes) ? "utf-8" : "iso-8859-1";
}

void AppendHeaderWords(std::string_view bytes, std::string_view charset, std::size_t firstRoom, std::string& out) {
    const bool isUtf8 = EqualNoCase(charset, "utf-8");
    const std::size_t frame = charset.size() + 7;
    std::size_t room = firstRoom;
    while (!bytes.empty()) {
        out.append("=?").append(charset).append("?Q?");
        std::size_t used = frame;
        while (!bytes.empty()) {
            std::size_t length = 1;
            while (isUtf8 && length < std::min<std::size_t>(bytes.size(), 4) && IsContinuation(bytes[length]))
                ++length;
            const std::size_t size = SizeInWord(bytes.substr(0, length));
            if (used + size > room && used > frame) break;
            AppendInWord(bytes.substr(0, length), out);
            used += size;
            bytes.remove_prefix(length);
        }
        out.append("?=");
        if (!bytes.empty()) out += ' ';
        room = CHeaderWord::MaxSize;
    }
}
