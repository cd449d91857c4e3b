// mimemultipartrelated.h - an HTML text with the images it shows (RFC 2387).

#ifndef LISTHAVEN_MIME_MIMEMULTIPARTRELATED_H
#define LISTHAVEN_MIME_MIMEMULTIPARTRELATED_H

#include "mime/mimemultipartmixed.h"

class CMimeMultipartRelated : public CMimeMultipartMixed {
public:
    CMimeMultipartRelated() : CMimeMultipartMixed(MimeClass::MultipartRelated, "multipart/related") {}
    explicit CMimeMultipartRelated(ForParsing tag) : CMimeMultipartMixed(MimeClass::MultipartRelated, tag) {}
    CMimeMultipartRelated(const CMimeMultipartRelated&) = default;
    ~CMimeMultipartRelated() override;

    void Normalize() override;
    void SetText(std::string_view text, bool isHtml) override;  // drops images that nothing refers to any more
    Child CreatePart(const CMimeSource& text) override;
};

// The text links to "cid:" and the identifier, which may be percent-encoded there.
bool RefersToContentID(std::string_view html, std::string_view id);

#endif  // LISTHAVEN_MIME_MIMEMULTIPARTRELATED_H
