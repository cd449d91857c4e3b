// mailthread.h - the thread that looks after the lists' mail: cycles, digests and
// broadcasts, which all use the data fields and so take turns.
//
// Threads  The functions belong to the thread that made the object.

#ifndef LISTHAVEN_PROGRAMS_LHVSERVER_MAILTHREAD_H
#define LISTHAVEN_PROGRAMS_LHVSERVER_MAILTHREAD_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "app/heartbeat.h"
#include "engine/incoming/mailcycle.h"

class CMailRounds;

class CMailThread {
public:
    enum class Mode { UntilStopped, Once };

    explicit CMailThread(Mode mode);  // starts
    CMailThread(const CMailThread&) = delete;
    CMailThread& operator=(const CMailThread&) = delete;
    ~CMailThread();  // stops

    bool IsDone() const noexcept { return m_isDone; }
    const CHeartbeat& GetHeartbeat() const noexcept { return m_heartbeat; }
    bool IsResting() const noexcept { return !m_isLooking; }
    std::uint64_t GetWork() const noexcept { return m_work; }  // grows with each look that has done anything
    // Ends a conversation with a POP3 server where it stands, everything else
    // behind the message or the copy that is being dealt with; waits for that.
    void Stop();

private:
    void Work(const std::stop_token& stop, Mode mode);
    void LookOnce(CMailRounds& rounds);

    CHeartbeat m_heartbeat;
    CCycleControl m_control;
    std::atomic<bool> m_isDone{false};
    std::atomic<bool> m_isLooking{false};
    std::atomic<std::uint64_t> m_work{0};
    std::mutex m_mutex;
    std::condition_variable m_wake;  // not "_any": see Stop()
    std::jthread m_thread;
};

#endif  // LISTHAVEN_PROGRAMS_LHVSERVER_MAILTHREAD_H
