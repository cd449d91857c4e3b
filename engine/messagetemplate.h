// messagetemplate.h - a message kept in a file, and the control headers in it.
//
// Control headers ride inside stored messages and say what to change when a
// copy goes out (finalize.h).  "" means not set.
//
// Errors   CLhvException.  A read-only template (a built-in default) can be
//          neither saved nor deleted.
// Threads  An object belongs to one thread at a time.  Loading and saving hold
//          the named mutex of the file.
// Crash    Save() replaces the file whole.

#ifndef LISTHAVEN_ENGINE_MESSAGETEMPLATE_H
#define LISTHAVEN_ENGINE_MESSAGETEMPLATE_H

#include <memory>
#include <string>
#include <string_view>

#include "mime/mimemessage.h"

namespace Platform {
class CNamedMutex;
}

namespace ControlHeader {
inline constexpr const char* ToOverride = "X-Lhv-To-Override";
inline constexpr const char* FromOverride = "X-Lhv-From-Override";
inline constexpr const char* ReplyToOverride = "X-Lhv-Reply-To-Override";
inline constexpr const char* SubjectOverride = "X-Lhv-Subject-Override";
inline constexpr const char* SenderOverride = "X-Lhv-Sender-Override";
inline constexpr const char* RecipientOverride = "X-Lhv-Recipient-Override";
inline constexpr const char* ReturnPathOverride = "X-Lhv-Return-Path-Override";
inline constexpr const char* ShouldSign = "X-Lhv-Should-Sign";  // "YES" signs, nothing else does
inline constexpr const char* DirectMessageListGuid = "X-Lhv-Direct-Msg-List-Guid";
inline constexpr const char* Received = "X-Lhv-Received";
inline constexpr const char* Inbox = "X-Lhv-Inbox";
inline constexpr const char* UpdateAttachments = "X-Zq-Update-Attachments";
inline constexpr const char* Broadcast = "X-Lhv-Broadcast";  // identifier of the broadcast a copy belongs to
}  // namespace ControlHeader

enum class TemplateAccess { ReadWrite, ReadOnly };

class CMessageTemplate : public CMimeMessage {
public:
    CMessageTemplate(std::string path, TemplateAccess access);  // loads it
    CMessageTemplate(const CMessageTemplate&) = delete;
    CMessageTemplate& operator=(const CMessageTemplate&) = delete;
    ~CMessageTemplate();

    bool IsReadOnly() const noexcept { return m_access == TemplateAccess::ReadOnly; }
    const std::string& GetTemplatePath() const noexcept { return m_templatePath; }

    void Save();    // to its path
    void Delete();  // a file that cannot be removed stays, without a word

    std::string GetControl(const char* header) const;
    void SetControl(const char* header, std::string_view value);  // "" takes it out

private:
    std::string m_templatePath;
    TemplateAccess m_access;
    std::unique_ptr<Platform::CNamedMutex> m_mutex;
};

#endif  // LISTHAVEN_ENGINE_MESSAGETEMPLATE_H
