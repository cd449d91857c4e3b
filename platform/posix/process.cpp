#include "platform/process.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace Platform {

namespace {

std::atomic<bool> g_stopSignalled{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// The next file would get the number of one that is closed, and what is printed would go into it.
void OccupyStandardFiles() noexcept {
    for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const bool isClosed = fcntl(file, F_GETFD) == -1 && errno == EBADF;
        if (isClosed && open("/dev/null", file == STDIN_FILENO ? O_WRONLY : O_RDONLY) != file) return;
    }
}

extern "C" void OnStopSignal(int) {
    g_stopSignalled.store(true, std::memory_order_relaxed);
}

}  // namespace

ThreadId CurrentThreadId() noexcept {
    return static_cast<ThreadId>(gettid());
}

std::uint32_t CurrentProcessId() noexcept {
    return static_cast<std::uint32_t>(getpid());
}

std::optional<std::string> EnvironmentValue(std::string_view name) {
    const char* value = std::getenv(std::string(name).c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

bool ErrorOutputIsTerminal() noexcept {
    return isatty(STDERR_FILENO) == 1;
}

std::size_t ErrorOutputColumns() noexcept {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

bool InputIsTerminal() noexcept {
    return isatty(STDIN_FILENO) == 1;
}

OutputState FlushOutput() noexcept {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return OutputState::Written;
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    const bool isGone = poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0;
    return isGone ? OutputState::ReaderGone : OutputState::Failed;
}

// Calls that wait are interrupted, so that a prompt notices.  The first Ctrl-C
// puts back what the system does by default.
void CatchStopSignals() {
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
}

bool StopSignalled() noexcept {
    return g_stopSignalled.load(std::memory_order_relaxed);
}

void SignalStop() noexcept {
    g_stopSignalled.store(true, std::memory_order_relaxed);
}

void KeepMemoryTogether() noexcept {
#ifdef M_ARENA_MAX
    mallopt(M_ARENA_MAX, 1);
#endif
}

void ReturnFreeMemory() noexcept {
    malloc_trim(0);
}

void PrepareProcess(int, char**) {
    OccupyStandardFiles();
    umask(0007);
#ifdef M_TRIM_THRESHOLD
    // Else the C library raises both by itself, and keeps what threads have freed.
    constexpr int Kept = 256 * 1024;
    mallopt(M_MMAP_THRESHOLD, Kept);
    mallopt(M_TRIM_THRESHOLD, Kept);
#endif
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);  // writing fails where a file may not grow
}

std::uint64_t ResidentMemory() {
    std::FILE* file = std::fopen("/proc/self/statm", "re");
    if (!file) return 0;
    unsigned long long total = 0;
    unsigned long long resident = 0;
    const int fields = std::fscanf(file, "%llu %llu", &total, &resident);
    std::fclose(file);
    return fields == 2 ? resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) : 0;
}

std::size_t OpenFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return SIZE_MAX;
    return static_cast<std::size_t>(limit.rlim_cur);
}

}  // namespace Platform
