// smtpclient.h - hands messages to one SMTP server, over a session that stays
// open between them.
//
// A session is reset before each message, replaced when that fails or when the
// account's settings have changed, and closed after MaxMessagesPerConnection
// messages.  What is sent is a cleaned copy, FILE.clean beside the message,
// which is gone afterwards.
//
// Errors   false, with the reason in the last-error text; the report says more.
// Threads  One at a time; Cancel() from any other at any moment.
// Crash    FILE.clean may stay.  Who has the message is known to the server
//          only, from its answer until settled has written it down.

#ifndef LISTHAVEN_SENDDAEMON_SMTPCLIENT_H
#define LISTHAVEN_SENDDAEMON_SMTPCLIENT_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "net/smtpsession.h"
#include "senddaemon/deliveryoutcome.h"
#include "senddaemon/popclient.h"
#include "senddaemon/smtpsettings.h"

namespace SendDaemon {

class CConfiguration;

class CSmtpClient {
public:
    CSmtpClient();
    CSmtpClient(const CSmtpClient&) = delete;
    CSmtpClient& operator=(const CSmtpClient&) = delete;
    ~CSmtpClient();

    // Addresses of the server's name; {}: those that the system knows.
    void SetResolver(Net::Resolver resolver) { m_resolver = std::move(resolver); }

    // True when the server took the message for at least one recipient.
    // settled gets one entry for each as soon as the server has answered, and
    // is not called when the delivery was cancelled and nobody can have the
    // message.  recipients: joined by commas.
    using Settled = std::function<void(const CDeliveryReport& report)>;
    bool Deliver(const CConfiguration& config, const std::string& returnPath, const std::string& recipients,
                 const std::string& messageFile, const Settled& settled);

    bool Connect(const CConfiguration& config);  // a new session: the one before is closed
    bool Reset();
    void Disconnect();
    const Net::CSmtpSession& GetSession() const noexcept { return m_session; }
    bool IsConnected() const noexcept { return m_session.IsOpen(); }

    // From any thread: what runs fails with "User cancel", and so does what
    // follows until AllowAgain().  A server that has the whole message and has
    // not answered yet gets some seconds: whoever does not wait for the answer
    // sends the message twice.  It is to be called again until the delivery ends.
    void Cancel() noexcept;
    void AllowAgain() noexcept {
        m_isCancelled = false;
        m_patienceEnd = 0;
    }

private:
    struct CJob;

    bool PrepareSession(const CConfiguration& config);
    bool Connect();
    bool OpenSession();
    bool Authenticate();
    void AuthenticateByPop();
    void CountMessage();
    bool SendFile(CJob& job);
    bool SendCleaned(CJob& job, const std::string& cleaned, Net::SmtpSendResult& result);
    void ReportResult(const CJob& job, const Net::SmtpSendResult& result) const;
    enum class Obstacle : std::uint8_t { Server, Message };
    void ReportUntried(const CJob& job, Obstacle obstacle, const std::string& reason) const;
    std::string DescribeFailure() const;
    bool FailToConnect();

    Net::CSmtpSession m_session;
    CPopClient m_pop;
    Net::Resolver m_resolver;
    CSmtpSettings m_settings;
    std::string m_connectFailure;
    int m_connectCode = 0;  // of the reply that was it; 0 without
    std::string m_connectEnhanced;
    std::int32_t m_sentOnSession = 0;
    bool m_closeAfterMessage = false;
    std::atomic<bool> m_isCancelled = false;
    std::atomic<std::int64_t> m_patienceEnd = 0;  // milliseconds of the steady clock; 0: nobody has cancelled
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_SMTPCLIENT_H
