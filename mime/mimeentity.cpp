#include "mime/mimeentity.h"

#include <algorithm>
#include <utility>

#include "mime/mimeattachment.h"
#include "mime/mimemultipartalternative.h"
#include "mime/mimemultipartmixed.h"
#include "mime/mimemultipartrelated.h"
#include "mime/mimetext.h"
#include "utility/text.h"

namespace {

constexpr std::string_view WhiteSpace = " \t\r\n";

// Lower-cased; slash is npos when the type has none.
std::string ContentTypeOf(const CMimeEntity& entity, std::size_t& slash) {
    const std::string type = entity.GetField("Content-Type");
    slash = type.find('/');
    return type;
}

}  // namespace

CMimeHead ReadMimeHead(std::string_view text) {
    CMimeHead head;
    if (text.empty()) return head;
    const bool startsEmpty = text.front() == '\n';
    const std::size_t end = startsEmpty ? 0 : text.find("\n\n");
    const std::string_view headerText = text.substr(0, end);
    if (headerText.size() > CMimeEntity::MaxHeaderSize && TrimRight(headerText).size() > CMimeEntity::MaxHeaderSize) {
        head.isTooLarge = true;
        head.hasBody = true;
        head.body = text;
        return head;
    }
    head.header.Parse(headerText);
    const bool isAllBody =
        head.header.GetFieldCount() == 0 && headerText.find_first_not_of(WhiteSpace) != std::string_view::npos;
    if (isAllBody) {
        head.body = text;
    } else if (end != std::string_view::npos) {
        head.body = text.substr(std::min(end + (startsEmpty ? 1 : 2), text.size()));
    }
    head.hasBody = !head.body.empty();
    return head;
}

bool CMimeEntity::TakeHead(const CMimeSource& text, std::string_view& body) {
    CMimeHead own;
    CMimeHead* head = text.GetHead();
    if (!head) {
        own = ReadMimeHead(text.View());
        head = &own;
    }
    m_header = std::move(head->header);
    m_isRaw = head->isTooLarge;
    body = head->body;
    return head->hasBody;
}

void CMimeEntity::KeepBody(const CMimeSource& text, std::string_view body) {
    const std::string_view trimmed = TrimRight(body);
    if (trimmed.empty() || trimmed.back() != '=') {
        m_body.Share(text, trimmed);
    } else if (trimmed.size() < body.size() && body[trimmed.size()] == '\n') {
        m_body.Share(text, body.substr(0, trimmed.size() + 1));
    } else {
        m_body.Set(std::string(trimmed) + '\n');
    }
}

bool CMimeEntity::Parse(const CMimeSource& text) {
    std::string_view body;
    if (!TakeHead(text, body)) return true;
    if (m_isRaw && text.GetDepth() == 0)
        m_body.Share(text, body);
    else
        KeepBody(text, body);
    return true;
}

bool CMimeEntity::Merge(const CSharedPointer<CMimeEntity>&) {
    return false;
}

std::string CMimeEntity::GetBody() const {
    return std::string(m_body.View());
}

void CMimeEntity::SetBody(std::string_view text) {
    m_body.Set(CrLfToLf(text));
}

void CMimeEntity::AppendBody(std::string_view text) {
    m_body.Own().append(text);
}

void CMimeEntity::PrependBody(std::string_view text) {
    m_body.Own().insert(0, text);
}

void CMimeEntity::AppendHeadTo(std::string& out) const {
    // A header that was too large to be read stands in the body.
    if (m_isRaw && m_header.GetFieldCount() == 0) return;
    m_header.AppendTextTo(out);
    out += '\n';
}

void CMimeEntity::AppendTextTo(std::string& out) const {
    if (m_kind >= MimeClass::Multipart) {
        static_cast<const CMimeMultipart*>(this)->AppendMultipartTo(out);
        return;
    }
    AppendHeadTo(out);
    out.append(m_body.View());
}

std::size_t CMimeEntity::GetTextSize() const {
    if (m_kind >= MimeClass::Multipart) return static_cast<const CMimeMultipart*>(this)->GetMultipartSize();
    return m_header.GetTextSize() + 1 + m_body.View().size();
}

std::string CMimeEntity::GetText() const {
    constexpr std::size_t ShortLine = 32;  // there is room for MakeCrLf() unless most lines are shorter
    const std::size_t size = GetTextSize();
    std::string text;
    text.reserve(size + size / ShortLine);
    AppendTextTo(text);
    return text;
}

std::string CMimeEntity::GetMainType() const {
    std::size_t slash = 0;
    const std::string type = ContentTypeOf(*this, slash);
    return slash == std::string::npos ? "text" : LowerAscii(Trim(std::string_view(type).substr(0, slash)));
}

std::string CMimeEntity::GetSubType() const {
    std::size_t slash = 0;
    const std::string type = ContentTypeOf(*this, slash);
    if (slash == std::string::npos) return "plain";
    const std::size_t end = std::min(type.find(';', slash), type.size());
    return LowerAscii(Trim(std::string_view(type).substr(slash + 1, end - slash - 1)));
}

bool CMimeEntity::IsAttachment() const {
    if (HasField("Content-Disposition") && StartsWithNoCase(TrimLeft(GetField("Content-Disposition")), "attachment"))
        return true;
    const std::string mainType = GetMainType();
    return mainType == "image" || mainType == "application" || mainType == "media";
}

bool CMimeEntity::IsTextBody() const {
    if (GetMainType() != "text" || IsAttachment()) return false;
    const std::string subType = GetSubType();
    return subType == "plain" || subType == "html";
}

const char* CMimeEntity::GetClass() const noexcept {
    switch (m_kind) {
        case MimeClass::Text:
            return "CMimeText";
        case MimeClass::Attachment:
            return "CMimeAttachment";
        case MimeClass::Multipart:
            return "CMimeMultipart";
        case MimeClass::MultipartAlternative:
            return "CMimeMultipartAlternative";
        case MimeClass::MultipartMixed:
            return "CMimeMultipartMixed";
        case MimeClass::MultipartRelated:
            return "CMimeMultipartRelated";
        case MimeClass::Entity:
            break;
    }
    return "CMimeEntity";
}

CSharedPointer<CMimeEntity> CMimeEntity::Clone() const {
    switch (m_kind) {
        case MimeClass::Text:
            return MakeShared<CMimeText>(static_cast<const CMimeText&>(*this));
        case MimeClass::Attachment:
            return MakeShared<CMimeAttachment>(static_cast<const CMimeAttachment&>(*this));
        case MimeClass::MultipartAlternative:
            return MakeShared<CMimeMultipartAlternative>(static_cast<const CMimeMultipartAlternative&>(*this));
        case MimeClass::Multipart:
        case MimeClass::MultipartMixed:
            return MakeShared<CMimeMultipartMixed>(static_cast<const CMimeMultipartMixed&>(*this));
        case MimeClass::MultipartRelated:
            return MakeShared<CMimeMultipartRelated>(static_cast<const CMimeMultipartRelated&>(*this));
        case MimeClass::Entity:
            break;
    }
    return CSharedPointer<CMimeEntity>(new CMimeEntity(*this));
}
