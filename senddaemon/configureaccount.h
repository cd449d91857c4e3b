// configureaccount.h - fills an account's configuration from a list's settings.
//
// Errors   false, with the reason in the last-error text, at the first value
//          that could not be written; those before it stay written.

#ifndef LISTHAVEN_SENDDAEMON_CONFIGUREACCOUNT_H
#define LISTHAVEN_SENDDAEMON_CONFIGUREACCOUNT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace SendDaemon {

class CConfiguration;
class CSendDaemon;
class ISendEvents;

struct CListSettings {
    std::string smtpHost;
    bool smtpNeedsLogin = false;
    std::string smtpLogin;
    std::string smtpPassword;

    bool popBeforeSmtp = false;
    std::string popHost;
    std::string popLogin;
    std::string popPassword;

    std::uint32_t maxConnections = 1;
    std::uint32_t maxMessagesPerConnection = 0;

    bool directDelivery = false;
    std::string dnsServer;
    bool dnsUseFallback = false;
    std::string relayHost;
    bool relayNeedsLogin = false;
    std::string relayLogin;
    std::string relayPassword;
    bool relayPopBeforeSmtp = false;
};

// The account must have been added.  One whose send method is the null sender
// keeps its configuration as it is.  sink (nullptr: none) must outlive the
// daemon or be replaced.
bool ConfigureAccount(CSendDaemon& daemon, std::string_view accountRoot, const CListSettings& settings,
                      ISendEvents* sink);

// The values alone, for those who have no daemon.
bool WriteListSettings(CConfiguration& config, const CListSettings& settings);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_CONFIGUREACCOUNT_H
