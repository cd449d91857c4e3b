// childprocess.h - starts another program, waits for it, ends it.
//
// A child does not outlive this process, however that ends; on Linux not even
// the thread that started it, unless it takes on another user's rights.
//
// Under Wine a program of the system below is started, but nothing more is known
// of it: it counts as ended, without status.
//
// Errors   false, with the reason in LastSystemError().
// Threads  A CChildProcess belongs to one thread at a time.

#ifndef LISTHAVEN_PLATFORM_CHILDPROCESS_H
#define LISTHAVEN_PLATFORM_CHILDPROCESS_H

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

struct ChildOptions {
    std::vector<std::string> environment;  // further "NAME=value"
    std::string outputFile;                // standard output; "" is that of this process
    std::string errorFile;                 // standard error; may be the same file
};

class CChildProcess {
public:
    CChildProcess();
    CChildProcess(CChildProcess&&) noexcept;
    CChildProcess& operator=(CChildProcess&&) noexcept;
    ~CChildProcess();  // kills and waits

    // Standard input is empty.
    bool Start(const std::string& program, const std::vector<std::string>& arguments, const ChildOptions& options = {});
    bool IsRunning();

    // True when it has ended within the limit; status is its exit status, or
    // 256 + the signal that ended it (on Windows what comes near: 2 interrupted,
    // 9 killed, 11 crashed).
    bool WaitFor(std::chrono::milliseconds limit, int& status);

    bool AskToStop();  // as Ctrl-C does: one that does not catch it (CatchStopSignals()) ends
    bool Kill();       // at once, as a power failure would; then waits.  On Windows with all that it started

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_CHILDPROCESS_H
