#include <libxml/HTMLparser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "mime/charactertext.h"
#include "mime/flathtml.h"
#include "mime/htmlconversion.h"
#include "mime/textlayout.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::size_t DeepestElement = 1000;
constexpr std::size_t LargestHtml = std::size_t{1} << 30;
constexpr std::size_t ComparedLinkText = 4096;
constexpr std::int64_t LargestItemNumber = 999999;

enum class Role {
    Inline,
    Block,
    Spaced,
    Dropped,
    Quote,
    Item,
    Bullets,
    Numbers,
    Definition,
    Pre,
    Heading,
    Row,
    Cell,
    Link
};

struct CElement {
    std::string_view name;
    Role role;
};

constexpr std::array<CElement, 52> Elements = {{
    {"a", Role::Link},           {"address", Role::Block},    {"article", Role::Block},    {"aside", Role::Block},
    {"blockquote", Role::Quote}, {"body", Role::Block},       {"caption", Role::Block},    {"center", Role::Block},
    {"dd", Role::Definition},    {"dir", Role::Bullets},      {"div", Role::Block},        {"dl", Role::Spaced},
    {"dt", Role::Block},         {"fieldset", Role::Spaced},  {"figcaption", Role::Block}, {"figure", Role::Block},
    {"footer", Role::Block},     {"form", Role::Block},       {"h1", Role::Heading},       {"h2", Role::Heading},
    {"h3", Role::Heading},       {"h4", Role::Heading},       {"h5", Role::Heading},       {"h6", Role::Heading},
    {"head", Role::Dropped},     {"header", Role::Block},     {"html", Role::Block},       {"legend", Role::Block},
    {"li", Role::Item},          {"listing", Role::Pre},      {"main", Role::Block},       {"menu", Role::Bullets},
    {"nav", Role::Block},        {"ol", Role::Numbers},       {"option", Role::Block},     {"p", Role::Spaced},
    {"plaintext", Role::Pre},    {"pre", Role::Pre},          {"script", Role::Dropped},   {"section", Role::Block},
    {"select", Role::Block},     {"style", Role::Dropped},    {"table", Role::Spaced},     {"tbody", Role::Block},
    {"td", Role::Cell},          {"template", Role::Dropped}, {"tfoot", Role::Block},      {"th", Role::Cell},
    {"thead", Role::Block},      {"title", Role::Dropped},    {"tr", Role::Row},           {"ul", Role::Bullets},
}};
static_assert(std::is_sorted(Elements.begin(), Elements.end(),
                             [](const CElement& a, const CElement& b) { return a.name < b.name; }));

Role RoleOf(std::string_view name) {
    const auto found = std::lower_bound(Elements.begin(), Elements.end(), name,
                                        [](const CElement& element, std::string_view n) { return element.name < n; });
    return found != Elements.end() && found->name == name ? found->role : Role::Inline;
}

std::string_view ViewOf(const xmlChar* text) {
    return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(text));
}

std::string_view AttributeOf(const xmlChar** attributes, std::string_view name) {
    for (; attributes != nullptr && *attributes != nullptr; attributes += 2) {
        if (ViewOf(attributes[0]) == name) return Trim(ViewOf(attributes[1]));
    }
    return {};
}

// As it is shown: without line breaks that were put in, blanks kept as one word.
std::string UrlOf(std::string_view href) {
    if (href.empty() || href.front() == '#') return {};
    for (const std::string_view scheme : {"javascript:", "data:", "cid:"}) {
        if (StartsWithNoCase(href, scheme)) return {};
    }
    if (StartsWithNoCase(href, "mailto:")) href.remove_prefix(7);
    std::string url;
    for (const char c : href) {
        if (c == ' ') {
            url += "%20";
        } else if (static_cast<unsigned char>(c) > 0x20) {
            url += c;
        }
    }
    return url;
}

// What two spellings of one link have in common.
std::string_view BareUrl(std::string_view url) {
    for (const std::string_view scheme : {"http://", "https://", "mailto:"}) {
        if (StartsWithNoCase(url, scheme)) url.remove_prefix(scheme.size());
    }
    if (!url.empty() && url.back() == '/') url.remove_suffix(1);
    return url;
}

class CTextBuilder {
public:
    explicit CTextBuilder(bool isLatin1) : m_isLatin1(isLatin1) {}

    void StartElement(std::string_view name, const xmlChar** attributes);
    void EndElement(std::string_view name);
    void AddCharacters(std::string_view text);
    bool IsTooDeep() const noexcept { return m_open.size() > DeepestElement; }
    std::string TakeText();

private:
    struct COpenElement {
        std::string name;
        Role role;
    };
    struct CList {
        bool isNumbered;
        std::int64_t next;
    };
    struct CLink {
        std::string url;
        std::string text;
    };

    void EndBlock();
    void StartItem(const xmlChar** attributes);
    void StartCell();
    void StartInline(std::string_view name, const xmlChar** attributes);
    void StartBlock(Role role, const xmlChar** attributes);
    void EndHeading(std::string_view name);
    void EndLink();
    void EndBlockElement(const COpenElement& element);
    void AddUnit(std::string_view text);

    CTextLayout m_layout;
    std::vector<COpenElement> m_open;
    std::vector<CList> m_lists;
    std::optional<CLink> m_link;
    bool m_isLatin1;
    bool m_rowHasCells = false;  // the paragraph is a table row with a separator
    bool m_preStarts = false;
    std::size_t m_dropped = 0;
    std::size_t m_preformatted = 0;
};

void CTextBuilder::EndBlock() {
    const bool isRow = std::exchange(m_rowHasCells, false);
    if (m_preformatted > 0) {
        m_layout.EndParagraph(CTextLayout::Style::Preformatted);
    } else {
        m_layout.EndParagraph(isRow ? CTextLayout::Style::Row : CTextLayout::Style::Flowing);
    }
}

void CTextBuilder::StartElement(std::string_view name, const xmlChar** attributes) {
    const Role role = RoleOf(name);
    m_open.push_back({std::string(name), role});
    if (role == Role::Dropped) ++m_dropped;
    if (m_dropped > 0) return;
    if (role == Role::Link) {
        m_link = CLink{UrlOf(AttributeOf(attributes, "href")), {}};
    } else if (role == Role::Cell) {
        StartCell();
    } else if (role == Role::Inline) {
        StartInline(name, attributes);
    } else {
        StartBlock(role, attributes);
    }
}

void CTextBuilder::StartBlock(Role role, const xmlChar** attributes) {
    EndBlock();
    const bool isList = role == Role::Bullets || role == Role::Numbers;
    if (isList && m_lists.empty()) m_layout.WantBlankLine();
    if (role == Role::Spaced || role == Role::Quote || role == Role::Pre || role == Role::Heading) {
        m_layout.WantBlankLine();
    }
    if (role == Role::Quote) m_layout.OpenFrame("> ", "> ");
    if (role == Role::Definition) m_layout.OpenFrame("    ", "    ");
    if (role == Role::Item) StartItem(attributes);
    if (isList) {
        const auto start = ParseNumber(AttributeOf(attributes, "start"));
        m_lists.push_back({role == Role::Numbers, start ? *start : 1});
    }
    if (role == Role::Pre) {
        ++m_preformatted;
        m_preStarts = true;
    }
}

void CTextBuilder::StartItem(const xmlChar** attributes) {
    std::string marker = "* ";
    if (!m_lists.empty() && m_lists.back().isNumbered) {
        CList& list = m_lists.back();
        if (const auto value = ParseNumber(AttributeOf(attributes, "value"))) list.next = *value;
        list.next = std::clamp<std::int64_t>(list.next, 0, LargestItemNumber);
        marker = std::to_string(list.next++) + ". ";
    }
    m_layout.OpenFrame(marker, std::string(marker.size(), ' '));
}

void CTextBuilder::StartCell() {
    if (m_layout.IsEmpty()) return;
    m_layout.AddMark(" | ");
    m_rowHasCells = true;
}

void CTextBuilder::StartInline(std::string_view name, const xmlChar** attributes) {
    if (name == "br") {
        m_layout.BreakLine();
    } else if (name == "hr") {
        EndBlock();
        m_layout.WantBlankLine();
        m_layout.AddMark(std::string(CTextLayout::Width - 4, '-'));
        EndBlock();
        m_layout.WantBlankLine();
    } else if (name == "img") {
        const std::string_view alternative = AttributeOf(attributes, "alt");
        if (!alternative.empty()) AddUnit(alternative);
    }
}

void CTextBuilder::AddUnit(std::string_view text) {
    m_layout.AddText(text);
    if (m_link && m_link->text.size() < ComparedLinkText) m_link->text += text;
}

void CTextBuilder::EndElement(std::string_view name) {
    if (m_open.empty() || m_open.back().name != name) return;
    const COpenElement element = std::move(m_open.back());
    m_open.pop_back();
    if (element.role == Role::Dropped) --m_dropped;
    if (m_dropped > 0 || element.role == Role::Dropped) return;
    if (element.role == Role::Link) {
        EndLink();
    } else if (element.role != Role::Inline && element.role != Role::Cell) {
        EndBlockElement(element);
    }
}

void CTextBuilder::EndBlockElement(const COpenElement& element) {
    if (element.role == Role::Heading) {
        EndHeading(element.name);
    } else {
        EndBlock();
    }
    switch (element.role) {
        case Role::Bullets:
        case Role::Numbers:
            if (!m_lists.empty()) m_lists.pop_back();
            if (m_lists.empty()) m_layout.WantBlankLine();
            break;
        case Role::Item:
        case Role::Definition:
            m_layout.CloseFrame();
            break;
        case Role::Quote:
            m_layout.CloseFrame();
            m_layout.WantBlankLine();
            break;
        case Role::Pre:
            --m_preformatted;
            m_layout.WantBlankLine();
            break;
        case Role::Spaced:
        case Role::Heading:
            m_layout.WantBlankLine();
            break;
        default:
            break;
    }
}

void CTextBuilder::EndHeading(std::string_view name) {
    const bool hasText = !m_layout.IsEmpty();
    EndBlock();
    if (!hasText || (name != "h1" && name != "h2")) return;
    m_layout.AddMark(std::string(std::min(m_layout.GetLastLineWidth(), CTextLayout::Width), name == "h1" ? '=' : '-'));
    EndBlock();
}

void CTextBuilder::EndLink() {
    if (!m_link) return;
    const CLink link = *std::exchange(m_link, std::nullopt);
    if (link.url.empty() || EqualNoCase(BareUrl(Trim(link.text)), BareUrl(link.url))) return;
    if (Trim(link.text).empty()) {
        m_layout.AddText(link.url);
    } else if (m_layout.IsEmpty()) {
        m_layout.AddText("(" + link.url + ")");
    } else {
        m_layout.AddMark(" (" + link.url + ")");
    }
}

void CTextBuilder::AddCharacters(std::string_view text) {
    if (m_dropped > 0) return;
    if (std::exchange(m_preStarts, false) && !text.empty() && text.front() == '\n') text.remove_prefix(1);
    std::string converted;
    converted.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
        if (text[at] != '\xC2' || next > 0xA0) {
            converted += text[at];
            continue;
        }
        ++at;
        if (next == 0xA0) {
            converted += CTextLayout::HardBlank;
        } else if (m_isLatin1) {
            converted.append(text, at - 1, 2);
        } else {  // a reference to 128 to 159 is meant as Windows-1252
            converted += Windows1252ToUtf8(text.substr(at, 1));
        }
    }
    if (m_preformatted > 0) {
        m_layout.AddPreformatted(converted);
    } else {
        AddUnit(converted);
    }
}

std::string CTextBuilder::TakeText() {
    EndBlock();
    return m_layout.TakeText();
}

struct CParsing {
    CTextBuilder builder;
    htmlParserCtxtPtr context = nullptr;
    bool isTooDeep = false;
};

void OnStartElement(void* data, const xmlChar* name, const xmlChar** attributes) {
    auto& parsing = *static_cast<CParsing*>(data);
    parsing.builder.StartElement(ViewOf(name), attributes);
    if (!parsing.builder.IsTooDeep()) return;
    parsing.isTooDeep = true;
    xmlStopParser(parsing.context);
}

void OnEndElement(void* data, const xmlChar* name) {
    static_cast<CParsing*>(data)->builder.EndElement(ViewOf(name));
}

void OnCharacters(void* data, const xmlChar* text, int size) {
    static_cast<CParsing*>(data)->builder.AddCharacters(
        std::string_view(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size)));
}

struct CFreeContext {
    void operator()(htmlParserCtxtPtr context) const { htmlFreeParserCtxt(context); }
};

// UTF-8 without characters that the parser or the layout take for something else.
std::string PrepareHtml(std::string_view html, bool isLatin1) {
    std::string prepared = isLatin1 ? Latin1ToUtf8(html) : std::string(html);
    for (char& c : prepared) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == 0x7F || (byte < 0x20 && c != '\t' && c != '\n' && c != '\r')) c = ' ';
    }
    return prepared;
}

// nullopt when the elements are nested too deep.
std::optional<std::string> ParseHtml(const std::string& html, bool isLatin1) {
    static std::once_flag initialised;
    std::call_once(initialised, xmlInitParser);
    const std::unique_ptr<xmlParserCtxt, CFreeContext> context(
        htmlCreateMemoryParserCtxt(html.data(), static_cast<int>(html.size())));
    if (!context) throw std::bad_alloc();
    CParsing parsing{CTextBuilder(isLatin1), context.get(), false};
    htmlCtxtUseOptions(context.get(), HTML_PARSE_RECOVER | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING |
                                          HTML_PARSE_NONET | HTML_PARSE_IGNORE_ENC | XML_PARSE_HUGE);
    htmlSAXHandler& handler = *context->sax;
    handler = {};
    handler.initialized = 1;
    handler.startElement = OnStartElement;
    handler.endElement = OnEndElement;
    handler.characters = handler.ignorableWhitespace = OnCharacters;
    handler.cdataBlock = OnCharacters;
    context->userData = &parsing;
    xmlSwitchEncoding(context.get(), XML_CHAR_ENCODING_UTF8);
    htmlParseDocument(context.get());
    if (parsing.isTooDeep) return std::nullopt;
    return parsing.builder.TakeText();
}

}  // namespace

std::string HtmlToText(std::string_view html) {
    if (html.empty()) return {};
    if (html.size() >= LargestHtml) throw CLhvException("The HTML text is too large to be converted.");
    const bool isLatin1 = IsLatin1Text(html);
    const std::string prepared = PrepareHtml(html, isLatin1);
    std::optional<std::string> text;
    if (!HasOversizedTag(prepared)) text = ParseHtml(prepared, isLatin1);
    if (!text) text = FlatHtmlToText(prepared);
    return isLatin1 ? Utf8ToLatin1(*text) : *text;
}
