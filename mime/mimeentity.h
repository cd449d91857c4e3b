// mimeentity.h - one entity of a message (RFC 2045): header and body.
//
// Texts in memory have LF line ends.  The stored body is encoded as the header
// says; GetBody() of a text decodes it.  Entities are held by CSharedPointer.
//
// Errors   CLhvException.
// Threads  One thread at a time, but clones are independent of the original.

#ifndef LISTHAVEN_MIME_MIMEENTITY_H
#define LISTHAVEN_MIME_MIMEENTITY_H

#include <string>
#include <string_view>

#include "mime/mimeheader.h"
#include "mime/mimesource.h"
#include "utility/sharedpointer.h"

// What was read of the front of a text.
struct CMimeHead {
    CMimeHeader header;
    std::string_view body;    // of the source
    bool hasBody = false;     // false: the text ends with the header
    bool isTooLarge = false;  // the header is over the limit; body is the whole text
};

enum class MimeClass { Entity, Text, Attachment, Multipart, MultipartAlternative, MultipartMixed, MultipartRelated };

class CMimeEntity {
public:
    static constexpr std::size_t MaxHeaderSize = 1024 * 1024;  // what is larger is kept as body

    CMimeEntity() : CMimeEntity(MimeClass::Entity) {}
    CMimeEntity& operator=(const CMimeEntity&) = delete;
    virtual ~CMimeEntity() = default;

    // Takes the other entity into this one; false when the two do not go together.
    virtual bool Merge(const CSharedPointer<CMimeEntity>& other);
    virtual void Normalize() {}
    virtual std::string GetText() const;          // as in a file, but with LF
    virtual bool Parse(const CMimeSource& text);  // replaces the header; false when a multipart cannot be split
    virtual std::string GetBody() const;          // decoded
    virtual void SetBody(std::string_view text);
    virtual void AppendBody(std::string_view text);
    virtual void PrependBody(std::string_view text);

    CMimeHeader& GetHeader() noexcept { return m_header; }
    const CMimeHeader& GetHeader() const noexcept { return m_header; }
    std::string GetField(std::string_view name) const { return m_header.GetField(name); }
    bool HasField(std::string_view name) const noexcept { return m_header.HasField(name); }
    void SetField(std::string_view name, std::string_view value) { m_header.SetField(name, value); }
    void AddField(std::string_view name, std::string_view value) { m_header.AddField(name, value); }
    void RemoveField(std::string_view name) { m_header.RemoveField(name); }
    void SetContentType(std::string_view value) { m_header.SetField("Content-Type", value); }

    std::string GetMainType() const;  // lower case; "text" when there is none
    std::string GetSubType() const;   // lower case; "plain" when there is none
    bool IsAttachment() const;        // by disposition, or an image, application or media type
    bool IsTextBody() const;          // text/plain or text/html that is no attachment

    std::string_view GetStoredBody() const noexcept { return m_body.View(); }

    MimeClass GetKind() const noexcept { return m_kind; }
    const char* GetClass() const noexcept;  // "CMimeText"

    // The whole tree; bodies that were read or attached are shared, not copied.
    CSharedPointer<CMimeEntity> Clone() const;

    // Appends what GetText() gives, without a copy for each level.
    void AppendTextTo(std::string& out) const;
    std::size_t GetTextSize() const;

protected:
    explicit CMimeEntity(MimeClass kind) noexcept : m_kind(kind) {}
    CMimeEntity(const CMimeEntity&) = default;

    // Takes the header from the source; body is what follows it.  False when
    // nothing does.
    bool TakeHead(const CMimeSource& text, std::string_view& body);
    // Keeps a body with the white space at its end cut off.
    void KeepBody(const CMimeSource& text, std::string_view body);
    void AppendHeadTo(std::string& out) const;

    CMimeHeader m_header;
    CMimeBody m_body;

private:
    MimeClass m_kind;
    bool m_isRaw = false;  // the body holds the header too
};

// Reads the front of a text.
CMimeHead ReadMimeHead(std::string_view text);

#endif  // LISTHAVEN_MIME_MIMEENTITY_H
