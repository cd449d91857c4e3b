#include "mime/encodedword.h"

#include <algorithm>

#include "mime/transferencoding.h"
#include "utility/text.h"

namespace {

bool NeedsEncoding(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 127 || c == '=' || (byte < 32 && c != '\t' && c != '\r' && c != '\n');
}

struct CWord {
    char encoding = 0;
    std::string_view text;
    std::size_t end = 0;  // behind its "?="
};

// A word at the "=?" at position "start".
bool ReadWord(std::string_view text, std::size_t start, CWord& word) {
    const std::size_t charsetEnd = text.find('?', start + 2);
    if (charsetEnd == std::string_view::npos || charsetEnd + 2 >= text.size() || text[charsetEnd + 2] != '?')
        return false;
    const std::size_t from = charsetEnd + 3;
    const std::size_t end = text.find('?', from);
    if (end == std::string_view::npos || end + 1 >= text.size() || text[end + 1] != '=') return false;
    word.encoding = text[charsetEnd + 1];
    word.text = text.substr(from, end - from);
    word.end = end + 2;
    return true;
}

void AppendDecoded(const CWord& word, std::string& out) {
    if (word.encoding == 'Q') {
        std::string text(word.text);
        std::replace(text.begin(), text.end(), '_', ' ');
        out += DecodeQuotedPrintable(text);
        return;
    }
    const std::string bytes = DecodeBase64Text(word.text);
    out.append(bytes, 0, bytes.find('\0'));
}

}  // namespace

std::string EncodeHeaderWord(std::string_view text) {
    if (std::none_of(text.begin(), text.end(), NeedsEncoding) || text.find("=?") != std::string_view::npos)
        return std::string(text);
    std::string encoded = EncodeQuotedPrintable(text);
    ReplaceAll(encoded, "=\n", "");
    std::replace(encoded.begin(), encoded.end(), ' ', '_');
    return "=?iso-8859-1?Q?" + encoded + "?=";
}

std::string DecodeHeaderText(std::string_view text) {
    std::string result;
    std::size_t copied = 0;
    std::size_t start = text.find("=?");
    while (start != std::string_view::npos) {
        CWord word;
        if (ReadWord(text, start, word)) {
            result.append(text, copied, start - copied);
            AppendDecoded(word, result);
            copied = word.end;
            start = text.find("=?", copied);
        } else {
            start = text.find("=?", start + 1);
        }
    }
    return result.append(text.substr(copied));
}
