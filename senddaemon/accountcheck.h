// accountcheck.h - whether an account could send: connects and logs in as the
// sending would, step by step, and sends nothing.
//
// Errors   false; the last step that was reported says why.
// Threads  Any; report is called on the caller's.

#ifndef LISTHAVEN_SENDDAEMON_ACCOUNTCHECK_H
#define LISTHAVEN_SENDDAEMON_ACCOUNTCHECK_H

#include <functional>
#include <string>
#include <string_view>

namespace SendDaemon {

class CConfiguration;

struct CAccountCheckStep {
    std::string name;  // "connect", "tls", "offers", "login", "pop3", "dns", "folder", "settings"
    bool isGood = true;
    std::string text;  // for the operator
};

// domain: whose mail exchangers direct delivery is tried with.  True when every
// step was good that sending needs.
bool CheckAccount(const CConfiguration& config, std::string_view domain,
                  const std::function<void(const CAccountCheckStep&)>& report);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_ACCOUNTCHECK_H
