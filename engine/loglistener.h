// loglistener.h - brings the log lines of the service to the front end.
//
// The service writes each line that it has logged into a mailslot as well; the
// front end reads them on a thread of its own.
//
// Errors   A listener that cannot make the mailslot (another front end has it)
//          ends by itself.  WriteLogLineToMailslot() says false when nobody
//          listens, which is not worth a word.
// Threads  Start() and Stop() from one thread; the view is called on the
//          listener's thread.

#ifndef LISTHAVEN_ENGINE_LOGLISTENER_H
#define LISTHAVEN_ENGINE_LOGLISTENER_H

#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <string_view>
#include <thread>

inline constexpr std::string_view LogMailslotName = "\\\\.\\mailslot\\VtrlLhv0";

class CLogListener {
public:
    CLogListener() = default;
    CLogListener(const CLogListener&) = delete;
    CLogListener& operator=(const CLogListener&) = delete;
    ~CLogListener();  // stops

    // Returns when the mailslot is there, or false when it cannot be made.
    bool Start(std::function<void(const std::string& line)> view);
    void Stop();  // waits for the thread; at most about 100 ms
    bool IsListening() const noexcept { return m_listening; }

private:
    void Listen(const std::function<void(const std::string& line)>& view, std::promise<bool> started);

    std::thread m_thread;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_listening = false;
};

bool WriteLogLineToMailslot(std::string_view line);  // given without its line end, sent with it

#endif  // LISTHAVEN_ENGINE_LOGLISTENER_H
