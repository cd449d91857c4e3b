// smtpsession.h - the sending side of SMTP: one session with one server.
//
// Commands are pipelined when the server allows it.  The message is streamed
// from its file in blocks.  A second message can be sent after Reset(), which
// goes out with the next message's commands when the server pipelines.
//
// Errors   false; GetFailure() says why in words, GetLastCode(), -ReplyText()
//          and -Command() what was said last.  After any failure but
//          FailureKind::Reply and ::Local the session is closed.
// Threads  One at a time; Cancel() from any other at any moment.
// Source   RFC 5321; 1652 (8BITMIME), 1870 (SIZE), 2034 (ENHANCEDSTATUSCODES),
//          2920 (PIPELINING), 3207 (STARTTLS), 3461 (DSN), 4954 (AUTH),
//          6531 (SMTPUTF8).

#ifndef LISTHAVEN_NET_SMTPSESSION_H
#define LISTHAVEN_NET_SMTPSESSION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/connection.h"
#include "net/failure.h"
#include "net/smtpgrammar.h"

namespace Net {

struct SmtpOptions {
    ConnectOptions connect;
    std::string heloName;                           // "": the name of this host, or its address in brackets
    std::chrono::milliseconds replyTimeout{60000};  // for each reply, and for each block of the data
    // For the reply to the end of the data.  Who gives up earlier than the
    // server sends a message twice (RFC 5321, 4.5.3.2.6).
    std::chrono::milliseconds dataTimeout{600000};
    std::string traceFile;  // appended; passwords masked; "": none
};

enum class RecipientState : std::uint8_t {
    Accepted,
    Refused,   // for good: 5xx, or the message does not suit the server
    Deferred,  // for now: 4xx, a lost connection, a time-out
};

struct SmtpRecipientResult {
    std::string address;
    RecipientState state = RecipientState::Deferred;
    int code = 0;          // of the reply; 0 when there was none
    std::string enhanced;  // "5.1.1"; ours when there was no reply; "" when the server gave none
    std::string text;      // of the reply, or what happened; one line, without CR, LF, NUL or tab
};

struct SmtpMessage {
    std::string envelopeSender;  // "" for <>
    std::vector<std::string> recipients;
    std::string file;
    std::uint64_t size = 0;      // octets, for SIZE
    bool is8Bit = false;         // BODY=8BITMIME when the server has it
    bool needsSmtpUtf8 = false;  // besides what the addresses need
};

struct SmtpSendResult {
    std::vector<SmtpRecipientResult> recipients;  // one for each, in order; also after a failure
    bool isTaken = false;                         // the server answered the data with 2xx
    // The data went out whole, and no reply came: the server may have it.
    bool mayBeTaken = false;
    // Nothing of the message had been sent when a session that had been open
    // was found dead: to be tried again at once on a new one.
    bool isSessionDead = false;
    bool isHostUnavailable = false;  // 421, or the session is lost: other messages fare no better now
};

class CSmtpSession {
public:
    CSmtpSession();
    CSmtpSession(const CSmtpSession&) = delete;
    CSmtpSession& operator=(const CSmtpSession&) = delete;
    ~CSmtpSession();  // without QUIT

    // Connects, reads the greeting, says EHLO (or HELO), STARTTLS and EHLO again as the mode wants.
    bool Open(const SmtpOptions& options);
    bool IsOpen() const noexcept;

    const SmtpCapabilities& GetCapabilities() const noexcept;
    std::uint32_t GetExtendedOptions() const noexcept;  // 0x40 AUTH LOGIN, 0x4 DSN
    bool IsEncrypted() const noexcept;
    const CConnection& GetConnection() const noexcept;  // what TLS says

    // AUTH LOGIN; fails with "SMTP server does not support AUTH LOGIN".
    bool Authenticate(std::string_view login, std::string_view password);
    void NeverNotify(bool on) noexcept;  // NOTIFY=NEVER for each recipient, if the server has DSN

    // True when at least one recipient is accepted.
    bool Send(const SmtpMessage& message, SmtpSendResult& result);

    // RSET: at once, or, when the server pipelines, with the next message.
    bool Reset();
    void Close() noexcept;  // QUIT, and waits a moment for the reply

    int GetLastCode() const noexcept;
    std::string GetLastReplyText() const;  // at most 128 characters, with the codes
    std::string GetLastEnhancedCode() const;
    std::string GetLastCommand() const;  // passwords masked
    const Failure& GetFailure() const noexcept;

    void Cancel() noexcept;
    // The data has gone out whole, or is about to, and the server has not answered
    // yet: who cancels now will not know whether it has the message.  From any thread.
    bool IsAnswerDue() const noexcept;

private:
    struct CState;
    class CTransaction;
    std::unique_ptr<CState> m_state;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_SMTPSESSION_H
