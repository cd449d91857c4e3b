// systemerror.h - the operating system's error codes and their texts.
//
// A code is what the system calls its error number (errno, GetLastError()).
// 0 is "no error".  Codes are only comparable within one system; code that has
// to tell causes apart asks the predicates below.

#ifndef LISTHAVEN_PLATFORM_SYSTEMERROR_H
#define LISTHAVEN_PLATFORM_SYSTEMERROR_H

#include <cstdint>
#include <string>

namespace Platform {

using SystemError = std::uint32_t;

SystemError LastSystemError() noexcept;  // of the calling thread
void SetLastSystemError(SystemError code) noexcept;

// The system's own words, without line end; "Unknown error N" for a code that
// the system does not know.
std::string SystemErrorText(SystemError code);

bool IsNotFound(SystemError code) noexcept;      // file or one of its folders
bool IsAlreadyThere(SystemError code) noexcept;  // exists
bool IsAccessDenied(SystemError code) noexcept;  // also a read-only file system
bool IsNoSpace(SystemError code) noexcept;       // disk or quota full
bool IsNotEmpty(SystemError code) noexcept;      // folder that still holds something

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_SYSTEMERROR_H
