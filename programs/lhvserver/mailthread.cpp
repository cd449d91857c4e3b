#include "programs/lhvserver/mailthread.h"

#include <chrono>
#include <system_error>

#include "app/logcontext.h"
#include "engine/datafields.h"
#include "programs/lhvserver/mailrounds.h"

namespace {

constexpr std::chrono::seconds LookInterval{2};

}  // namespace

CMailThread::CMailThread(Mode mode)
    : m_thread([this, mode](const std::stop_token& stop) {
          Work(stop, mode);
          m_isDone = true;
      }) {}

CMailThread::~CMailThread() {
    Stop();
}

// Waiting for a stop token can miss the request where the C++ library has no
// waiting of the system's below it (libstdc++ 12 on Windows).
void CMailThread::Stop() {
    {
        const std::lock_guard guard(m_mutex);
        m_thread.request_stop();
    }
    m_wake.notify_all();
    m_control.Cancel();
    if (m_thread.joinable()) m_thread.join();
}

void CMailThread::Work(const std::stop_token& stop, Mode mode) {
    const CLogContext context("Mail");
    m_heartbeat.BeOfThisThread();
    const auto isToStop = [stop] {
        Beat();
        return stop.stop_requested();
    };
    // The table keeps them for good: made now they lie together, not all over what a full mailbox takes.
    for (std::size_t i = 0; i < static_cast<std::size_t>(DataField::Count); ++i)
        CDataFieldName(DataFieldName(static_cast<DataField>(i)));
    CMailRounds rounds(isToStop, m_control);
    if (mode == Mode::Once) return rounds.RunOnce();
    while (!isToStop()) {
        LookOnce(rounds);
        std::unique_lock lock(m_mutex);
        m_wake.wait_for(lock, LookInterval, [&stop] { return stop.stop_requested(); });
    }
}

// On a thread of its own: what the C library keeps for a thread, and which holds
// pages all over what a long look has used, goes back when it ends.
void CMailThread::LookOnce(CMailRounds& rounds) {
    const auto look = [this, &rounds] {
        const CLogContext context("Mail");
        m_heartbeat.BeOfThisThread();
        if (rounds.Look()) ++m_work;
    };
    m_isLooking = true;
    try {
        std::thread(look).join();
    } catch (const std::system_error&) {  // the system has no thread to give
        look();
    }
    m_isLooking = false;
}
