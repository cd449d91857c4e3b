#include "mime/mailbox.h"

#include <algorithm>
#include <utility>

#include "utility/text.h"

namespace {

constexpr std::size_t LongestLiteral = 64;  // with its brackets

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Reads a value from left to right, once.
class CMailboxParser {
public:
    explicit CMailboxParser(std::string_view value) : m_value(value) {}

    std::vector<CMailbox> Parse();

private:
    void ReadElement(char c);
    void ReadQuoted();
    void ReadComment();
    void ReadAngle();
    void EndElement();
    void EndGroupName();
    void TakeBareAddress();

    std::string_view m_value;
    std::size_t m_at = 0;
    std::vector<CMailbox> m_mailboxes;

    std::string m_bare;      // outside brackets as written, without comments
    std::string m_phrase;    // the same without quotes
    std::string m_comment;   // the last one
    std::string m_address;   // between angle brackets
    std::string m_leftOver;  // the name before a comma, of an element without address
    bool m_hasAngle = false;
    bool m_quotesEnd = false;  // no closing quote follows
    bool m_hasAt = false;      // outside brackets, quotes and comments
};

std::vector<CMailbox> CMailboxParser::Parse() {
    while (m_at < m_value.size()) {
        const char c = m_value[m_at++];
        switch (c) {
            case '"':
                ReadQuoted();
                break;
            case '(':
                ReadComment();
                break;
            case '<':
                ReadAngle();
                break;
            case ',':
            case ';':
                EndElement();
                if (c == ';') m_leftOver.clear();
                break;
            case ':':
                EndGroupName();
                break;
            default:
                ReadElement(c);
        }
    }
    EndElement();
    return std::move(m_mailboxes);
}

void CMailboxParser::ReadElement(char c) {
    if (c == '@' && !m_hasAngle) m_hasAt = true;
    if (c == '>' || c == '\0') return;
    if (c == '[' && m_hasAt) {  // an address literal, colons and all
        const std::string_view ahead = m_value.substr(m_at - 1, LongestLiteral);
        const std::size_t end = ahead.find_first_of("],;<");
        if (end != std::string_view::npos && ahead[end] == ']') {
            m_bare += ahead.substr(0, end + 1);
            m_phrase += ahead.substr(0, end + 1);
            m_at += end;
            return;
        }
    }
    const char plain = IsBlank(c) ? ' ' : c;
    m_bare += plain;
    m_phrase += plain;
}

// Behind the opening quote.  Without a closing one the quote is a character like any other.
void CMailboxParser::ReadQuoted() {
    std::size_t end = m_quotesEnd ? m_value.size() : m_at;
    while (end < m_value.size() && m_value[end] != '"')
        end += m_value[end] == '\\' ? 2 : 1;
    if (end >= m_value.size()) {
        m_quotesEnd = true;
        m_phrase += '"';
        return;
    }
    m_bare += m_value.substr(m_at - 1, end + 2 - m_at);
    for (; m_at < end; ++m_at) {
        if (m_value[m_at] == '\\') ++m_at;
        m_phrase += IsBlank(m_value[m_at]) ? ' ' : m_value[m_at];
    }
    m_at = end + 1;
}

void CMailboxParser::ReadComment() {
    m_comment.clear();
    std::size_t depth = 1;
    for (; m_at < m_value.size(); ++m_at) {
        char c = m_value[m_at];
        if (c == '(') ++depth;
        if (c == ')' && --depth == 0) break;
        if (c == '\\' && m_at + 1 < m_value.size()) c = m_value[++m_at];
        m_comment += IsBlank(c) ? ' ' : c;
    }
    ++m_at;
    m_bare += ' ';
    m_phrase += ' ';
}

// Behind the opening bracket.  A missing closing one ends with the element.
void CMailboxParser::ReadAngle() {
    std::string address;
    bool isQuoted = false;
    bool hasAt = false;
    for (; m_at < m_value.size(); ++m_at) {
        const char c = m_value[m_at];
        if (c == '"') isQuoted = !isQuoted;
        if (isQuoted && c == '\\' && m_at + 1 < m_value.size()) {
            address += c;
            address += m_value[++m_at];
            continue;
        }
        if (!isQuoted) {
            if (c == '>') break;
            if (c == '<') address.clear();
            if (c == ':' && address.starts_with('@')) address.clear();  // it was a route
            if (c == ',' && hasAt && !address.starts_with('@')) {
                --m_at;
                break;
            }
            hasAt = hasAt || c == '@';
            if (IsBlank(c) || c == '<' || (c == ':' && address.empty())) continue;
        }
        address += c;
    }
    ++m_at;
    m_hasAngle = true;
    m_address = std::move(address);
}

// "Name: a@b, c@d;" - what stands before the colon names the group.
void CMailboxParser::EndGroupName() {
    if (m_hasAt || m_hasAngle) {
        ReadElement(':');
        return;
    }
    m_bare.clear();
    m_phrase.clear();
    m_comment.clear();
    m_leftOver.clear();
}

// An address without brackets; words around it are the name.
void CMailboxParser::TakeBareAddress() {
    std::string joined;  // blanks around "@" and "." do not count
    bool isQuoted = false;
    for (const char c : m_bare) {
        if (c == '"') isQuoted = !isQuoted;
        if (!isQuoted && (c == '@' || c == '.')) {
            while (!joined.empty() && joined.back() == ' ')
                joined.pop_back();
        }
        if (!isQuoted && c == ' ' && !joined.empty() && (joined.back() == '@' || joined.back() == '.')) continue;
        joined += c;
    }
    std::size_t at = std::string::npos;
    isQuoted = false;
    for (std::size_t i = 0; i < joined.size(); ++i) {
        if (joined[i] == '"' && (i == 0 || joined[i - 1] != '\\')) isQuoted = !isQuoted;
        if (joined[i] == '@' && !isQuoted) at = i;
    }
    if (at == std::string::npos) at = joined.rfind('@');
    if (at == std::string::npos) return;
    std::size_t start = at;
    if (start > 0 && joined[start - 1] == '"') {
        start = joined.rfind('"', start > 1 ? start - 2 : 0);
        while (start != std::string::npos && start > 0 && joined[start - 1] == '\\')
            start = joined.rfind('"', start - 1);
        if (start == std::string::npos) start = 0;
    } else {
        while (start > 0 && joined[start - 1] != ' ')
            --start;
    }
    const std::size_t end = std::min(joined.find(' ', at), joined.size());
    CMailbox mailbox;
    mailbox.address = joined.substr(start, end - start);
    mailbox.displayName = Trim(joined.substr(0, start));
    if (mailbox.displayName.empty()) mailbox.displayName = Trim(m_comment);
    m_mailboxes.push_back(std::move(mailbox));
}

void CMailboxParser::EndElement() {
    const std::string_view phrase = Trim(m_phrase);
    if (m_hasAngle) {
        std::string name(phrase.empty() && m_leftOver.empty() ? Trim(m_comment) : phrase);
        if (!m_leftOver.empty()) name = m_leftOver + ", " + name;
        if (!m_address.empty()) m_mailboxes.push_back({std::move(name), std::move(m_address)});
        m_leftOver.clear();
    } else if (m_hasAt) {
        TakeBareAddress();
        m_leftOver.clear();
    } else if (!phrase.empty()) {
        if (!m_leftOver.empty()) m_leftOver += ", ";
        m_leftOver += phrase;
    }
    m_bare.clear();
    m_phrase.clear();
    m_comment.clear();
    m_address.clear();
    m_hasAngle = m_hasAt = false;
}

}  // namespace

std::vector<CMailbox> ParseMailboxes(std::string_view headerValue) {
    return CMailboxParser(headerValue).Parse();
}

std::string FormatMailbox(const CMailbox& mailbox) {
    const std::string address = OneLine(mailbox.address);
    if (mailbox.displayName.empty()) return address;
    std::string result = "\"";
    for (const char c : OneLine(mailbox.displayName)) {
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result + "\" <" + address + ">";
}
