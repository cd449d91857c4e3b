#include "mime/messagecomposer.h"

#include "mime/mimeattachment.h"
#include "mime/mimemultipartalternative.h"
#include "mime/mimemultipartmixed.h"
#include "mime/mimemultipartrelated.h"
#include "mime/mimewalk.h"
#include "utility/text.h"

namespace {

constexpr std::string_view ContentPrefix = "Content-";

CSharedPointer<CMimeMultipart> NewMultipart(MultipartKind kind) {
    if (kind == MultipartKind::Related) return MakeShared<CMimeMultipartRelated>();
    return MakeShared<CMimeMultipartMixed>();
}

// Moves the fields that describe the whole message, not its content.
void MoveMessageFields(CMimeHeader& from, CMimeHeader& to) {
    to.CopyMissingFields(from);
    for (std::size_t i = from.GetFieldCount(); i-- > 0;) {
        if (!StartsWithNoCase(from.GetStoredField(i).name, ContentPrefix)) from.RemoveFieldAt(i);
    }
}

// A content that is taken by another entity than the one it was made for.
void ReplaceRoot(CMimeMessage& message, const CSharedPointer<CMimeEntity>& root) {
    if (message.GetRoot()) root->GetHeader().CopyMissingFields(message.GetRoot()->GetHeader());
    message.SetRoot(root);
}

std::size_t FindBodyEnd(std::string_view html) {
    std::size_t end = html.size();
    for (std::size_t at = FindNoCase(html, "</body>"); at != std::string_view::npos;) {
        end = at;
        at = FindNoCase(html, "</body>", at + 1);
    }
    return end;
}

}  // namespace

CMimeText* FindTextPart(const CMimeMessage& message, TextKind kind) {
    if (!message.GetRoot()) return nullptr;
    const std::string_view subType = kind == TextKind::Html ? "html" : "plain";
    for (CMimeText* text : CollectTextEntities(*message.GetRoot())) {
        if (text->IsTextBody() && text->GetSubType() == subType) return text;
    }
    return nullptr;
}

std::string GetMessageText(const CMimeMessage& message, TextKind kind) {
    const CMimeText* text = FindTextPart(message, kind);
    return text ? text->GetBody() : std::string();
}

void SetMessageText(CMimeMessage& message, std::string_view text, TextKind kind) {
    const bool isHtml = kind == TextKind::Html;
    if (const auto multipart = message.GetRoot().As<CMimeMultipart>()) {
        multipart->SetText(text, isHtml);
    } else if (message.GetRoot() && !message.GetRoot()->IsTextBody()) {
        MakeMultipart(message, MultipartKind::Mixed).SetText(text, isHtml);
    } else if (isHtml) {
        auto alternative = MakeShared<CMimeMultipartAlternative>();
        alternative->SetText(text, true);
        ReplaceRoot(message, alternative);
    } else {
        auto plain = MakeShared<CMimeText>();
        plain->SetBody(text);
        ReplaceRoot(message, plain);
    }
}

bool InsertIntoHtml(CMimeMessage& message, std::string_view html) {
    CMimeText* text = FindTextPart(message, TextKind::Html);
    if (!text) return false;
    std::string body = text->GetBody();
    body.insert(FindBodyEnd(body), std::string(html) + "<BR>\n");
    text->SetBody(body);
    return true;
}

CMimeMultipart& MakeMultipart(CMimeMessage& message, MultipartKind kind) {
    const CSharedPointer<CMimeEntity> former = message.GetRoot();
    if (const auto multipart = former.As<CMimeMultipart>()) {
        const bool isRelated = multipart->GetKind() == MimeClass::MultipartRelated;
        const bool isMixed = multipart->GetKind() == MimeClass::MultipartMixed;
        if (kind == MultipartKind::Related ? isRelated : isMixed) return *multipart;
    }
    const CSharedPointer<CMimeMultipart> root = NewMultipart(kind);
    if (former) {
        MoveMessageFields(former->GetHeader(), root->GetHeader());
        root->InsertPart(0, former);
    }
    message.SetRoot(root);
    return *root;
}

void AttachFileToMessage(CMimeMessage& message, std::string_view path) {
    auto attachment = MakeShared<CMimeAttachment>();
    attachment->AttachFile(path);
    MakeMultipart(message, MultipartKind::Mixed).AddPart(attachment);
    message.RefreshAttachments();
}

namespace {

// The first "related" below the root; its images belong to the HTML text in it.
CMimeMultipart* FindRelated(CMimeMessage& message) {
    CMimeMultipart* found = nullptr;
    if (!message.GetRoot()) return nullptr;
    VisitEntities(*message.GetRoot(), [&found](CMimeEntity& entity, int) {
        if (entity.GetKind() == MimeClass::MultipartRelated) found = static_cast<CMimeMultipart*>(&entity);
        return found == nullptr;
    });
    return found;
}

// Puts the text of a mixed root into a "related" part of its own.
CMimeMultipart* WrapTextOfMixed(CMimeMessage& message) {
    const auto mixed = message.GetRoot().As<CMimeMultipartMixed>();
    if (!mixed) return nullptr;
    for (std::size_t i = 0; i < mixed->GetPartCount(); ++i) {
        const CMimeMultipart::Child part = mixed->GetPart(i);
        if (!part->IsTextBody() && part->GetKind() != MimeClass::MultipartAlternative) continue;
        auto related = MakeShared<CMimeMultipartRelated>();
        related->InsertPart(0, part);
        mixed->RemovePart(i);
        mixed->InsertPart(i, related);
        return related.get();
    }
    return nullptr;
}

}  // namespace

void EmbedImage(CMimeMessage& message, std::string_view path, std::string_view id) {
    auto image = MakeShared<CMimeAttachment>();
    image->AttachFile(path);
    image->SetContentID(id);
    CMimeMultipart* related = FindRelated(message);
    if (!related) related = WrapTextOfMixed(message);
    if (!related) related = &MakeMultipart(message, MultipartKind::Related);
    related->AddPart(image);
    message.RefreshAttachments();
}
