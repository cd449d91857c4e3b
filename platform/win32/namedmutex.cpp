#include "platform/namedmutex.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>

#include "platform/win32/handle.h"
#include "platform/win32/namedobjects.h"

namespace Platform {

namespace {

// Access denied: somebody made it without letting everyone in, but perhaps us.
CHandle OpenMutexObject(const std::wstring& name) {
    CHandle handle(CreateMutexW(GetMutexSecurityAttributes(), FALSE, name.c_str()));
    if (!handle && GetLastError() == ERROR_ACCESS_DENIED)
        handle.Reset(OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, name.c_str()));
    return handle;
}

}  // namespace

// One handle per name and process, for as long as somebody uses it.  A mutex
// that the system refuses becomes one of this process alone.
struct CNamedMutex::CState {
    explicit CState(const std::wstring& name) : handle(OpenMutexObject(name)), isShared(handle) {
        if (!handle) handle.Reset(CreateMutexW(nullptr, FALSE, nullptr));
        if (!handle) throw std::bad_alloc();
    }

    CHandle handle;
    const bool isShared;

    // The mutex of a process or thread that ended while it held it is ours:
    // what it guards was made to be cut off at any moment.
    bool Wait(DWORD milliseconds) const {
        const DWORD code = GetLastError();
        const DWORD result = WaitForSingleObject(handle.Get(), milliseconds);
        SetLastError(code);
        return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
    }

    static std::shared_ptr<CState> Get(std::string_view name) {
        struct Registry {
            std::mutex guard;
            std::map<std::wstring, std::weak_ptr<CState>> states;
        };
        static Registry* const registry = new Registry;  // outlives every other static object
        constexpr std::size_t SweptStates = 200;

        const std::wstring objectName = ObjectName(name);
        const std::lock_guard lock(registry->guard);
        if (registry->states.size() >= SweptStates)
            std::erase_if(registry->states, [](const auto& entry) { return entry.second.expired(); });
        std::weak_ptr<CState>& kept = registry->states[objectName];
        std::shared_ptr<CState> state = kept.lock();
        if (!state) kept = state = std::make_shared<CState>(objectName);
        return state;
    }
};

CNamedMutex::CNamedMutex(std::string_view name) : m_state(CState::Get(name)) {}

CNamedMutex::~CNamedMutex() = default;

void CNamedMutex::Lock() {
    m_state->Wait(INFINITE);
}

bool CNamedMutex::TryLockFor(std::chrono::milliseconds limit) {
    return m_state->Wait(static_cast<DWORD>(std::clamp<std::int64_t>(limit.count(), 0, INFINITE - 1)));
}

void CNamedMutex::Unlock() {
    const DWORD code = GetLastError();  // a guard must not hide why its scope failed
    ReleaseMutex(m_state->handle.Get());
    SetLastError(code);
}

bool CNamedMutex::IsShared() const noexcept {
    return m_state->isShared;
}

// Held is a mutex that exists; nobody ever locks it.
struct CPresence::CState {
    CHandle handle;
};

CPresence::CPresence() : m_state(std::make_unique<CState>()) {}

CPresence::~CPresence() {
    Release();
}

// Someone who asks IsHeld() opens it for an instant: that is not a holder.
CPresence::Result CPresence::Acquire(std::string_view name) {
    constexpr int Tries = 20;
    constexpr DWORD Pause = 5;

    Release();
    const std::wstring objectName = ObjectName(name);
    for (int attempt = 0; attempt < Tries; ++attempt) {
        if (attempt > 0) Sleep(Pause);
        CHandle handle(CreateMutexW(GetMutexSecurityAttributes(), FALSE, objectName.c_str()));
        const DWORD code = GetLastError();
        if (!handle) return code == ERROR_ACCESS_DENIED ? Result::AccessDenied : Result::Failed;
        if (code == ERROR_ALREADY_EXISTS) continue;
        m_state->handle = std::move(handle);
        return Result::Acquired;
    }
    return Result::AlreadyHeld;
}

void CPresence::Release() noexcept {
    m_state->handle.Reset();
}

// One that may not be opened is held by another user.
bool CPresence::IsHeld(std::string_view name) {
    const CHandle handle(OpenMutexW(SYNCHRONIZE, FALSE, ObjectName(name).c_str()));
    return handle || GetLastError() == ERROR_ACCESS_DENIED;
}

}  // namespace Platform
