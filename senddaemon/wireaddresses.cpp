#include <algorithm>

#include "mime/headerwords.h"
#include "mime/mailbox.h"
#include "mime/transferencoding.h"
#include "senddaemon/wireheader.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::string_view Specials = "()<>[]:;@\\,\"";

bool HasWord(std::string_view text) noexcept {
    return text.find("=?") != std::string_view::npos;
}

// A word of a name, with what would end the name hidden.
void AppendHidingSpecials(const CHeaderWord& word, std::string_view whole, std::string& out) {
    const auto text = static_cast<std::size_t>(word.text.data() - whole.data());
    out += whole.substr(0, text);
    for (const char c : word.text) {
        const auto byte = static_cast<unsigned char>(c);
        if (Specials.find(c) == std::string_view::npos && c != '?')
            out += c;
        else
            out.append({'=', CoderTables::HexDigits[byte >> 4], CoderTables::HexDigits[byte & 15]});
    }
    out += whole.substr(text + word.text.size());
}

// A word with addresses in it, as the stored form can have them: the bytes of
// it, but that separators which were hidden become blanks.
void AppendSpelledOut(const CHeaderWord& word, std::string& out) {
    for (std::size_t i = 0; i < word.text.size();) {
        const std::size_t length = word.text[i] == '=' && i + 2 < word.text.size() ? 3 : 1;
        const CHeaderWord one{.charset = word.charset, .text = word.text.substr(i, length)};
        const std::string bytes = DecodeHeaderWord(one);
        const bool isHidden = length == 3 && bytes.size() == 1 && Specials.find(bytes[0]) != std::string_view::npos;
        out += isHidden ? " " : OneLine(bytes);
        i += length;
    }
}

std::string PrepareWords(std::string_view value) {
    std::string result;
    while (!value.empty()) {
        const std::size_t start = std::min(value.find("=?"), value.size());
        result += value.substr(0, start);
        value.remove_prefix(start);
        CHeaderWord word;
        if (!ReadHeaderWord(value, word)) {  // nor is there one before the next blank
            word.size = std::min(value.find_first_of(" \t"), value.size());
            result += value.substr(0, word.size);
        } else if (word.isBase64) {
            result += value.substr(0, word.size);
        } else if (word.text.find('@') != std::string_view::npos) {
            AppendSpelledOut(word, result);
        } else {
            AppendHidingSpecials(word, value.substr(0, word.size), result);
        }
        value.remove_prefix(word.size);
    }
    return result;
}

// Whether one word can stay in a display name.
bool IsSoundInName(const CHeaderWord& word, std::string_view following) {
    if (word.size > CHeaderWord::MaxSize || (!following.empty() && following.front() != ' ')) return false;
    if (!word.isBase64 && word.text.find_first_of("()<>[]:;@\\,\"?.") != std::string_view::npos) return false;
    const std::string bytes = DecodeHeaderWord(word);
    const bool isUtf8 = IsValidUtf8(bytes);
    if (word.IsLatin1() && HasHighBytes(bytes) && isUtf8) return false;
    if (word.IsUtf8() && !isUtf8) return false;
    return !bytes.starts_with('"') && !bytes.ends_with('"');
}

// Whether text (a display name, or an element of a list) can stay as it is.
bool IsSound(std::string_view text) {
    if (HasHighBytes(text)) return false;
    bool isQuoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            isQuoted = !isQuoted;
        } else if (text.substr(i).starts_with("=?")) {
            CHeaderWord word;
            if (isQuoted || !ReadHeaderWord(text.substr(i), word) || !IsSoundInName(word, text.substr(i + word.size)))
                return false;
            i += word.size - 1;
        }
    }
    return true;
}

void AppendQuoted(std::string_view name, std::string& out) {
    out += '"';
    for (const char c : name) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    out += '"';
}

// The bytes of a name whose words are decoded; false when it has words of
// charsets that are not read here.
class CNameDecoder {
public:
    bool Decode(std::string_view name);
    std::string_view GetBytes() const noexcept { return m_isMixed ? m_utf8 : m_bytes; }

private:
    void Add(std::string_view bytes) {
        m_isMixed = m_isMixed || (HasHighBytes(bytes) && IsValidUtf8(bytes) == m_hasLatin1 && HasHighBytes(m_bytes));
        m_hasLatin1 = m_hasLatin1 || !IsValidUtf8(bytes);
        m_bytes += bytes;
        m_utf8 += IsValidUtf8(bytes) ? std::string(bytes) : Latin1ToUtf8(bytes);
    }

    std::string m_bytes;
    std::string m_utf8;
    bool m_hasLatin1 = false;
    bool m_isMixed = false;
};

bool CNameDecoder::Decode(std::string_view name) {
    std::string run;  // the words so far, blanks alone between them
    std::string_view blanks;
    while (!name.empty()) {
        CHeaderWord word;
        if (ReadHeaderWord(name, word)) {
            if (!word.IsUtf8() && !word.IsLatin1()) return false;
            run += DecodeHeaderWord(word);
            name.remove_prefix(word.size);
            blanks = name.substr(0, std::min(name.find_first_not_of(" \t"), name.size()));
            name.remove_prefix(blanks.size());
            continue;
        }
        Add(run);
        Add(run.empty() ? std::string_view() : blanks);
        run.clear();
        const std::size_t tokenEnd = name.starts_with("=?") ? name.find_first_of(" \t") : 0;
        const std::size_t next = std::min(name.find("=?", std::max<std::size_t>(tokenEnd, 1)), name.size());
        Add(name.substr(0, next));
        name.remove_prefix(next);
    }
    Add(run);
    return true;
}

// Words of other charsets stay words; what is between them must not end the name.
std::string NameOfOtherCharset(std::string_view name) {
    const std::string text = WireText(name, 0);
    std::string result;
    for (const std::string_view token : Split(text, ' ')) {
        CHeaderWord word;
        const bool isWord = ReadHeaderWord(token, word) && word.size == token.size();
        const std::string_view inside = isWord && !word.isBase64 ? word.text : token;
        if (!result.empty()) result += ' ';
        if (inside.find_first_of(Specials) == std::string_view::npos)
            result += token;
        else
            AppendQuoted(token, result);
    }
    return result;
}

std::string WireName(std::string_view name, std::size_t column) {
    CNameDecoder decoder;
    std::string result;
    if (!decoder.Decode(name)) return NameOfOtherCharset(name);
    const std::string line = OneLine(decoder.GetBytes());
    std::string_view bytes = Trim(line);
    std::string bare;
    if (bytes.size() > 1 && bytes.front() == '"' && bytes.back() == '"') {
        for (std::size_t i = 1; i + 1 < bytes.size(); ++i) {
            if (bytes[i] == '\\' && i + 2 < bytes.size()) ++i;
            bare += bytes[i];
        }
        bytes = Trim(bare);
    }
    if (HasHighBytes(bytes) || HasWord(bytes))
        AppendHeaderWords(bytes, HeaderCharset(bytes), CHeaderWord::MaxSize - (column < 36 ? column : 0), result);
    else if (!bytes.empty())
        AppendQuoted(bytes, result);
    return result;
}

std::string WireAddress(std::string_view address, CWireHeaderRules& rules) {
    const std::string line = OneLine(address);
    if (!HasHighBytes(line)) return line;
    if (IsValidUtf8(line)) {
        rules.needsSmtpUtf8 = true;
        if (rules.hasSmtpUtf8) return line;
    }
    return AsciiOnly(line);
}

std::string WireMailboxes(std::string_view element, std::size_t column, CWireHeaderRules& rules) {
    std::string result;
    for (const CMailbox& mailbox : ParseMailboxes(element)) {
        if (!result.empty()) result += ", ";
        const std::string name = WireName(mailbox.displayName, result.empty() ? column : 0);
        const std::string address = WireAddress(mailbox.address, rules);
        result += name.empty() ? address : name + " <" + address + ">";
    }
    return result;
}

// Walks over a list by its separators; elements without fault are copied.
class CAddressList {
public:
    CAddressList(std::string_view value, std::size_t column, CWireHeaderRules& rules)
        : m_value(value), m_column(column), m_rules(rules) {}

    // False when quotes, brackets or comments do not match.
    bool Write(std::string& out);

private:
    bool Skip(char closing);
    bool SkipComment();
    void EndElement(std::size_t end, std::string& out);

    std::string_view m_value;
    std::size_t m_column;
    CWireHeaderRules& m_rules;
    std::size_t m_at = 0;
    std::size_t m_start = 0;  // of the element
    bool m_hasAddress = false;
    bool m_hasAngle = false;
    bool m_hasComma = false;  // in its name
};

// Behind an opening quote or bracket.
bool CAddressList::Skip(char closing) {
    while (m_at < m_value.size() && m_value[m_at] != closing) {
        if (closing == '>' && m_value[m_at] == '"') {
            ++m_at;
            if (!Skip('"')) return false;
        } else {
            if (closing == '>' && (m_value[m_at] == '<' || m_value[m_at] == ',')) return false;
            m_at += m_value[m_at] == '\\' ? 2 : 1;
        }
    }
    return m_at++ < m_value.size();
}

bool CAddressList::SkipComment() {
    for (std::size_t depth = 1; m_at < m_value.size(); ++m_at) {
        const char c = m_value[m_at];
        if (c == '\\') ++m_at;
        if (c == '(') ++depth;
        if (c == ')' && --depth == 0) return ++m_at <= m_value.size();
    }
    return false;
}

void CAddressList::EndElement(std::size_t end, std::string& out) {
    const std::string_view element = m_value.substr(m_start, end - m_start);
    const std::string_view text = Trim(element);
    if (IsSound(text) && !m_hasComma) {
        out += element;
    } else {
        const std::size_t column = out.empty() ? m_column : 0;
        std::string written = m_hasAddress ? WireMailboxes(text, column, m_rules) : WireName(text, column);
        if (written.empty()) written = AsciiOnly(text);
        if (!out.empty() && out.back() != ' ') out += ' ';
        out += written;
    }
    m_hasAddress = m_hasAngle = m_hasComma = false;
}

bool CAddressList::Write(std::string& out) {
    while (m_at < m_value.size()) {
        const char c = m_value[m_at++];
        if (c == '"') {
            if (!Skip('"')) return false;
        } else if (c == '(') {
            if (!SkipComment()) return false;
        } else if (c == '<') {
            if (m_hasAngle || !Skip('>')) return false;
            m_hasAngle = m_hasAddress = true;
        } else if (c == '@') {
            m_hasAddress = true;
        } else if (c == '[' && m_hasAddress && !m_hasAngle) {
            if (!Skip(']')) return false;
        } else if (c == ',' && !m_hasAddress && !Trim(m_value.substr(m_start, m_at - 1 - m_start)).empty()) {
            m_hasComma = true;
        } else if (c == ',' || c == ';' || (c == ':' && !m_hasAddress)) {
            EndElement(m_at - 1, out);
            out += c;
            m_start = m_at;
        }
    }
    EndElement(m_value.size(), out);
    return true;
}

}  // namespace

std::string WireAddresses(std::string_view value, std::size_t column, CWireHeaderRules& rules) {
    const std::string prepared = PrepareWords(value);
    std::string result;
    if (CAddressList(prepared, column, rules).Write(result)) return std::string(Trim(result));
    result = WireMailboxes(prepared, column, rules);
    return result.empty() ? AsciiOnly(prepared) : result;
}

}  // namespace SendDaemon
