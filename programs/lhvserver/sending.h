// sending.h - the server's send loop, on a thread that ends when there has been
// nothing to do for a while, and with it the senders.
//
// What a thread keeps of freed memory holds pages all over what was in use; at
// rest none is left that has worked, and what is free goes back to the system.
// Sooner that would be of little use.

#ifndef LISTHAVEN_PROGRAMS_LHVSERVER_SENDING_H
#define LISTHAVEN_PROGRAMS_LHVSERVER_SENDING_H

#include <chrono>
#include <cstdint>

#include "programs/lhvserver/mailthread.h"
#include "senddaemon/sendloop.h"

// When the server comes to rest.
class CRest {
public:
    // As long as senders keep an unused connection.
    static constexpr std::chrono::seconds Quiet{15};

    // To be called again and again.  work: another number whenever anything was
    // done since.  True once, when nothing was for so long.
    bool Look(std::uint64_t work, bool isResting, std::chrono::steady_clock::time_point now);

private:
    std::uint64_t m_seen = 0;
    std::uint64_t m_rested = 0;  // the work that it has rested from
    std::chrono::steady_clock::time_point m_since;
};

// Until options.stopRequested.
void SendUntilStopped(SendDaemon::CSendDaemon& daemon, SendDaemon::CSendLoopOptions options, const CMailThread& mail);

#endif  // LISTHAVEN_PROGRAMS_LHVSERVER_SENDING_H
