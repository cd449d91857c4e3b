// dispatchcheck.h - delivery limits: how many messages a host may get per time.
//
// Several limits may name one host; all of them hold.  Hosts compare without
// regard to case.  The limits lie in "checker.cfg", the times at which messages
// were let through in "HOST.log", both in the checker's folder.  Times are
// seconds since 1970.
//
// Errors   false, with the reason in the last-error text.
// Threads  Any; every call holds the checker's lock to its end.
// Crash    checker.cfg is the old or the new one.  A torn last time of a log
//          does not count.

#ifndef LISTHAVEN_SENDDAEMON_DISPATCHCHECK_H
#define LISTHAVEN_SENDDAEMON_DISPATCHCHECK_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace SendDaemon {

struct CDispatchCheck {
    std::string host;
    std::uint32_t maxMessages = 0;
    std::uint32_t periodHours = 0;  // the period ends now
};

class CDispatchChecker {
public:
    CDispatchChecker();
    CDispatchChecker(const CDispatchChecker&) = delete;
    CDispatchChecker& operator=(const CDispatchChecker&) = delete;
    ~CDispatchChecker();

    void SetFolder(std::string_view folder);

    // A missing file is no limits.  A damaged one fails and leaves the limits
    // as they were.
    bool Load();
    bool LoadIfChanged();  // costs one look at the file's status
    bool Save() const;     // replaces a damaged file too

    std::vector<CDispatchCheck> GetChecks() const;
    void SetChecks(std::vector<CDispatchCheck> checks);

    // True when a message to the host may go now; it then counts as sent now.
    // False also while the host's log cannot be read.
    bool CanSend(std::string_view host, std::int64_t now);

    // Drops the times that no limit needs: older than 30 days, and older than
    // the host's longest period.  CanSend() does it now and then.
    bool Prune(std::string_view host, std::int64_t now);

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DISPATCHCHECK_H
