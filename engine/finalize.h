// finalize.h - the last steps from a message to one outgoing copy in a queue.
//
// Order    The data fields of the message and the list are set before
//          (messagefields.h); "Email", "Name", "First-Name", "Last-Name", "Date"
//          and "Time" are set here for the time of the expansion.
// Errors   FinalizeResult::Failed, with the reason in the last-error text.
// Threads  One at a time in the process: the table of data fields is shared.

#ifndef LISTHAVEN_ENGINE_FINALIZE_H
#define LISTHAVEN_ENGINE_FINALIZE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

class CMimeMessage;

enum class FinalizeResult {
    Written,
    Blocked,  // some recipient is on the list of blocked addresses: logged, and nothing written
    Failed,
};

// Settings and stores that all copies of one list share.
class CFinalizer {
public:
    explicit CFinalizer(std::string listGuid);  // "": messages of no list cannot be signed
    CFinalizer(const CFinalizer&) = delete;
    CFinalizer& operator=(const CFinalizer&) = delete;
    ~CFinalizer();

    // The message becomes the copy: overrides applied, header complete, expanded
    // and signed.  Written or Blocked; nothing is written.
    FinalizeResult Prepare(CMimeMessage& message, std::int64_t now);

    // The single steps of Prepare(), for those who build copies otherwise.
    static void ApplyOverrides(CMimeMessage& message);
    void SetStandardHeaders(CMimeMessage& message, std::int64_t now);  // Date to X-ZQ-Loop, and Message-ID
    static void SetAddresseeFields(std::string_view toLine);           // Email, Name, First-Name, Last-Name
    static void SetTimeFields(std::int64_t now);
    bool Sign(std::string_view subject, std::string_view recipient, std::int64_t now, std::string& signedSubject);
    // recipients: header values; the first that is blocked is logged with the subject.
    bool IsBlocked(std::string_view recipients, std::string_view subject);

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

// Prepares the message and adds it to the queue folder at targetPath.
FinalizeResult FinalizeMessage(CMimeMessage* message, std::string_view targetPath, std::string_view listGuid = {});

// "-0500" for 300 (minutes to add to local time to get UTC).  Minutes keep
// their own sign: -330 gives "+05-30".
std::string FormatZone(int biasMinutes);
std::string FormatMessageDate(std::int64_t now);      // local, English names whatever the locale
std::string NewMessageId(std::string_view fromLine);  // "<unique@domain of From>"

#endif  // LISTHAVEN_ENGINE_FINALIZE_H
