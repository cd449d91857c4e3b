#include "platform/namedmutex.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>
#include <thread>

#include "platform/posix/namedobjects.h"
#include "platform/systemerror.h"

namespace Platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds FirstWait{1};
constexpr std::chrono::milliseconds LongestWait{20};

}  // namespace

// The lock of the threads comes first, then that of the processes.  The file
// stays open between locks: taking the mutex costs two system calls.
struct CNamedMutex::CState {
    explicit CState(std::string file) : path(std::move(file)) { Reopen(); }
    CState(const CState&) = delete;
    CState& operator=(const CState&) = delete;
    ~CState() {
        if (fd >= 0) close(fd);
    }

    const std::string path;  // "" when there is no folder
    std::recursive_mutex threads;
    std::atomic<int> fd = -1;  // changes only under threads
    unsigned depth = 0;        // of the thread that owns it

    void Reopen() {
        if (fd >= 0) close(fd);
        fd = path.empty() ? -1 : OpenLockFile(path, true);
    }

    // True when the lock just taken is on the file others would open now.
    bool IsCurrent() const {
        struct stat status;
        return fstat(fd, &status) != 0 || status.st_nlink > 0;
    }

    void LockProcesses() {
        while (fd >= 0) {
            if (!LockFile(fd, LOCK_EX) || IsCurrent()) return;
            Reopen();
        }
    }

    // Owned by this thread already, or locked without waiting.
    bool TryLock() {
        if (!threads.try_lock()) return false;
        if (depth > 0 || TryLockProcesses()) {
            ++depth;
            return true;
        }
        threads.unlock();
        return false;
    }

    bool TryLockProcesses() {
        while (fd >= 0) {
            if (!LockFile(fd, LOCK_EX | LOCK_NB)) return errno != EWOULDBLOCK;  // a file system without locks
            if (IsCurrent()) return true;
            Reopen();
        }
        return true;
    }

    static std::shared_ptr<CState> Get(std::string_view name);
};

// States are kept so that short-lived objects of one name do not open the file
// each time; beyond a number, those that nobody uses are given back.
std::shared_ptr<CNamedMutex::CState> CNamedMutex::CState::Get(std::string_view name) {
    struct Registry {
        std::mutex guard;
        std::map<std::string, std::shared_ptr<CState>> states;
    };
    static Registry* const registry = new Registry;  // outlives every other static object
    constexpr std::size_t KeptStates = 200;

    const std::string folder = LockFolder();
    const std::string key = folder + '\n' + std::string(name);
    const std::lock_guard lock(registry->guard);
    const auto found = registry->states.find(key);
    // One whose file could not be made is tried again by the next who asks, when nobody uses it.
    if (found != registry->states.end() && (found->second->fd >= 0 || found->second.use_count() > 1 || folder.empty()))
        return found->second;
    if (registry->states.size() >= KeptStates)
        std::erase_if(registry->states,
                      [](const auto& entry) { return entry.second.use_count() == 1 && entry.second->depth == 0; });
    auto state =
        std::make_shared<CState>(folder.empty() ? std::string() : folder + '/' + ObjectFileName(name) + ".lock");
    registry->states[key] = state;
    return state;
}

CNamedMutex::CNamedMutex(std::string_view name) : m_state(CState::Get(name)) {}

CNamedMutex::~CNamedMutex() = default;

void CNamedMutex::Lock() {
    const int code = errno;
    m_state->threads.lock();
    if (m_state->depth++ == 0) m_state->LockProcesses();
    errno = code;
}

// Nothing tells when another process lets go, so this looks again and again.
bool CNamedMutex::TryLockFor(std::chrono::milliseconds limit) {
    const auto end = Clock::now() + std::min<std::chrono::milliseconds>(limit, std::chrono::hours(24 * 365));
    for (auto wait = FirstWait; !m_state->TryLock(); wait = std::min(wait * 2, LongestWait)) {
        const auto now = Clock::now();
        if (now >= end) return false;
        std::this_thread::sleep_for(std::min<Clock::duration>(wait, end - now));
    }
    return true;
}

void CNamedMutex::Unlock() {
    const int code = errno;  // a guard must not hide why its scope failed
    if (--m_state->depth == 0 && m_state->fd >= 0) LockFile(m_state->fd, LOCK_UN);
    m_state->threads.unlock();
    errno = code;
}

bool CNamedMutex::IsShared() const noexcept {
    return m_state->fd >= 0;
}

struct CPresence::CState {
    int fd = -1;

    static std::string Path(std::string_view name) {
        const std::string folder = LockFolder();
        return folder.empty() ? folder : folder + "/present-" + ObjectFileName(name);
    }
};

CPresence::CPresence() : m_state(std::make_unique<CState>()) {}

CPresence::~CPresence() {
    Release();
}

// Someone who asks IsHeld() holds the file for an instant: that is not a holder.
CPresence::Result CPresence::Acquire(std::string_view name) {
    constexpr int Tries = 20;
    constexpr std::chrono::milliseconds Pause{5};

    Release();
    const int fd = OpenLockFile(CState::Path(name), true);
    if (fd < 0) return IsAccessDenied(LastSystemError()) ? Result::AccessDenied : Result::Failed;
    for (int attempt = 0; attempt < Tries; ++attempt) {
        if (LockFile(fd, LOCK_EX | LOCK_NB)) {
            m_state->fd = fd;
            return Result::Acquired;
        }
        if (errno != EWOULDBLOCK) break;
        std::this_thread::sleep_for(Pause);
    }
    const int code = errno;
    close(fd);
    errno = code;
    return code == EWOULDBLOCK ? Result::AlreadyHeld : Result::Failed;
}

void CPresence::Release() noexcept {
    if (m_state->fd >= 0) close(m_state->fd);
    m_state->fd = -1;
}

// A file that may not be opened can be held by another user: taken as held.
bool CPresence::IsHeld(std::string_view name) {
    const int fd = OpenLockFile(CState::Path(name), false);
    if (fd < 0) return IsAccessDenied(LastSystemError());
    const bool held = !LockFile(fd, LOCK_SH | LOCK_NB) && errno == EWOULDBLOCK;
    close(fd);
    return held;
}

}  // namespace Platform
