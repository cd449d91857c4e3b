// mimeattachment.h - a file in a message.
//
// Text operations leave it alone.
//
// Errors   CLhvException with the system's code when a file cannot be read or
//          written.

#ifndef LISTHAVEN_MIME_MIMEATTACHMENT_H
#define LISTHAVEN_MIME_MIMEATTACHMENT_H

#include "mime/mimeentity.h"

class CMimeAttachment : public CMimeEntity {
public:
    CMimeAttachment() : CMimeEntity(MimeClass::Attachment) {}
    CMimeAttachment(const CMimeAttachment&) = default;
    ~CMimeAttachment() override;

    std::string GetBody() const override;  // ""
    void SetBody(std::string_view) override {}
    void AppendBody(std::string_view) override {}
    void PrependBody(std::string_view) override {}

    void AttachFile(std::string_view path);  // unchanged after a failure
    void SetContentID(std::string_view id);  // without angle brackets
    std::string GetContentID() const;        // without angle brackets

    // As the message says it: not fit for a path, see SafeFileName().
    std::string GetFileName() const;

    std::string GetContent() const;  // decoded bytes
    void SaveToFile(std::string_view path) const;
};

#endif  // LISTHAVEN_MIME_MIMEATTACHMENT_H
