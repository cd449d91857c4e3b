// daemonhost.h - the send daemon on the data folder, with an account for every
// enabled list.
//
// What the daemon logs goes into the event log.  The delivery limits, the time
// after which a message expires and the lists' settings are those of the data
// folder, also when they change while the daemon runs.
//
// Errors   false, with the reason in the last-error text: another program is
//          sending, or the daemon's folder cannot be used.  A list whose account
//          cannot be set up is logged and left out; the others are sent.
// Threads  One; the daemon's senders have their own.

#ifndef LISTHAVEN_ENGINE_DAEMONHOST_H
#define LISTHAVEN_ENGINE_DAEMONHOST_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "senddaemon/dispatcher.h"

namespace SendDaemon {
class CSendDaemon;
}

// What became of a list's messages since the start.
struct CListProgress {
    std::uint32_t number = 0;
    std::string name;
    SendDaemon::CDispatchTotals totals;
};

class CDaemonHost {
public:
    CDaemonHost();
    CDaemonHost(const CDaemonHost&) = delete;
    CDaemonHost& operator=(const CDaemonHost&) = delete;
    ~CDaemonHost();

    bool Start();
    // Waits while another program sends, which the log tells; "stop" ends that with false and no last-error text.
    bool StartWhenFree(const std::function<bool()>& stop);
    // Lists that came, went or changed; costs a few file stats when nothing did.
    // Accounts that could not be set up are tried again once a minute.
    void FollowCatalogue();
    const std::string& GetFailure() const;  // why an enabled list is left out now; "": none is

    SendDaemon::CSendDaemon& GetDaemon();
    std::vector<CListProgress> GetProgress() const;  // of every list, by number

private:
    bool Begin();

    struct CState;
    std::unique_ptr<CState> m_state;
};

bool IsSomebodySending();  // from the data folder, this program included

// Goes on with every interrupted broadcast, and logs what became of each.
void ResumeBroadcasts(const std::function<bool()>& stopRequested);

// Runs those that were made and that nobody has begun: of posts and digests.
void RunNewBroadcasts(const std::function<bool()>& stopRequested);

// [Service] LimitLogSize and MaxLogSize (kilobytes): trims the event log when it is larger.
void KeepLogWithinLimit();

// From [Service] ExpireOutgoingMessages, ExpireOutgoingAfter and
// ExpireOutgoingUnit: seconds, or none when messages never expire.
std::optional<std::int64_t> ReadExpiry();

#endif  // LISTHAVEN_ENGINE_DAEMONHOST_H
