// heartbeat.h - whether a thread that another one watches still gets on.
//
// Work that can take long beats between its steps: none of them may take longer
// than one wait for a server.
//
// Threads  GetSilence() may be called from any.

#ifndef LISTHAVEN_APP_HEARTBEAT_H
#define LISTHAVEN_APP_HEARTBEAT_H

#include <atomic>
#include <chrono>
#include <cstdint>

class CHeartbeat {
public:
    CHeartbeat() noexcept;  // beats
    CHeartbeat(const CHeartbeat&) = delete;
    CHeartbeat& operator=(const CHeartbeat&) = delete;

    void BeOfThisThread() noexcept;  // which must end, or give it up with StopBeating(), before this object does
    std::chrono::milliseconds GetSilence() const noexcept;  // since it beat last

private:
    friend void Beat() noexcept;
    std::atomic<std::int64_t> m_last;  // milliseconds of the steady clock
};

void Beat() noexcept;  // for the calling thread; nothing when nobody watches it
void StopBeating() noexcept;

#endif  // LISTHAVEN_APP_HEARTBEAT_H
