// smtpmessagesender.h - the sender that hands every message to one SMTP server.
//
// Errors   DoSend() false, with the reason in the last-error text; the report
//          says what became of each recipient.
// Threads  As messagesender.h; Stop() from any.
// Crash    As messagesender.h; a FILE.clean that is left goes with the next start.

#ifndef LISTHAVEN_SENDDAEMON_SMTPMESSAGESENDER_H
#define LISTHAVEN_SENDDAEMON_SMTPMESSAGESENDER_H

#include <atomic>
#include <string>
#include <string_view>

#include "senddaemon/messagesender.h"
#include "senddaemon/smtpclient.h"

namespace SendDaemon {

class SmtpMessageSender2 : public CMessageSender {
public:
    static constexpr std::string_view MethodName = "SmtpMessageSender2";
    static constexpr double IdleSeconds = 15;  // an unused session is closed

    SmtpMessageSender2();
    ~SmtpMessageSender2() override;

    bool DoSend(const CConfiguration& config, const std::string& returnPath, const std::string& recipients,
                const std::string& messageFile) override;
    bool Stop() override;  // ends the delivery, not the thread
    void OnIdle() override;
    void RunCustomJob() override;
    void OnEnding() override;
    std::string_view GetMethodName() const override { return MethodName; }

private:
    CSmtpClient m_client;
    std::atomic<bool> m_isConnected = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_SMTPMESSAGESENDER_H
