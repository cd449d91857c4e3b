// namedmutex.h - mutual exclusion between processes, by name.
//
// Everyone who may use the data folder may use the mutex.  It is recursive
// within a thread; two objects of one name in one process are the same mutex.
// The mutex of a process that dies is free again at once.
//
// Windows  The system's own mutexes, for all sessions of the machine; a
//          presence is a mutex that exists, so do not give both one name.
// POSIX    Advisory locks on files in the folder given to
//          SetNamedObjectFolder(), so names are apart per data folder.
//
// Errors   A mutex that the system refuses, or whose file cannot be made,
//          excludes only threads of this process (IsShared() is false then).
//          Presence objects say what happened.  std::runtime_error when the
//          security attributes of Windows' objects cannot be built.
// Threads  Any.

#ifndef LISTHAVEN_PLATFORM_NAMEDMUTEX_H
#define LISTHAVEN_PLATFORM_NAMEDMUTEX_H

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace Platform {

// Whose names are the plain ones: the machine's own data folder has them, the
// names of any other are told apart by that folder.
enum class NamedObjectScope { Machine, Folder };

// The folders for the files behind named mutexes and mailslots, made when
// missing.  To be called before the first of either is used.  A system with
// named objects of its own makes no folders: there the place of locks, one
// folder above, is what tells names apart, and the scope counts.
void SetNamedObjectFolder(std::string_view locks, std::string_view mailslots, NamedObjectScope scope);

class CNamedMutex {
public:
    explicit CNamedMutex(std::string_view name);  // not owned by the caller
    CNamedMutex(const CNamedMutex&) = delete;
    CNamedMutex& operator=(const CNamedMutex&) = delete;
    ~CNamedMutex();  // does not unlock

    void Lock();  // waits without limit
    bool TryLockFor(std::chrono::milliseconds limit);
    void Unlock();  // once per Lock(), by the thread that locked

    bool IsShared() const noexcept;

private:
    struct CState;
    std::shared_ptr<CState> m_state;
};

// A name that one process at a time holds for as long as it lives.
class CPresence {
public:
    enum class Result { Acquired, AlreadyHeld, AccessDenied, Failed };

    CPresence();
    CPresence(const CPresence&) = delete;
    CPresence& operator=(const CPresence&) = delete;
    ~CPresence();  // gives it up

    Result Acquire(std::string_view name);  // never waits
    void Release() noexcept;

    static bool IsHeld(std::string_view name);  // by anyone, this process included

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_NAMEDMUTEX_H
