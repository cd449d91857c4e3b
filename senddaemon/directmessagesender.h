// directmessagesender.h - the sender that delivers to the recipients' own mail
// exchangers.
//
// A message with recipients at several domains is one delivery per domain; each
// is reported when it is over.  Of a domain, the exchangers are tried in order
// until one has taken the message for everybody.
//
// Errors, Threads, Crash   As smtpmessagesender.h; the folder of settings for
//          an exchanger that a crash leaves in the system's temporary folder stays.

#ifndef LISTHAVEN_SENDDAEMON_DIRECTMESSAGESENDER_H
#define LISTHAVEN_SENDDAEMON_DIRECTMESSAGESENDER_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "senddaemon/dnsclient.h"
#include "senddaemon/messagesender.h"
#include "senddaemon/smtpclient.h"

namespace SendDaemon {

class CDirectMessageSender : public CMessageSender {
public:
    static constexpr std::string_view MethodName = "DirectMessageSender";

    CDirectMessageSender();
    ~CDirectMessageSender() override;

    bool DoSend(const CConfiguration& config, const std::string& returnPath, const std::string& recipients,
                const std::string& messageFile) override;
    bool Stop() override;  // ends the delivery, not the thread
    std::string_view GetMethodName() const override { return MethodName; }

private:
    struct CDomain;   // recipients at one domain, and what became of them
    struct CMessage;  // what is the same for all of them

    bool Prepare(const CConfiguration& config, const std::string& messageFile);
    void LogRecipient(const std::string& recipient) const;
    void LogLookupFailure(const CConfiguration& config, const std::string& reason) const;
    bool SendToDomain(const CMessage& message, CDomain& domain);
    bool SendThrough(const CMessage& message, const std::vector<std::string>& exchangers, CDomain& domain);
    bool SendThroughOne(const CMessage& message, const std::string& exchanger, CDomain& domain);
    bool SendThroughRelay(const CMessage& message, CDomain& domain);
    bool Deliver(const CConfiguration& config, const CMessage& message, CDomain& domain);
    void TakeReport(const CDeliveryReport& report, CDomain& domain);
    void ReportRest(const CDomain& domain);

    std::unique_ptr<CDnsClient> m_dns;
    std::mutex m_cancelLock;  // guards the two below
    CDnsClient* m_runningDns = nullptr;
    CSmtpClient* m_runningClient = nullptr;
    std::atomic<bool> m_isCancelled = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DIRECTMESSAGESENDER_H
