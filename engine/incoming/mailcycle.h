// mailcycle.h - one mail-processing cycle of a list: failures that the send
// daemon noted, what is left in the inbox, what the moderator accepted, the
// POP3 mailbox.
//
// Errors   Failed, with the reason in the last-error text, when the mailbox could
//          not be read to its end or nothing more could be processed; it is not
//          logged: who runs cycles decides how often it is worth a line.  What
//          was fetched is processed all the same.  A message that cannot be
//          processed stays in the inbox, and after three attempts goes to .Failed.
// Threads  One at a time in the process: data fields are shared.
// Crash    Nothing is lost and nothing done twice: cycletransaction.h.

#ifndef LISTHAVEN_ENGINE_INCOMING_MAILCYCLE_H
#define LISTHAVEN_ENGINE_INCOMING_MAILCYCLE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

class CMailFetch;

struct CCycleTotals {
    std::uint64_t fetched = 0;
    std::uint64_t processed = 0;
    std::uint64_t replies = 0;
    std::uint64_t posted = 0;  // to members
    std::uint64_t digested = 0;
    std::uint64_t held = 0;
    std::uint64_t added = 0;  // members
    std::uint64_t removed = 0;
    std::uint64_t bounces = 0;
    std::uint64_t loops = 0;
    std::uint64_t failed = 0;
};

// "3 fetched, 3 processed, 1 answered"; what is 0 is left out, but for the first.
std::string DescribeTotals(const CCycleTotals& totals);

enum class CycleResult {
    Done,
    Busy,
    Cut,  // the time for the mailbox was over: what is left there is for the next cycle, which is due
    Failed
};

// Ends a cycle early.
class CCycleControl {
public:
    // From any thread, before, during or after the cycle: the conversation with
    // the POP3 server ends at once, the group of messages in hand is finished.
    void Cancel() noexcept;
    bool IsCancelled() const noexcept;
    // Of the cycles that follow: how long each may read its mailbox, twice that
    // with all it takes to end (CMailFetch::LimitTime).  0: no limit.  From the
    // thread that runs them.
    void LimitMailbox(std::chrono::milliseconds limit) noexcept { m_mailboxTime = limit; }

private:
    friend class CCycleControlUse;
    mutable std::mutex m_lock;
    CMailFetch* m_fetch = nullptr;
    bool m_isCancelled = false;
    std::chrono::milliseconds m_mailboxTime{0};
};

// Broadcasts that posts made are jobs of the data folder (broadcastjob.h): the
// caller runs them.  stop is asked between groups of messages; what is then left
// waits in the inbox, and the result is Done.  A list without a POP3 server has
// no mailbox.
CycleResult RunMailCycle(std::uint32_t listNumber, const std::function<bool()>& stop, CCycleTotals& totals,
                         CCycleControl* control = nullptr);

// Without the mailbox: what lies in the inbox already.  now: seconds since 1970;
// 0: the clock.
CycleResult ProcessInbox(std::uint32_t listNumber, const std::function<bool()>& stop, CCycleTotals& totals,
                         std::int64_t now = 0);

#endif  // LISTHAVEN_ENGINE_INCOMING_MAILCYCLE_H
