// sessionend.h - tells of the user logging off and of the machine shutting down.

#ifndef LISTHAVEN_PLATFORM_WIN32_SESSIONEND_H
#define LISTHAVEN_PLATFORM_WIN32_SESSIONEND_H

namespace Platform {

// The system tells console programs that have loaded user32.dll nothing of
// either: it asks windows.  So a thread with a hidden one calls stop() once and
// then holds the end up, as long as the system lets it, until the process ends.
void WatchSessionEnd(void (*stop)());

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_SESSIONEND_H
