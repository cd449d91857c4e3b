// filehandle.h - closes a handle of the system, keeping GetLastError(); codes
// that not all of its headers have.

#ifndef LISTHAVEN_PLATFORM_WIN32_FILEHANDLE_H
#define LISTHAVEN_PLATFORM_WIN32_FILEHANDLE_H

#include <windows.h>

namespace Platform {

constexpr DWORD IsFolderCode = 336;        // ERROR_DIRECTORY_NOT_SUPPORTED
constexpr DWORD QuotaExceededCode = 1295;  // ERROR_DISK_QUOTA_EXCEEDED

class CFileHandle {
public:
    explicit CFileHandle(HANDLE handle) noexcept : m_handle(handle) {}
    CFileHandle(const CFileHandle&) = delete;
    CFileHandle& operator=(const CFileHandle&) = delete;
    ~CFileHandle() {
        if (!IsOpen()) return;
        const DWORD code = GetLastError();
        CloseHandle(m_handle);
        SetLastError(code);
    }

    HANDLE Get() const noexcept { return m_handle; }
    bool IsOpen() const noexcept { return m_handle != INVALID_HANDLE_VALUE; }

private:
    HANDLE m_handle;
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_FILEHANDLE_H
