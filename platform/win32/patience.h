// patience.h - what another program has open is tried again for a while.
//
// Programs that look at every file (scanners, indexers, backups) open it for a
// moment in a way that keeps others out, and systems without POSIX semantics
// for names refuse to replace a file that is open.

#ifndef LISTHAVEN_PLATFORM_WIN32_PATIENCE_H
#define LISTHAVEN_PLATFORM_WIN32_PATIENCE_H

#include <windows.h>

#include <algorithm>

namespace Platform {

class CPatience {
public:
    explicit CPatience(DWORD milliseconds) noexcept : m_end(GetTickCount64() + milliseconds) {}

    // Waits a little, not at all the first times: most files are open for a
    // moment only.  False when the time is over.  Keeps GetLastError().
    bool IsLeft() noexcept {
        if (GetTickCount64() >= m_end) return false;
        constexpr DWORD AtOnce = 8;
        constexpr DWORD LongestPause = 10;  // milliseconds; short, for the gaps between many readers
        const DWORD code = GetLastError();
        Sleep(m_tries < AtOnce ? 0 : std::min(m_tries - AtOnce + 1, LongestPause));
        SetLastError(code);
        ++m_tries;
        return true;
    }

private:
    ULONGLONG m_end;
    DWORD m_tries = 0;
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_PATIENCE_H
