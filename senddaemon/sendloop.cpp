#include "senddaemon/sendloop.h"

#include <algorithm>
#include <utility>

#include "senddaemon/senddaemon.h"
#include "utility/formattext.h"

namespace SendDaemon {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds StopInterval{100};
constexpr milliseconds LongestPause{1000};
constexpr milliseconds HousekeepingInterval{1000};
constexpr std::size_t LongestReason = 400;  // then no other host is named

enum class LoopKind : std::uint8_t { UntilEmpty, OnePass, UntilStopped };

class CSendLoop {
public:
    CSendLoop(CSendDaemon& daemon, const CSendLoopOptions& options, LoopKind kind)
        : m_daemon(daemon), m_options(options), m_kind(kind), m_before(daemon.GetTotals()) {}

    CSendResult Run();

private:
    bool IsStopRequested() const { return m_options.stopRequested && m_options.stopRequested(); }
    bool IsToHandOver() const { return m_options.handOver && m_options.handOver(); }
    void FinishSending();
    void UpdateResult();
    void FindWaiting();
    void Report();
    void Pause(milliseconds length);
    bool EndPass(bool isSending);
    void KeepHouse();

    CSendDaemon& m_daemon;
    const CSendLoopOptions& m_options;
    LoopKind m_kind;
    CDispatchTotals m_before;
    CSendResult m_result;
    std::uint64_t m_handedOn = 0;  // in this pass over the queues
    std::uint64_t m_failed = 0;
    std::uint32_t m_fruitless = 0;  // passes in a row
    bool m_wasSending = true;       // before this round
    std::chrono::steady_clock::time_point m_nextHousekeeping = std::chrono::steady_clock::now();
};

void CSendLoop::UpdateResult() {
    const CDispatchTotals totals = m_daemon.GetTotals();
    m_result.sent = totals.sent - m_before.sent;
    m_result.failed = totals.failed - m_before.failed;
    m_result.heldBack = totals.parked - m_before.parked;
    m_result.expired = totals.expired - m_before.expired;
    m_result.deferred = totals.deferred - m_before.deferred;
}

void CSendLoop::FindWaiting() {
    for (const CBackedOffAccount& account : m_daemon.GetBackedOff()) {
        const CBackOffNotice& notice = account.notice;
        if (m_result.waitingUntil == 0 || notice.until < m_result.waitingUntil) m_result.waitingUntil = notice.until;
        m_result.waiting += account.waiting;
        const std::string reason = notice.host.empty() ? notice.reason
                                                       : FormatText("The host \"%s\" takes no messages now: %s",
                                                                    notice.host.c_str(), notice.reason.c_str());
        std::string& all = m_result.waitingFor;
        if (all.find(reason) != std::string::npos || all.size() > LongestReason) continue;
        all += (all.empty() ? "" : "; ") + reason;
    }
}

void CSendLoop::Report() {
    if (!m_options.progress) return;
    UpdateResult();
    m_options.progress(m_result);
}

void CSendLoop::Pause(milliseconds length) {
    const auto end = std::chrono::steady_clock::now() + length;
    while (!IsStopRequested() && !IsToHandOver()) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
        if (left <= milliseconds::zero()) return;
        m_daemon.WaitForProgress(m_daemon.GetProgress(), std::min(left, StopInterval));
    }
}

void CSendLoop::FinishSending() {
    while (!IsStopRequested() && m_daemon.IsAnySending())
        m_daemon.WaitForProgress(m_daemon.GetProgress(), StopInterval);
}

void CSendLoop::KeepHouse() {
    const auto now = std::chrono::steady_clock::now();
    if (!m_options.housekeeping || now < m_nextHousekeeping) return;
    m_nextHousekeeping = now + HousekeepingInterval;
    m_options.housekeeping();
}

// False when there is nothing left to do.
bool CSendLoop::EndPass(bool isSending) {
    const bool isFruitless = m_handedOn == 0 && m_failed > 0;
    const bool isEmpty = m_handedOn == 0 && m_failed == 0;
    m_handedOn = 0;
    m_failed = 0;
    if (isSending) return true;
    if (!isFruitless) m_fruitless = 0;
    if (m_kind == LoopKind::OnePass) return false;
    if (isEmpty) {
        if (m_kind == LoopKind::UntilEmpty) return false;
        if (m_options.resting) m_options.resting();
        Pause(m_options.idlePause);
    }
    if (isFruitless) {
        ++m_fruitless;
        if (m_kind == LoopKind::UntilEmpty && m_fruitless >= m_options.failureLimit) {
            m_result.gaveUp = true;
            return false;
        }
        const milliseconds pause{m_options.failurePause.count() << std::min(m_fruitless - 1, 10U)};
        Pause(std::min(LongestPause, pause));
    }
    return true;
}

CSendResult CSendLoop::Run() {
    if (m_kind == LoopKind::OnePass) m_daemon.StartPass();
    for (;;) {
        if (IsToHandOver()) FinishSending();
        if (IsStopRequested() || IsToHandOver()) {
            m_daemon.CancelSenders();
            m_result.wasStopped = true;
            break;
        }
        KeepHouse();
        const std::uint64_t seen = m_daemon.GetProgress();
        const CDispatchRound round =
            m_kind == LoopKind::OnePass ? m_daemon.DispatchPassRound() : m_daemon.DispatchRound();
        m_handedOn += round.handedOn;
        m_failed += round.failed;
        if (round.failed > 0) m_result.reason = round.reason;
        if (round.handedOn > 0) Report();
        // A probe that ends now lets others go: the last round begins with nothing being sent.
        const bool wasSending = std::exchange(m_wasSending, true);
        if (round.handedOn > 0 && !round.isPassOver) continue;
        const bool isSending = round.allBusy > 0 || m_daemon.IsAnySending();
        m_wasSending = isSending || round.handedOn > 0;
        if (round.isPassOver && !EndPass(isSending || wasSending)) break;
        if (round.handedOn > 0 || !isSending) continue;
        m_daemon.WaitForProgress(seen, StopInterval);
        Report();
    }
    UpdateResult();
    if (!m_result.wasStopped) FindWaiting();
    if (!m_result.gaveUp) m_result.reason.clear();
    return m_result;
}

}  // namespace

CSendResult RunUntilEmpty(CSendDaemon& daemon, const CSendLoopOptions& options) {
    return CSendLoop(daemon, options, LoopKind::UntilEmpty).Run();
}

CSendResult RunOnce(CSendDaemon& daemon, const CSendLoopOptions& options) {
    return CSendLoop(daemon, options, LoopKind::OnePass).Run();
}

CSendResult RunUntilStopped(CSendDaemon& daemon, const CSendLoopOptions& options) {
    return CSendLoop(daemon, options, LoopKind::UntilStopped).Run();
}

}  // namespace SendDaemon
