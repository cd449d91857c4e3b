#include "senddaemon/smtpmessagesender.h"

namespace SendDaemon {

SmtpMessageSender2::SmtpMessageSender2() {
    LogTrace("*** Constructing SmtpMessageSender");
}

SmtpMessageSender2::~SmtpMessageSender2() {
    LogTrace("*** Destroying SmtpMessageSender");
    if (HasJob()) m_client.Cancel();
    Shutdown();
}

bool SmtpMessageSender2::DoSend(const CConfiguration& config, const std::string& returnPath,
                                const std::string& recipients, const std::string& messageFile) {
    m_client.AllowAgain();
    const bool isSent = m_client.Deliver(config, returnPath, recipients, messageFile,
                                         [this](const CDeliveryReport& report) { Report(report); });
    m_isConnected = m_client.IsConnected();
    return isSent;
}

bool SmtpMessageSender2::Stop() {
    LogTrace("Cancel ()");
    LogTrace("Disconnect ()");
    m_client.Cancel();
    return true;
}

// Servers count the connections they have; the session is closed on the
// sender's own thread.
void SmtpMessageSender2::OnIdle() {
    if (m_isConnected && !IsBusy() && GetLastDelivery() > IdleSeconds) StartCustomJob();
}

void SmtpMessageSender2::OnEnding() {
    if (m_client.IsConnected()) m_client.Disconnect();
}

void SmtpMessageSender2::RunCustomJob() {
    m_client.Disconnect();
    m_isConnected = false;
}

}  // namespace SendDaemon
