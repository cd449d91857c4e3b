#include <algorithm>
#include <array>
#include <cstddef>

#include "mime/htmlconversion.h"
#include "utility/text.h"

namespace {

constexpr std::size_t TabWidth = 8;
constexpr std::string_view TrailingPunctuation = ".,;:!?'\"*_";

bool IsLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (ToLowerAscii(c) >= 'a' && ToLowerAscii(c) <= 'z');
}

bool IsUrlCharacter(char c) {
    return static_cast<unsigned char>(c) > 0x20 && c != 0x7F && c != '<' && c != '>' && c != '"' && c != '`';
}

bool IsLocalPartCharacter(char c) {
    return IsLetterOrDigit(c) || std::string_view("!#$%&'*+-/=?^_`{|}~.").find(c) != std::string_view::npos;
}

bool IsOpeningMark(char c) {
    return c == '\'' || c == '*' || c == '.';
}  // before an address, not of it

// How many characters from the start of text are a URL, 0 when it is none.
std::size_t UrlLength(std::string_view text) {
    constexpr std::array<std::string_view, 5> Starts = {"http://", "https://", "ftp://", "mailto:", "www."};
    const auto start =
        std::find_if(Starts.begin(), Starts.end(), [&](std::string_view s) { return StartsWithNoCase(text, s); });
    if (start == Starts.end()) return 0;
    std::size_t length = start->size();
    while (length < text.size() && IsUrlCharacter(text[length]))
        ++length;
    const auto brackets = [&](char c) {
        return std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length), c);
    };
    std::ptrdiff_t surplus = brackets(')') - brackets('(');
    for (; length > start->size(); --length) {
        const char last = text[length - 1];
        if (last == ')' && surplus > 0) {
            --surplus;
        } else if (TrailingPunctuation.find(last) == std::string_view::npos) {
            break;
        }
    }
    return length > start->size() ? length : 0;
}

// The end of the host name with a dot that begins at "start", or "start".
std::size_t DomainEnd(std::string_view text, std::size_t start) {
    std::size_t end = start;
    while (end < text.size() && (IsLetterOrDigit(text[end]) || text[end] == '-' || text[end] == '.'))
        ++end;
    while (end > start && !IsLetterOrDigit(text[end - 1]))
        --end;
    const std::string_view domain = text.substr(start, end - start);
    const bool isDomain = domain.find('.') != std::string_view::npos && domain.find("..") == std::string_view::npos &&
                          IsLetterOrDigit(domain.front());
    return isDomain ? end : start;
}

void AppendLink(std::string& html, std::string_view prefix, std::string_view target) {
    const std::string shown = EncodeEntities(target);
    html.append("<a href=\"").append(prefix).append(shown).append("\">").append(shown).append("</a>");
}

// A word: a run of characters other than blanks.  Links in it are found in one pass.
void AppendWord(std::string& html, std::string_view word) {
    std::size_t done = 0;
    std::size_t localPart = 0;  // where a local part that reaches to here would begin
    for (std::size_t at = 0; at < word.size();) {
        if (at == 0 || !IsLetterOrDigit(word[at - 1])) {
            if (const std::size_t length = UrlLength(word.substr(at)); length > 0) {
                html += EncodeEntities(word.substr(done, at - done));
                const std::string_view url = word.substr(at, length);
                AppendLink(html, StartsWithNoCase(url, "www.") ? "http://" : "", url);
                done = localPart = at = at + length;
                continue;
            }
        }
        if (word[at] == '@' && localPart < at) {
            if (const std::size_t end = DomainEnd(word, at + 1); end > at + 1) {
                while (localPart < at - 1 && IsOpeningMark(word[localPart]))
                    ++localPart;
                html += EncodeEntities(word.substr(done, localPart - done));
                AppendLink(html, "mailto:", word.substr(localPart, end - localPart));
                done = localPart = at = end;
                continue;
            }
        }
        if (!IsLocalPartCharacter(word[at])) localPart = at + 1;
        ++at;
    }
    html += EncodeEntities(word.substr(done));
}

// The last blank of a run within a line stays one, so that the line can be broken there.
void AppendBlanks(std::string& html, std::size_t count, bool atStart) {
    const std::size_t ordinary = atStart ? 0 : 1;
    for (std::size_t i = ordinary; i < count; ++i)
        html += "&nbsp;";
    if (ordinary != 0) html += ' ';
}

void AppendLine(std::string& html, std::string_view line) {
    std::size_t column = 0;
    for (std::size_t at = 0; at < line.size();) {
        const std::size_t start = column;
        for (; at < line.size() && (line[at] == ' ' || line[at] == '\t'); ++at) {
            column += line[at] == '\t' ? TabWidth - column % TabWidth : 1;
        }
        if (column > start && at < line.size()) AppendBlanks(html, column - start, start == 0);
        const std::size_t end = std::min(line.find_first_of(" \t", at), line.size());
        AppendWord(html, line.substr(at, end - at));
        column += end - at;
        at = end;
    }
}

}  // namespace

std::string TextToHtml(std::string_view text) {
    std::string html = "<html>\r\n<head></head>\r\n<body>\r\n";
    html.reserve(html.size() + text.size() + text.size() / 8);
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        AppendLine(html, line);
        html += "<br>\r\n";
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    html += "</body>\r\n</html>\r\n";
    return html;
}
