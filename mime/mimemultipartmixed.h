// mimemultipartmixed.h - a text with attachments; also every multipart of a
// type that has no class of its own.

#ifndef LISTHAVEN_MIME_MIMEMULTIPARTMIXED_H
#define LISTHAVEN_MIME_MIMEMULTIPARTMIXED_H

#include "mime/mimemultipart.h"

class CMimeMultipartMixed : public CMimeMultipart {
public:
    CMimeMultipartMixed() : CMimeMultipart(MimeClass::MultipartMixed, "multipart/mixed") {}
    explicit CMimeMultipartMixed(ForParsing tag) : CMimeMultipart(MimeClass::MultipartMixed, tag) {}
    CMimeMultipartMixed(const CMimeMultipartMixed&) = default;
    ~CMimeMultipartMixed() override;

    void Normalize() override;

    // Gathers the texts in one "alternative" part once there is more than one.
    bool AddPart(const Child& child) override;
    void SetText(std::string_view text, bool isHtml) override;  // attachments stay

protected:
    CMimeMultipartMixed(MimeClass kind, const char* contentType) : CMimeMultipart(kind, contentType) {}
    CMimeMultipartMixed(MimeClass kind, ForParsing tag) : CMimeMultipart(kind, tag) {}

private:
    bool GatherTexts(const Child& child);
    void RemoveFirst(std::string_view mainType, std::string_view subType);

    std::size_t m_firstText = 0;  // while parsing: no text and no alternative stands before it
};

#endif  // LISTHAVEN_MIME_MIMEMULTIPARTMIXED_H
