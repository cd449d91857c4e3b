// sendloop.h - dispatches until there is nothing to do, or until told to stop.
//
// Waits for senders without spinning.  A message that cannot be claimed stays
// where it is and is tried again in the next pass over the queues; a pass in
// which nothing but that happened is followed by a pause that grows.  After
// failureLimit such passes in a row the loops that end by themselves give up.
//
// Messages for a host that takes none now (RetryTemporary) are no reason to go
// on for the loops that end by themselves.
//
// Threads  Runs on the caller's thread, and calls back on it.

#ifndef LISTHAVEN_SENDDAEMON_SENDLOOP_H
#define LISTHAVEN_SENDDAEMON_SENDLOOP_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace SendDaemon {

class CSendDaemon;

struct CSendResult {
    std::uint64_t sent = 0;
    std::uint64_t failed = 0;
    std::uint64_t heldBack = 0;
    std::uint64_t expired = 0;
    std::uint64_t deferred = 0;
    std::uint64_t waiting = 0;      // at the end, for hosts that take no messages now
    std::int64_t waitingUntil = 0;  // seconds since 1970: when the first of these is asked again; 0: all take messages
    std::string waitingFor;         // which, and why: also when nothing waits for them
    bool wasStopped = false;
    bool gaveUp = false;
    std::string reason;  // of giving up
};

struct CSendLoopOptions {
    std::function<bool()> stopRequested;  // asked at least ten times a second; {}: never
    // Another program is to go on sending: nothing further is taken up, and what is
    // being sent ends in its own time.  Asked like the stop; {}: never.
    std::function<bool()> handOver;
    std::function<void(const CSendResult&)> progress;  // after a round that changed something; {}: none
    std::function<void()> housekeeping;                // about once a second; may add and remove accounts; {}: none
    std::function<void()> resting;                     // before each pause with empty queues; {}: none
    std::chrono::milliseconds failurePause{50};        // the first one; doubled each time, at most a second
    std::uint32_t failureLimit = 6;
    std::chrono::milliseconds idlePause{500};  // between two looks at empty queues
};

// Both end with no message being sent; after a stop request what is being
// sent is cancelled, and what was claimed goes back into the queue at the next
// start.
CSendResult RunUntilEmpty(CSendDaemon& daemon, const CSendLoopOptions& options);
CSendResult RunOnce(CSendDaemon& daemon, const CSendLoopOptions& options);  // one pass over every queue

CSendResult RunUntilStopped(CSendDaemon& daemon, const CSendLoopOptions& options);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_SENDLOOP_H
