// popclient.h - logs in to a POP3 server: to fetch mail, or for SMTP servers
// that let in whoever has fetched his.
//
// Errors   false, with the reason in the last-error text.
// Threads  One; Cancel() from any other at any moment.

#ifndef LISTHAVEN_SENDDAEMON_POPCLIENT_H
#define LISTHAVEN_SENDDAEMON_POPCLIENT_H

#include <string>

#include "net/pop3session.h"
#include "senddaemon/smtpsettings.h"

namespace SendDaemon {

class CPopClient {
public:
    bool Authenticate(const CSmtpSettings& settings);  // APOP first, then USER and PASS
    // Stays logged in; one that does not offer APOP is asked by USER and PASS at once.
    bool Open(const CSmtpSettings& settings);
    Net::CPop3Session& GetSession() noexcept { return m_session; }
    void Cancel() noexcept { m_session.Cancel(); }

private:
    bool Connect(const CSmtpSettings& settings, const std::string& traceFile);
    bool Login(Net::Pop3Login method, const CSmtpSettings& settings);
    void Disconnect();
    static std::string GetTraceFile();  // "": none is wanted

    Net::CPop3Session m_session;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_POPCLIENT_H
