#include "mime/mimemultipartalternative.h"

#include <algorithm>

#include "mime/htmlconversion.h"
#include "mime/mimetext.h"
#include "utility/text.h"

namespace {

CSharedPointer<CMimeText> MakeText(std::string_view contentType, std::string_view text) {
    auto part = MakeShared<CMimeText>();
    part->SetContentType(contentType);
    part->SetBody(text);
    return part;
}

bool IsAscii(std::string_view text) noexcept {
    return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) > 127; });
}

// The plain text keeps the bytes of the HTML, and so its charset; of entities
// alone it is UTF-8.
std::string PlainTypeFor(const CMimeEntity& htmlPart, std::string_view html, std::string_view plain) {
    if (IsAscii(plain)) return "text/plain";
    std::string charset = CMimeHeader::GetParameter(htmlPart.GetField("Content-Type"), "charset");
    if (IsAscii(html) || (charset.empty() && IsValidUtf8(plain))) charset = "utf-8";
    charset = OneLine(charset);
    return charset.empty() ? "text/plain" : "text/plain; charset=\"" + charset + "\"";
}

}  // namespace

CMimeMultipartAlternative::~CMimeMultipartAlternative() = default;

bool CMimeMultipartAlternative::AddPart(const Child& child) {
    if (IsUnsplit() && !GetStoredBody().empty()) return false;
    if (child->IsTextBody()) {
        const auto* text = dynamic_cast<const CMimeText*>(child.get());
        std::size_t& joinedInto = m_joinedInto[child->GetSubType() == "html" ? 1 : 0];
        if (text && text->CanJoin()) {
            if (joinedInto < m_parts.size() && m_parts[joinedInto] && m_parts[joinedInto]->Merge(child)) return true;
            for (std::size_t i = 0; i < m_parts.size(); ++i) {
                if (i == joinedInto || !m_parts[i] || !m_parts[i]->Merge(child)) continue;
                joinedInto = i;
                return true;
            }
            joinedInto = m_parts.size();
        }
    } else if (child->GetMainType() == "multipart" && child->GetSubType() != "related") {
        return false;
    }
    InsertPart(m_parts.size(), child);
    return true;
}

void CMimeMultipartAlternative::Normalize() {
    CMimeMultipart::Normalize();
    const auto is = [](const Child& part, std::string_view subType) {
        return part->IsTextBody() && part->GetSubType() == subType;
    };
    const auto find = [this, &is](std::string_view subType) {
        return std::find_if(m_parts.begin(), m_parts.end(),
                            [&is, subType](const Child& part) { return is(part, subType); });
    };
    auto html = find("html");
    if (html == m_parts.end()) return;
    const Child htmlPart = *html;
    if (find("plain") == m_parts.end()) {
        const std::string text = htmlPart->GetBody();
        const std::string plain(TrimRight(HtmlToText(text)));  // as it is read back
        AddPart(MakeText(PlainTypeFor(*htmlPart, text, plain), plain));
        html = find("html");
    }
    // Of several that could not be joined, the order stays.
    if (!is(m_parts.back(), "html")) std::rotate(html, html + 1, m_parts.end());
}

void CMimeMultipartAlternative::SetText(std::string_view text, bool isHtml) {
    const std::string converted = isHtml ? HtmlToText(text) : TextToHtml(text);
    RemoveAllParts();
    InsertPart(0, MakeText("text/plain", isHtml ? std::string_view(converted) : text));
    InsertPart(1, MakeText("text/html", isHtml ? text : std::string_view(converted)));
}
