#include "programs/lhvserver/sending.h"

#include <future>
#include <system_error>
#include <utility>

#include "platform/process.h"
#include "senddaemon/senddaemon.h"

namespace {

// On a thread of its own, whose failure is the caller's.
void RunApart(const std::function<void()>& work) {
    std::future<void> apart;
    try {
        apart = std::async(std::launch::async, work);
    } catch (const std::system_error&) {  // the system has no thread to give
        return work();
    }
    apart.get();
}

}  // namespace

bool CRest::Look(std::uint64_t work, bool isResting, std::chrono::steady_clock::time_point now) {
    if (std::exchange(m_seen, work) != work) m_since = now;
    if (work == m_rested || !isResting || now - m_since < Quiet) return false;
    m_rested = work;
    return true;
}

void SendUntilStopped(SendDaemon::CSendDaemon& daemon, SendDaemon::CSendLoopOptions options, const CMailThread& mail) {
    const std::function<bool()> stop = std::move(options.stopRequested);
    CRest rest;
    bool isAtRest = false;
    options.stopRequested = [&] { return isAtRest || stop(); };
    options.resting = [&] {
        const std::uint64_t work = mail.GetWork() + daemon.GetTotals().CountAll();
        isAtRest = rest.Look(work, mail.IsResting(), std::chrono::steady_clock::now());
    };
    while (!stop()) {
        isAtRest = false;
        RunApart([&] { RunUntilStopped(daemon, options); });
        if (isAtRest) Platform::ReturnFreeMemory();
    }
}
