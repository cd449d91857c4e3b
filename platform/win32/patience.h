// patience.h - what another program has open is tried again for a while.
//
// Programs that look at every file (scanners, indexers, backups) open it for a
// moment in a way that keeps others out, and systems without POSIX semantics
// for names refuse to replace a file that is open.

#ifndef LISTHAVEN_PLATFORM_WIN32_PATIENCE_H
#define LISTHAVEN_PLATFORM_WIN32_PATIENCE_H

#include <windows.h>

namespace Platform {

class CPatience {
public:
    explicit CPatience(DWORD milliseconds) noexcept : m_end(GetTickCount64() + milliseconds) {}

    // Waits a little, more each time; false when the time is over.  Keeps GetLastError().
    bool IsLeft() noexcept {
        const ULONGLONG now = GetTickCount64();
        if (now >= m_end) return false;
        const DWORD code = GetLastError();
        Sleep(m_pause);
        SetLastError(code);
        m_pause = m_pause < 32 ? m_pause * 2 : 50;
        return true;
    }

private:
    ULONGLONG m_end;
    DWORD m_pause = 1;
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_PATIENCE_H
