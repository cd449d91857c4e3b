// smtpsettings.h - what an account's configuration says about its SMTP server.
//
// Errors   false, with the reason in the last-error text: no host, or a port or
//          time-out that is no number.
// Threads  Any.

#ifndef LISTHAVEN_SENDDAEMON_SMTPSETTINGS_H
#define LISTHAVEN_SENDDAEMON_SMTPSETTINGS_H

#include <cstdint>
#include <string>

#include "net/pop3session.h"
#include "net/smtpsession.h"

namespace SendDaemon {

class CConfiguration;

struct CSmtpSettings {
    std::string hostName;
    std::uint16_t port = 25;
    std::int32_t timeout = 60;       // seconds
    std::int32_t dataTimeout = 600;  // seconds
    Net::TlsMode tlsMode = Net::TlsMode::Opportunistic;
    std::string tlsCaFile;
    std::string heloName;
    std::string login;  // "": none
    std::string password;

    std::string popHostName;  // "": no POP before SMTP
    std::uint16_t popPort = 110;
    Net::TlsMode popTlsMode = Net::TlsMode::Opportunistic;
    std::string popLogin;
    std::string popPassword;

    std::int32_t maxMessagesPerConnection = 999;
    bool turnOffNotifications = false;
    bool isTraced = false;
    std::string keepHeaders;

    bool operator==(const CSmtpSettings&) const = default;

    bool Read(const CConfiguration& config);
    // The account's, for a mail exchanger: its host, the common port, no log-in.
    bool ReadFor(const CConfiguration& config, const std::string& exchanger);
    // The POP3 side alone: this host, or host and port ("host:port"), with the
    // account's port, security and certificate.  Port 995 is TLS from the first byte.
    bool ReadPopFor(const CConfiguration& config, const std::string& server);
    Net::SmtpOptions MakeSmtpOptions(Net::Resolver resolver) const;
    Net::Pop3Options MakePop3Options(const std::string& traceFile) const;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_SMTPSETTINGS_H
