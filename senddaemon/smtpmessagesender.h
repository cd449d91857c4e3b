// smtpmessagesender.h - the sender that hands every message to one SMTP server.

#ifndef LISTHAVEN_SENDDAEMON_SMTPMESSAGESENDER_H
#define LISTHAVEN_SENDDAEMON_SMTPMESSAGESENDER_H

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
