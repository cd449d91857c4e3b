// mimetext.h - a text of a message.
//
// SetBody() stores a text with a line of 72 or more characters as
// quoted-printable, any other one as it is under the name 7bit, bytes above 127
// included.

#ifndef LISTHAVEN_MIME_MIMETEXT_H
#define LISTHAVEN_MIME_MIMETEXT_H

#include <memory>

#include "mime/mimeentity.h"

class CMimeText : public CMimeEntity {
public:
    enum class ForParsing { Yes };

    CMimeText();                     // text/plain, 7bit
    explicit CMimeText(ForParsing);  // without header
    CMimeText(const CMimeText& other);
    CMimeText& operator=(const CMimeText&) = delete;
    ~CMimeText() override;

    // Joins two plain or two HTML texts.  Refuses texts with zero bytes, which
    // would be cut off.  Joining n texts takes time linear in their size.
    bool Merge(const CSharedPointer<CMimeEntity>& other) override;

    std::string GetBody() const override;  // base64: up to the first zero byte
    void SetBody(std::string_view text) override;
    void AppendBody(std::string_view text) override;   // quoted-printable, whatever the encoding says
    void PrependBody(std::string_view text) override;  // likewise

    bool CanJoin() const;  // holds no zero byte

    // What stands between two texts that are joined.
    static std::string_view GetSeparator(bool isHtml) noexcept;

private:
    struct CJoin;

    void StartJoin(std::string text);
    void ContinueJoin(std::string_view piece);

    std::unique_ptr<CJoin> m_join;  // where the encoding of a joined text goes on
};

#endif  // LISTHAVEN_MIME_MIMETEXT_H
