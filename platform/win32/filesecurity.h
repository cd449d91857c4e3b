// filesecurity.h - the access list of files that are for their owner only.

#ifndef LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H
#define LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H

#include <windows.h>

namespace Platform {

// This user, the administrators and the system, nothing inherited.  nullptr
// when the system cannot say who the user is.  Lives as long as the process.
SECURITY_DESCRIPTOR* OwnerOnlyDescriptor() noexcept;

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H
