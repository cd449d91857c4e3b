// errornumbers.h - codes that not all headers of the system have.

#ifndef LISTHAVEN_PLATFORM_WIN32_ERRORNUMBERS_H
#define LISTHAVEN_PLATFORM_WIN32_ERRORNUMBERS_H

#include <windows.h>

namespace Platform {

constexpr DWORD IsFolderCode = 336;        // ERROR_DIRECTORY_NOT_SUPPORTED
constexpr DWORD QuotaExceededCode = 1295;  // ERROR_DISK_QUOTA_EXCEEDED

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_ERRORNUMBERS_H
