// mimemultipartalternative.h - one content in several forms, the richest last.

#ifndef LISTHAVEN_MIME_MIMEMULTIPARTALTERNATIVE_H
#define LISTHAVEN_MIME_MIMEMULTIPARTALTERNATIVE_H

#include <array>

#include "mime/mimemultipart.h"

class CMimeMultipartAlternative : public CMimeMultipart {
public:
    CMimeMultipartAlternative() : CMimeMultipart(MimeClass::MultipartAlternative, "multipart/alternative") {}
    explicit CMimeMultipartAlternative(ForParsing tag) : CMimeMultipart(MimeClass::MultipartAlternative, tag) {}
    CMimeMultipartAlternative(const CMimeMultipartAlternative&) = default;
    ~CMimeMultipartAlternative() override;

    void Normalize() override;  // makes a missing plain text from the HTML, which goes last

    // Texts of one type are joined; of multiparts only "related" is taken.
    bool AddPart(const Child& child) override;
    void SetText(std::string_view text, bool isHtml) override;  // replaces all parts by a plain and an HTML one

private:
    std::array<std::size_t, 2> m_joinedInto{};  // where the last plain and HTML text went
};

#endif  // LISTHAVEN_MIME_MIMEMULTIPARTALTERNATIVE_H
