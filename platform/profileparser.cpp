#include "platform/profileparser.h"

#include <algorithm>
#include <utility>

namespace Platform {

namespace {

constexpr std::string_view Blanks = " \t\r\n";
constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view NotInOneLine("\r\n\0", 3);

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Lower(x) == Lower(y); });
}

bool IsQuoted(std::string_view value) {
    return value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.front() == value.back();
}

void ReadKey(ProfileLine& line, std::string_view text, std::string_view content) {
    const std::size_t equals = content.find('=');
    if (equals == content.npos) return;
    line.name = TrimProfileText(content.substr(0, equals));
    if (line.name.empty()) return;
    line.kind = ProfileLine::Kind::Key;
    line.value = TrimProfileText(content.substr(equals + 1));
    const char* const start = line.value.empty() ? content.data() + equals + 1 : line.value.data();
    line.valueBegin = static_cast<std::size_t>(start - text.data());
    if (IsQuoted(line.value)) line.value = line.value.substr(1, line.value.size() - 2);
}

ProfileLine ReadLine(std::string_view text, std::size_t begin, std::size_t end) {
    ProfileLine line;
    line.begin = begin;
    line.end = end;
    std::string_view content = text.substr(begin, end - begin);
    if (begin == 0 && content.starts_with(ByteOrderMark)) content.remove_prefix(ByteOrderMark.size());
    content = TrimProfileText(content);
    if (content.empty()) {
        line.kind = ProfileLine::Kind::Blank;
    } else if (content.front() == ';') {
        line.kind = ProfileLine::Kind::Comment;
    } else if (content.front() == '[') {
        const std::size_t close = content.find(']');
        if (close == content.npos) return line;
        line.kind = ProfileLine::Kind::Section;
        line.name = TrimProfileText(content.substr(1, close - 1));
    } else {
        ReadKey(line, text, content);
    }
    return line;
}

std::string WrittenValue(std::string_view value) {
    const bool asItIs = value == TrimProfileText(value) && !IsQuoted(value);
    return asItIs ? std::string(value) : '"' + std::string(value) + '"';
}

}  // namespace

std::string_view TrimProfileText(std::string_view text) noexcept {
    const std::size_t begin = text.find_first_not_of(Blanks);
    if (begin == text.npos) return text.substr(0, 0);
    return text.substr(begin, text.find_last_not_of(Blanks) - begin + 1);
}

bool IsProfileSection(std::string_view section) noexcept {
    return !TrimProfileText(section).empty() && section.find(']') == section.npos &&
           section.find_first_of(NotInOneLine) == section.npos;
}

bool IsProfileKey(std::string_view key) noexcept {
    key = TrimProfileText(key);
    return !key.empty() && key.front() != ';' && key.front() != '[' && key.find('=') == key.npos &&
           key.find_first_of(NotInOneLine) == key.npos;
}

bool IsProfileValue(std::string_view value) noexcept {
    return value.find_first_of(NotInOneLine) == value.npos;
}

CProfileText::CProfileText(std::string text) : m_text(std::move(text)) {
    const std::string_view all = m_text;
    for (std::size_t begin = 0; begin < all.size();) {
        const std::size_t feed = all.find('\n', begin);
        const std::size_t end = feed == all.npos ? all.size() : feed + 1;
        m_lines.push_back(ReadLine(all, begin, end));
        begin = end;
    }
}

std::size_t CProfileText::FindSection(std::string_view section, std::size_t& last) const {
    section = TrimProfileText(section);
    std::size_t first = 0;
    while (first < m_lines.size() &&
           (m_lines[first].kind != ProfileLine::Kind::Section || !SameName(m_lines[first].name, section)))
        ++first;
    last = std::min(first + 1, m_lines.size());
    while (last < m_lines.size() && m_lines[last].kind != ProfileLine::Kind::Section)
        ++last;
    return first;
}

const ProfileLine* CProfileText::Find(std::string_view section, std::string_view key) const {
    key = TrimProfileText(key);
    std::size_t last;
    for (std::size_t at = FindSection(section, last); at < last; ++at) {
        if (m_lines[at].kind == ProfileLine::Kind::Key && SameName(m_lines[at].name, key)) return &m_lines[at];
    }
    return nullptr;
}

std::vector<std::string> CProfileText::Keys(std::string_view section) const {
    std::vector<std::string> keys;
    std::size_t last;
    for (std::size_t at = FindSection(section, last); at < last; ++at) {
        if (m_lines[at].kind == ProfileLine::Kind::Key) keys.emplace_back(m_lines[at].name);
    }
    return keys;
}

bool CProfileText::HoldsBinaryData() const {
    return m_text.find('\0') != m_text.npos;
}

// newLines end with LF; they get the line ends of the file.
std::string CProfileText::Insert(std::size_t offset, std::string_view newLines) const {
    const std::size_t feed = m_text.find('\n');
    const bool carriageReturns = feed != m_text.npos && feed > 0 && m_text[feed - 1] == '\r';
    const std::string_view lineEnd = carriageReturns ? "\r\n" : "\n";
    std::string result = m_text.substr(0, offset);
    if (!result.empty() && result.back() != '\n') result += lineEnd;
    for (const char c : newLines) {
        if (c == '\n')
            result += lineEnd;
        else
            result += c;
    }
    return result.append(m_text, offset);
}

std::string CProfileText::WithKey(std::string_view section, std::string_view key, std::string_view value) const {
    const std::string written = WrittenValue(value);
    if (const ProfileLine* line = Find(section, key)) {
        std::size_t lineEnd = line->end;
        while (lineEnd > line->valueBegin && (m_text[lineEnd - 1] == '\n' || m_text[lineEnd - 1] == '\r'))
            --lineEnd;
        return m_text.substr(0, line->valueBegin) + written + m_text.substr(lineEnd);
    }
    const std::string newLine = std::string(TrimProfileText(key)) + '=' + written + '\n';
    std::size_t last;
    const std::size_t first = FindSection(section, last);
    if (first < m_lines.size()) {
        std::size_t behind = last - 1;  // the section's last key, or its heading
        while (behind > first && m_lines[behind].kind != ProfileLine::Kind::Key)
            --behind;
        return Insert(m_lines[behind].end, newLine);
    }
    const bool apart = !m_lines.empty() && m_lines.back().kind != ProfileLine::Kind::Blank;
    return Insert(m_text.size(),
                  std::string(apart ? "\n" : "") + '[' + std::string(TrimProfileText(section)) + "]\n" + newLine);
}

std::string CProfileText::WithoutKey(std::string_view section, std::string_view key) const {
    const ProfileLine* line = Find(section, key);
    if (!line) return m_text;
    return m_text.substr(0, line->begin) + m_text.substr(line->end);
}

}  // namespace Platform
