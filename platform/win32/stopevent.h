// stopevent.h - the event by which one program asks another to stop.

#ifndef LISTHAVEN_PLATFORM_WIN32_STOPEVENT_H
#define LISTHAVEN_PLATFORM_WIN32_STOPEVENT_H

#include <windows.h>

#include <string>

namespace Platform {

// Made by a process that catches stop signals.  In the name space of the
// session: its user's own programs may set it, nobody else.
inline std::wstring StopEventName(DWORD processId) {
    return L"Local\\Vantorel.Listhaven.3.Stop." + std::to_wstring(processId);
}

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_STOPEVENT_H
