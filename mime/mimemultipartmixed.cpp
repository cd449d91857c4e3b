#include "mime/mimemultipartmixed.h"

#include "mime/mimemultipartalternative.h"
#include "mime/mimemultipartrelated.h"
#include "mime/mimetext.h"
#include "utility/lhvexception.h"

namespace {

constexpr std::string_view SourceName = "Shared/Mime/mimemultipartmixed";

bool IsAlternative(const CSharedPointer<CMimeEntity>& part) {
    return part && part->GetKind() == MimeClass::MultipartAlternative;
}

}  // namespace

CMimeMultipartMixed::~CMimeMultipartMixed() = default;

void CMimeMultipartMixed::Normalize() {
    CMimeMultipart::Normalize();
}

bool CMimeMultipartMixed::AddPart(const Child& child) {
    if (!child->IsTextBody()) {
        InsertPart(m_parts.size(), child);
        return true;
    }
    // While parsing, parts are only added, so that those looked at need not be again.
    if (!m_isParsing) m_firstText = 0;
    bool hasText = false;
    std::size_t leading = m_firstText;
    for (std::size_t i = m_firstText; i < m_parts.size(); ++i) {
        const bool isText = m_parts[i] && m_parts[i]->IsTextBody();
        if (IsAlternative(m_parts[i])) {
            auto alternative = m_parts[i].As<CMimeMultipartAlternative>();
            if (alternative->AddPart(child)) {
                m_firstText = leading;
                return true;
            }
        }
        hasText = hasText || isText;
        if (!hasText && leading == i) leading = i + 1;
    }
    m_firstText = leading;
    if (hasText) return GatherTexts(child);
    InsertPart(m_parts.size(), child);
    return true;
}

bool CMimeMultipartMixed::GatherTexts(const Child& child) {
    auto alternative = MakeShared<CMimeMultipartAlternative>();
    for (std::size_t i = m_parts.size(); i-- > m_firstText;) {
        if (m_parts[i] && m_parts[i]->IsTextBody() && alternative->AddPart(m_parts[i])) RemovePart(i);
    }
    const bool isTaken = alternative->AddPart(child);
    return AddPart(alternative) && isTaken;
}

// Attached texts do not count.
void CMimeMultipartMixed::RemoveFirst(std::string_view mainType, std::string_view subType) {
    for (std::size_t i = 0; i < m_parts.size(); ++i) {
        if (!m_parts[i] || m_parts[i]->IsAttachment() || m_parts[i]->GetMainType() != mainType ||
            m_parts[i]->GetSubType() != subType)
            continue;
        RemovePart(i);
        return;
    }
}

void CMimeMultipartMixed::SetText(std::string_view text, bool isHtml) {
    if (const int related = FindPart("multipart", "related"); related >= 0) {
        auto part = GetPart(static_cast<std::size_t>(related)).As<CMimeMultipartRelated>();
        if (!part) ThrowInternalError(SourceName, 213);
        part->SetText(text, isHtml);
        return;
    }
    if (!isHtml) {
        RemoveFirst("multipart", "alternative");
        RemoveFirst("text", "plain");
        auto part = MakeShared<CMimeText>();
        part->SetContentType("text/plain");
        part->SetBody(text);
        AddPart(part);
        return;
    }
    if (const int alternative = FindPart("multipart", "alternative"); alternative >= 0) {
        auto part = GetPart(static_cast<std::size_t>(alternative)).As<CMimeMultipartAlternative>();
        if (!part) ThrowInternalError(SourceName, 233);
        part->SetText(text, true);
        return;
    }
    RemoveFirst("text", "plain");
    RemoveFirst("text", "html");
    auto part = MakeShared<CMimeMultipartAlternative>();
    part->SetText(text, true);
    InsertPart(0, part);  // the text comes before what is attached to it
}
