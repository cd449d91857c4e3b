#include "senddaemon/wireheader.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include "mime/headerwords.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::size_t UsualWireLine = 78;

bool IsBlank(char c) noexcept {
    return c == ' ' || c == '\t';
}

bool IsOneOf(std::string_view name, std::span<const std::string_view> names) noexcept {
    return std::any_of(names.begin(), names.end(), [name](std::string_view one) { return EqualNoCase(one, name); });
}

// Fields that hold neither texts nor names: no encoded word has a place in them.
bool IsTokenField(std::string_view name) noexcept {
    static constexpr std::array<std::string_view, 8> Names = {
        "Date",        "MIME-Version", "Content-Transfer-Encoding", "Content-ID", "Message-ID", "References",
        "In-Reply-To", "X-Priority"};
    return IsOneOf(name, Names) || StartsWithNoCase(name, "List-");
}

bool IsParameterField(std::string_view name) noexcept {
    return EqualNoCase(name, "Content-Type") || EqualNoCase(name, "Content-Disposition");
}

// Whether the field can go out line by line.
bool IsPlainField(std::string_view name, std::string_view raw, std::size_t longest) noexcept {
    std::size_t lineStart = 0;
    std::size_t column = name.size() + 1;
    if (raw.find_first_of(std::string_view("\0", 1)) != std::string_view::npos || HasHighBytes(raw)) return false;
    for (;;) {
        const std::size_t lf = std::min(raw.find('\n', lineStart), raw.size());
        std::string_view line = raw.substr(lineStart, lf - lineStart);
        if (lf < raw.size() && line.ends_with('\r')) line.remove_suffix(1);
        if (line.find('\r') != std::string_view::npos || column + line.size() > longest) return false;
        // A line of blanks alone would end the header for some readers.
        if (lineStart != 0 && (line.empty() || !IsBlank(line.front()) || Trim(line).empty())) return false;
        if (lf == raw.size()) return true;
        lineStart = lf + 1;
        column = 0;
    }
}

void AppendRawLines(std::string_view raw, std::string& out) {
    for (std::size_t lf = raw.find('\n'); lf != std::string_view::npos; lf = raw.find('\n')) {
        std::string_view line = raw.substr(0, lf);
        if (line.ends_with('\r')) line.remove_suffix(1);
        out.append(line).append("\r\n");
        raw.remove_prefix(lf + 1);
    }
    out.append(raw).append("\r\n");
}

// Where a token that is too long is broken: behind a separator if it has one.
std::size_t BreakInToken(std::string_view token) noexcept {
    const std::size_t room = LongestWireLine - 2;
    const std::size_t separator = token.substr(0, room).find_last_of(",;");
    return separator == std::string_view::npos || separator < room / 4 ? room : separator + 1;
}

// Lines are broken before blanks, which stay, so that unfolding gives the value back.
void AppendFolded(std::string_view value, std::size_t column, std::size_t longest, std::string& out) {
    bool isFirst = true;
    while (!value.empty()) {
        const std::size_t tokenStart = std::min(value.find_first_not_of(" \t"), value.size());
        const std::size_t end = std::min(value.find_first_of(" \t", tokenStart), value.size());
        std::string_view piece = value.substr(0, end);
        value.remove_prefix(end);
        if (!isFirst && tokenStart > 0 && column + piece.size() > longest) {
            out.append("\r\n");
            column = 0;
        }
        while (column + piece.size() > LongestWireLine) {
            const std::size_t length = BreakInToken(piece.substr(0, std::min(piece.size(), LongestWireLine - column)));
            out.append(piece.substr(0, std::min(length, LongestWireLine - column))).append("\r\n ");
            piece.remove_prefix(std::min(length, LongestWireLine - column));
            column = 1;
        }
        out.append(piece);
        column += piece.size();
        isFirst = false;
    }
    out.append("\r\n");
}

// A run of a text value that is written in one way.
struct CTextPiece {
    std::string_view blanks;  // in front of it
    std::string text;         // as it stands, or the bytes to encode
    std::string charset;      // "": as it stands
    bool isWord = false;      // was an encoded word, whatever becomes of it
};

bool MayBeSplitAnywhere(const CHeaderWord& word) noexcept {
    return word.IsUtf8() || word.IsLatin1();
}

// The words at the start of text with blanks alone between them, all of one
// charset; kept as they are when nothing is wrong with them.
CTextPiece TakeWords(std::string_view& text) {
    CTextPiece piece;
    CHeaderWord word;
    bool isSound = true;
    std::string bytes;
    std::size_t size = 0;
    std::size_t end = 0;
    while (ReadHeaderWord(text.substr(size), word)) {
        if (piece.charset.empty()) piece.charset = word.charset;
        if (!EqualNoCase(piece.charset, word.charset)) break;
        if (size + word.size < text.size() && !IsBlank(text[size + word.size])) break;
        isSound = isSound && word.size <= CHeaderWord::MaxSize && word.text.find('?') == std::string_view::npos;
        const std::string decoded = DecodeHeaderWord(word);
        if (word.IsUtf8()) isSound = isSound && IsValidUtf8(decoded);
        bytes += decoded;
        end = size + word.size;
        size = std::min(text.find_first_not_of(" \t", end), text.size());
    }
    if (end == 0) return {};
    piece.isWord = true;
    piece.text = text.substr(0, end);
    text.remove_prefix(piece.text.size());
    const CHeaderWord named{.charset = piece.charset, .text = {}};
    if (named.IsLatin1() && HasHighBytes(bytes) && IsValidUtf8(bytes)) {
        isSound = false;
        piece.charset = "utf-8";
    }
    if (isSound || !MayBeSplitAnywhere({.charset = piece.charset, .text = {}}) || HasHighBytes(piece.text))
        piece.charset.clear();
    else
        piece.text = bytes;
    return piece;
}

std::vector<CTextPiece> CutText(std::string_view value) {
    std::vector<CTextPiece> pieces;
    std::size_t lastEncoded = std::string::npos;  // raw text to encode, with plain text alone behind it
    while (!value.empty()) {
        const std::size_t start = std::min(value.find_first_not_of(" \t"), value.size());
        const std::string_view blanks = value.substr(0, start);
        value.remove_prefix(start);
        CTextPiece piece = value.starts_with("=?") ? TakeWords(value) : CTextPiece();
        piece.blanks = blanks;
        if (piece.isWord) {
            lastEncoded = std::string::npos;
            pieces.push_back(std::move(piece));
            continue;
        }
        const std::size_t end = std::min(value.find_first_of(" \t"), value.size());
        piece.text = value.substr(0, end);
        value.remove_prefix(end);
        const bool isEncoded = HasHighBytes(piece.text);
        if (isEncoded && lastEncoded != std::string::npos) {
            CTextPiece& first = pieces[lastEncoded];
            for (std::size_t i = lastEncoded + 1; i < pieces.size(); ++i)
                first.text.append(pieces[i].blanks).append(pieces[i].text);
            first.text.append(blanks).append(piece.text);
            pieces.resize(lastEncoded + 1);
            continue;
        }
        if (isEncoded) {
            lastEncoded = pieces.size();
            piece.charset = "?";
        }
        pieces.push_back(std::move(piece));
    }
    return pieces;
}

}  // namespace

bool HasHighBytes(std::string_view text) noexcept {
    std::uint64_t all = 0;
    const char* at = text.data();
    std::size_t left = text.size();
    for (; left >= 8; left -= 8, at += 8) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, at, 8);
        all |= eight;
    }
    for (; left > 0; --left, ++at)
        all |= static_cast<unsigned char>(*at);
    return (all & 0x8080808080808080U) != 0;
}

std::string AsciiOnly(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (static_cast<unsigned char>(c) > 127) c = '?';
    }
    return result;
}

std::vector<CWireField> SplitWireFields(std::string_view header) {
    std::vector<CWireField> fields;
    const char* valueStart = header.data();
    const auto extend = [&](std::string_view line) {
        CWireField& field = fields.back();
        field.raw = std::string_view(valueStart, static_cast<std::size_t>(line.data() + line.size() - valueStart));
    };
    while (!header.empty()) {
        const std::size_t lf = std::min(header.find('\n'), header.size());
        std::string_view line = header.substr(0, lf);
        header.remove_prefix(std::min(lf + 1, header.size()));
        while (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.empty()) continue;
        const std::size_t colon = IsBlank(line.front()) ? std::string_view::npos : line.find(':');
        if (colon != std::string_view::npos) {
            fields.push_back({Trim(line.substr(0, colon)), {}});
            valueStart = line.data() + colon + 1;
        } else if (fields.empty()) {
            fields.emplace_back();
            valueStart = line.data();
        }
        extend(line);
    }
    return fields;
}

std::string UnfoldWireValue(std::string_view raw) {
    std::string value;
    while (!raw.empty()) {
        const std::size_t lf = std::min(raw.find('\n'), raw.size());
        std::string_view line = raw.substr(0, lf);
        raw.remove_prefix(std::min(lf + 1, raw.size()));
        while (line.ends_with('\r'))
            line.remove_suffix(1);
        if (!value.empty() && !line.empty() && !IsBlank(line.front())) value += ' ';
        value += line;
    }
    return std::string(Trim(OneLine(value)));
}

bool IsWireAddressField(std::string_view name) noexcept {
    static constexpr std::array<std::string_view, 12> Names = {"From",
                                                               "To",
                                                               "Reply-To",
                                                               "CC",
                                                               "Sender",
                                                               "X-Gateway-From",
                                                               "Resent-From",
                                                               "Resent-To",
                                                               "Resent-CC",
                                                               "Errors-To",
                                                               "Disposition-Notification-To",
                                                               "Return-Receipt-To"};
    return IsOneOf(name, Names);
}

std::string WireText(std::string_view value, std::size_t column) {
    std::vector<CTextPiece> pieces = CutText(value);
    std::string result;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        CTextPiece& piece = pieces[i];
        // Blanks between two words do not show.
        if (piece.charset == "?") {
            if (i > 0 && pieces[i - 1].isWord) piece.text.insert(0, piece.blanks);
            if (i + 1 < pieces.size() && pieces[i + 1].isWord) piece.text += pieces[i + 1].blanks;
            piece.charset = HeaderCharset(piece.text);
        }
        result += piece.blanks;
        const std::size_t room = column < 36 ? CHeaderWord::MaxSize - column : CHeaderWord::MaxSize;
        if (piece.charset.empty())
            result += piece.text;
        else
            AppendHeaderWords(piece.text, piece.charset, i == 0 ? room : CHeaderWord::MaxSize, result);
    }
    return result;
}

std::string WireParameters(std::string_view value) {
    std::string result;
    while (!value.empty()) {
        const std::size_t equals = value.find('=');
        const std::size_t start = equals == std::string_view::npos ? value.size() : equals + 1;
        const std::string_view name = value.substr(0, start);
        result += AsciiOnly(name);
        value.remove_prefix(start);
        std::size_t end = std::min(value.find(';'), value.size());
        std::string_view text = value.substr(0, end);
        if (value.starts_with('"')) {
            end = 1;
            while (end < value.size() && value[end] != '"')
                end += value[end] == '\\' ? 2 : 1;
            end = std::min(end, value.size());
            text = value.substr(1, end - 1);
            end = std::min(end + 1, value.size());
        }
        const std::string_view whole = value.substr(0, end);
        value.remove_prefix(end);
        const bool isBoundary = name.size() > 9 && EqualNoCase(Trim(name.substr(name.size() - 9)), "boundary=");
        if (!HasHighBytes(whole) || isBoundary) {
            result += whole;
            continue;
        }
        result += '"';
        AppendHeaderWords(Trim(text), HeaderCharset(text), CHeaderWord::MaxSize, result);
        result += '"';
    }
    return result;
}

void AppendWireField(std::string_view name, std::string_view raw, CWireHeaderRules& rules, std::string& out) {
    const std::size_t longest = StartsWithNoCase(name, "Content-") ? LongestWireLine : UsualWireLine;
    out.append(name).append(":");
    const bool hasWord = raw.find("=?") != std::string_view::npos;
    if (!hasWord && IsPlainField(name, raw, longest)) {
        if (!raw.empty() && std::string_view(" \t\r\n").find(raw.front()) == std::string_view::npos) out += ' ';
        AppendRawLines(raw, out);
        return;
    }
    std::string value = UnfoldWireValue(raw);
    const std::size_t column = name.size() + 2;
    if (hasWord || HasHighBytes(value)) {
        if (IsWireAddressField(name))
            value = WireAddresses(value, column, rules);
        else if (IsParameterField(name))
            value = HasHighBytes(value) ? WireParameters(value) : value;
        else
            value = IsTokenField(name) ? AsciiOnly(value) : WireText(value, column);
    }
    if (!value.empty()) out += ' ';
    AppendFolded(value, column, longest, out);
}

}  // namespace SendDaemon
