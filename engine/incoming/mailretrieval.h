// mailretrieval.h - messages of a POP3 mailbox into memory, by a thread of their
// own: while they come, those before them are processed.
//
// Threads  All calls from one.  Between Start() and Take() the session belongs
//          to the thread; only its Cancel() may be called.
// Memory   What was asked for, at most LargestTogether and one message.

#ifndef LISTHAVEN_ENGINE_INCOMING_MAILRETRIEVAL_H
#define LISTHAVEN_ENGINE_INCOMING_MAILRETRIEVAL_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/failure.h"

namespace Net {
class CPop3Session;
}

struct CRetrieved {
    bool isWhole = false;
    bool isTooLong = false;  // longer than was allowed; like most failures it has ended the session
    Net::Failure failure;    // else
    std::string text;        // without control headers, and without our own
    std::string content;     // key; "" when the system refuses
    std::uint64_t octets = 0;
};

class CMailRetrieval {
public:
    static constexpr std::uint64_t LargestMessage = 1ull << 20;   // octets
    static constexpr std::uint64_t LargestTogether = 8ull << 20;  // it ends behind these

    CMailRetrieval() = default;
    CMailRetrieval(const CMailRetrieval&) = delete;
    CMailRetrieval& operator=(const CMailRetrieval&) = delete;
    ~CMailRetrieval();  // waits: the caller has cancelled the session, or wants to wait

    void Start(Net::CPop3Session& session, std::vector<std::uint32_t> numbers, std::uint64_t limit);
    bool IsUnderWay() const noexcept { return m_thread.joinable(); }
    void Stop() noexcept { m_isStopped = true; }  // behind the message at hand

    // Waits, and beats (app/heartbeat.h) with what comes.  In the order that was asked for; there may be fewer, and
    // behind one that has ended the session there are none.
    std::vector<CRetrieved> Take(const std::function<bool()>& stop = {});  // true: as Stop()

private:
    void Wait(const std::function<bool()>& stop);
    void Run(Net::CPop3Session& session, const std::vector<std::uint32_t>& numbers, std::uint64_t limit) noexcept;

    std::thread m_thread;
    std::vector<CRetrieved> m_retrieved;
    std::atomic<bool> m_isStopped = false;
    std::mutex m_guard;
    std::condition_variable m_progress;
    bool m_isDone = true;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_MAILRETRIEVAL_H
