#include "engine/incoming/jointexts.h"

#include "engine/incoming/messageparts.h"
#include "engine/utf8text.h"
#include "mime/htmlconversion.h"
#include "mime/mimemultipart.h"
#include "mime/mimetext.h"
#include "mime/mimewalk.h"
#include "utility/text.h"

namespace {

std::size_t FindLastNoCase(std::string_view text, std::string_view what) {
    std::size_t last = std::string_view::npos;
    for (std::size_t at = FindNoCase(text, what); at != std::string_view::npos; at = FindNoCase(text, what, at + 1))
        last = at;
    return last;
}

// Behind the tag that begins with name ("<body"), npos when there is none.
std::size_t BehindTag(std::string_view html, std::string_view name) {
    for (std::size_t at = FindNoCase(html, name); at != std::string_view::npos; at = FindNoCase(html, name, at + 1)) {
        const std::size_t next = at + name.size();
        if (next >= html.size() || std::string_view(" \t\r\n>/").find(html[next]) == std::string_view::npos) continue;
        const std::size_t end = html.find('>', next);
        return end == std::string_view::npos ? end : end + 1;
    }
    return std::string_view::npos;
}

// What a document has inside its body element.
std::string_view InsideBody(std::string_view html) {
    const std::size_t start = BehindTag(html, "<body");
    if (start != std::string_view::npos) html.remove_prefix(start);
    return Trim(html.substr(0, FindLastNoCase(html, start != std::string_view::npos ? "</body" : "</html")));
}

std::size_t FooterPlace(std::string_view html) {
    std::size_t at = FindLastNoCase(html, "</body");
    if (at == std::string_view::npos) at = FindLastNoCase(html, "</html");
    return at == std::string_view::npos ? html.size() : at;
}

std::size_t HeaderPlace(std::string_view html) {
    for (const std::string_view tag : {"<body", "</head", "<html"}) {
        const std::size_t at = BehindTag(html, tag);
        if (at != std::string_view::npos) return at;
    }
    return 0;
}

std::string HtmlOf(std::string_view plain) {
    std::string html = EncodeEntities(plain);
    ReplaceAll(html, "\n", "<br>\n");
    return html;
}

// As a text in which a blank at the end of a line would join it to the next one
// (RFC 3676): no such blank, and one in front where readers look for marks.
std::string Flowed(std::string_view text) {
    std::string result;
    for (const std::string_view line : Split(text, '\n')) {
        if (!result.empty()) result += '\n';
        const std::string_view trimmed = line == "-- " ? line : TrimRight(line);
        if (trimmed.starts_with(" ") || trimmed.starts_with(">") || trimmed.starts_with("From ")) result += ' ';
        result += trimmed;
    }
    return result;
}

struct Separators {
    std::string_view plain;
    std::string_view html;
};

Separators SeparatorsOf(TextSeparator separator) {
    if (separator == TextSeparator::None) return {"\n\n", "\n<br>\n"};
    return {CMimeText::GetSeparator(false), CMimeText::GetSeparator(true)};
}

std::string JoinPlain(std::string_view header, std::string_view text, std::string_view footer,
                      std::string_view separator) {
    std::string result(header);
    if (!header.empty()) result += separator;
    result += footer.empty() ? text : TrimRight(text);
    if (!footer.empty()) result.append(separator).append(footer);
    return result;
}

bool JoinOne(CMimeText& entity, const JoinedText& header, const JoinedText& footer, const Separators& separators) {
    if (!entity.CanJoin() || !BringToUtf8(entity)) return false;
    std::string text = CrLfToLf(entity.GetBody());
    if (entity.GetSubType() == "html") {
        if (!footer.IsEmpty()) text.insert(FooterPlace(text), std::string(separators.html) + footer.html + "\n");
        if (!header.IsEmpty()) text.insert(HeaderPlace(text), header.html + std::string(separators.html));
    } else if (EqualNoCase(CMimeHeader::GetParameter(entity.GetField("Content-Type"), "format"), "flowed")) {
        text = JoinPlain(Flowed(header.plain), text, Flowed(footer.plain), separators.plain);
    } else {
        text = JoinPlain(header.plain, text, footer.plain, separators.plain);
    }
    entity.SetBody(text);
    return true;
}

void AddOwnPart(CMimeMessage& message, const JoinedText& header, const JoinedText& footer,
                const Separators& separators) {
    auto part = MakeShared<CMimeText>();
    part->SetContentType("text/plain; charset=\"utf-8\"");
    const bool isOne = header.plain.empty() || footer.plain.empty();
    part->SetBody(isOne ? header.plain + footer.plain : header.plain + std::string(separators.plain) + footer.plain);
    auto root = message.GetRoot().As<CMimeMultipart>();
    if (!root || root->IsUnsplit() || root->GetKind() != MimeClass::MultipartMixed) {
        WrapInMultipart(message);
        root = message.GetRoot().As<CMimeMultipart>();
    }
    root->InsertPart(header.IsEmpty() ? root->GetPartCount() : 0, part);
}

}  // namespace

JoinedText NoteText(std::string_view plain) {
    JoinedText text;
    text.plain = TrimRight(plain);
    text.html = HtmlOf(text.plain);
    return text;
}

JoinedText ReadJoinedText(const CMimeMessage& message) {
    JoinedText text;
    if (!message.GetRoot()) return text;
    VisitEntities(*message.GetRoot(), [&text](const CMimeEntity& entity, int) {
        if (entity.GetKind() != MimeClass::Text || !entity.IsTextBody()) return true;
        std::string body;
        BodyInUtf8(static_cast<const CMimeText&>(entity), body);
        body = CrLfToLf(body);
        const bool isHtml = entity.GetSubType() == "html";
        std::string& target = isHtml ? text.html : text.plain;
        if (target.empty()) target = isHtml ? InsideBody(body) : TrimRight(body);
        return true;
    });
    if (text.html.empty()) text.html = HtmlOf(text.plain);
    if (text.plain.empty()) text.plain = TrimRight(HtmlToText(text.html));
    return text;
}

void JoinTexts(CMimeMessage& message, const JoinedText& header, const JoinedText& footer, TextSeparator separator) {
    if (header.IsEmpty() && footer.IsEmpty()) return;
    const Separators separators = SeparatorsOf(separator);
    bool isJoined = false;
    for (CMimeText* entity : CollectTextEntities(*message.GetRoot())) {
        if (entity->IsTextBody() && JoinOne(*entity, header, footer, separators)) isJoined = true;
    }
    if (!isJoined) AddOwnPart(message, header, footer, separators);
}
