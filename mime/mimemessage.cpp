#include "mime/mimemessage.h"

#include "mime/createentity.h"
#include "mime/mimemultipart.h"
#include "mime/mimewalk.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::string_view SourceName = "Shared/Mime/mimemessage";

// A multipart with one part is that part.  What stands behind the part would
// be lost, so that such a multipart stays.
void PromoteOnlyPart(CSharedPointer<CMimeEntity>& root) {
    const auto multipart = root.As<CMimeMultipart>();
    if (!multipart || multipart->GetPartCount() != 1 || !multipart->GetEpilogue().empty()) return;
    CSharedPointer<CMimeEntity> part = multipart->GetPart(0);
    part->GetHeader().CopyMissingFields(root->GetHeader());
    root = part;
}

}  // namespace

bool CMimeMessage::Load(std::string_view path, CMimeSource::Sealed sealed) {
    m_path = path;
    std::string text;
    return ReadWholeFile(path, text) && LoadText(CMimeSource(std::move(text)).With(sealed));
}

bool CMimeMessage::LoadText(const CMimeSource& text) {
    if (text.View().empty()) {
        SetLastErrorText("The message is empty.");
        return false;
    }
    m_attachments.clear();
    m_root = CreateEntity(text);
    if (m_root->GetKind() >= MimeClass::Multipart) m_root->Normalize();
    PromoteOnlyPart(m_root);
    RefreshAttachments();
    return true;
}

void CMimeMessage::LoadOrThrow(std::string_view path) {
    if (!Load(path)) throw CLhvException("Error loading the message");
}

bool CMimeMessage::Save(std::string_view path) {
    if (!m_root) {
        SetLastErrorText("There is no message to save.");
        return false;
    }
    m_path = path;
    return WriteFileAtomically(path, GetDiskText());
}

void CMimeMessage::SaveOrThrow(std::string_view path) {
    if (!Save(path)) throw CLhvException("Error saving the message");
}

std::string CMimeMessage::GetText() const {
    return m_root ? m_root->GetText() : std::string();
}

std::string CMimeMessage::GetDiskText() const {
    std::string text = GetText();
    MakeCrLf(text);
    return text;
}

CSharedPointer<CMimeEntity> CMimeMessage::GetAttachment(int index) const {
    if (index < 0 || index >= GetAttachmentCount()) ThrowInternalError(SourceName, 873);
    return m_attachments[static_cast<std::size_t>(index)];
}

void CMimeMessage::RefreshAttachments() {
    m_attachments = CollectAttachments(m_root);
}

CSharedPointer<CMimeAttachment> CMimeMessage::FindImage(std::string_view id) const {
    for (const auto& entity : CollectAttachments(m_root)) {
        auto attachment = entity.As<CMimeAttachment>();
        if (!id.empty() && attachment->GetContentID() == id) return attachment;
    }
    return {};
}

std::string CMimeMessage::SaveImage(std::string_view id, std::string_view folder) const {
    const auto image = FindImage(id);
    if (!image) throw CLhvException("Image not found.");
    const std::string name = image->GetFileName();
    if (name.empty()) throw CLhvException("Unable to save the image.");
    std::string path = JoinPath(folder, SafeFileName(name));
    image->SaveToFile(path);
    return path;
}

CMimeMessage CMimeMessage::Clone() const {
    CMimeMessage copy;
    copy.m_path = m_path;
    if (m_root) copy.m_root = m_root->Clone();
    copy.RefreshAttachments();
    return copy;
}
