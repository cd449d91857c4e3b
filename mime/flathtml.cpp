#include "mime/flathtml.h"

#include <algorithm>
#include <array>

#include "mime/htmlconversion.h"
#include "mime/textlayout.h"
#include "utility/text.h"

namespace {

constexpr std::size_t LongestTag = 4000;  // blanks, equals signs and quotes in it

bool IsLetter(char c) {
    return ToLowerAscii(c) >= 'a' && ToLowerAscii(c) <= 'z';
}

// Does a tag begin at the "<" at that place?
bool IsTagStart(std::string_view html, std::size_t at) {
    if (at + 1 >= html.size()) return false;
    const char next = html[at + 1];
    return IsLetter(next) || next == '/' || next == '!' || next == '?';
}

bool IsInlineTag(std::string_view name) {
    constexpr std::array<std::string_view, 12> Names = {"a", "b",    "em",     "font", "i",   "img",
                                                        "s", "span", "strong", "sub",  "sup", "u"};
    return std::any_of(Names.begin(), Names.end(), [&](std::string_view n) { return EqualNoCase(n, name); });
}

std::string_view TagName(std::string_view tag) {  // of "<name ...>" or "</name>"
    tag.remove_prefix(std::min<std::size_t>(tag.size(), tag.size() > 1 && tag[1] == '/' ? 2 : 1));
    const auto end =
        std::find_if_not(tag.begin(), tag.end(), [](char c) { return IsLetter(c) || (c >= '0' && c <= '9'); });
    return tag.substr(0, static_cast<std::size_t>(end - tag.begin()));
}

// Behind what begins at the "<" at that place.
std::size_t EndOfTag(std::string_view html, std::size_t at) {
    const bool isComment = html.substr(at, 4) == "<!--";
    const std::size_t end = isComment ? html.find("-->", at + 4) : html.find('>', at);
    if (end == std::string_view::npos) return html.size();
    return end + (isComment ? 3 : 1);
}

}  // namespace

bool HasOversizedTag(std::string_view html) {
    for (std::size_t at = html.find('<'); at != std::string_view::npos; at = html.find('<', at + 1)) {
        if (!IsTagStart(html, at) || !IsLetter(html[at + 1])) continue;
        std::size_t count = 0;
        for (; at < html.size() && html[at] != '>'; ++at) {
            if (std::string_view(" \t\r\n='\"").find(html[at]) != std::string_view::npos && ++count > LongestTag) {
                return true;
            }
        }
    }
    return false;
}

std::string FlatHtmlToText(std::string_view html) {
    CTextLayout layout;
    std::size_t done = 0;
    const auto takeText = [&](std::size_t end) { layout.AddText(DecodeEntities(html.substr(done, end - done))); };
    for (std::size_t at = html.find('<'); at != std::string_view::npos; at = html.find('<', at)) {
        if (!IsTagStart(html, at)) {
            ++at;
            continue;
        }
        takeText(at);
        const std::string_view name = TagName(html.substr(at));
        const bool isDropped = html[at + 1] != '/' && (EqualNoCase(name, "script") || EqualNoCase(name, "style") ||
                                                       EqualNoCase(name, "title"));
        at = EndOfTag(html, at);
        if (isDropped) at = std::min(FindNoCase(html, "</" + std::string(name), at), html.size());
        if (!IsInlineTag(name)) layout.EndParagraph();
        done = at;
    }
    takeText(html.size());
    layout.EndParagraph();
    return layout.TakeText();
}
