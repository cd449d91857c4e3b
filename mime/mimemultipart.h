// mimemultipart.h - an entity made of parts (RFC 2046 section 5.1).
//
// The stored body of a multipart is the text before its first part.  Text
// behind the last one is kept and written back.  A multipart that cannot be
// split keeps its whole text as body and is written back unchanged.
//
// Errors   CLhvException; an index out of range too.

#ifndef LISTHAVEN_MIME_MIMEMULTIPART_H
#define LISTHAVEN_MIME_MIMEMULTIPART_H

#include <vector>

#include "mime/mimeentity.h"

class CMimeMultipart : public CMimeEntity {
public:
    using Child = CSharedPointer<CMimeEntity>;
    enum class ForParsing { Yes };  // without header

    static constexpr int MaxDepth = 100;  // a multipart nested deeper is not split

    ~CMimeMultipart() override;

    bool Merge(const Child& other) override;  // takes over the parts of a multipart
    void Normalize() override;
    std::string GetText() const override;
    bool Parse(const CMimeSource& text) override;

    virtual bool AddPart(const Child& child) = 0;  // false: refused
    virtual void SetText(std::string_view text, bool isHtml) = 0;
    virtual Child CreatePart(const CMimeSource& text);

    std::string GetBoundary() const;                              // "" when there is none
    static std::string BoundaryOf(std::string_view contentType);  // an unfolded value
    void SetBoundary(const char* boundary);
    static std::string NewBoundary();

    std::size_t GetPartCount() const noexcept { return m_parts.size(); }
    const Child& GetPart(std::size_t index) const;
    void RemovePart(std::size_t index);
    void RemoveAllParts();
    void InsertPart(std::size_t index, const Child& child);                   // where it is told; never refuses
    int FindPart(std::string_view mainType, std::string_view subType) const;  // -1 when there is none

    std::string_view GetEpilogue() const noexcept { return m_epilogue.View(); }
    bool IsUnsplit() const noexcept { return m_isUnsplit; }
    bool IsSealedType() const;  // by its content type: see CMimeSource::Sealed

protected:
    CMimeMultipart(MimeClass kind, const char* contentType);
    CMimeMultipart(MimeClass kind, ForParsing) : CMimeEntity(kind) {}
    CMimeMultipart(const CMimeMultipart& other);

    bool MayMerge(const CMimeMultipart& other) const;

    std::vector<Child> m_parts;
    bool m_isParsing = false;

private:
    friend class CMimeEntity;

    void AppendMultipartTo(std::string& out) const;
    std::size_t GetMultipartSize() const;
    void KeepUnsplit(const CMimeSource& text, std::string_view body);
    void AppendEpilogue(std::string_view text);

    CMimeBody m_epilogue;
    bool m_isUnsplit = false;
};

#endif  // LISTHAVEN_MIME_MIMEMULTIPART_H
