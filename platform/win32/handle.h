// handle.h - owns a handle of the system.

#ifndef LISTHAVEN_PLATFORM_WIN32_HANDLE_H
#define LISTHAVEN_PLATFORM_WIN32_HANDLE_H

#include <windows.h>

#include <utility>

namespace Platform {

// Both null and INVALID_HANDLE_VALUE are none.  Closing keeps the last error.
class CHandle {
public:
    explicit CHandle(HANDLE handle = nullptr) noexcept : m_handle(handle) {}
    CHandle(CHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    CHandle& operator=(CHandle&& other) noexcept {
        Reset(std::exchange(other.m_handle, nullptr));
        return *this;
    }
    ~CHandle() { Reset(); }

    explicit operator bool() const noexcept { return m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE; }
    HANDLE Get() const noexcept { return m_handle; }
    void Reset(HANDLE handle = nullptr) noexcept {
        const DWORD code = GetLastError();
        if (*this) CloseHandle(m_handle);
        m_handle = handle;
        SetLastError(code);
    }

private:
    HANDLE m_handle;
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_HANDLE_H
