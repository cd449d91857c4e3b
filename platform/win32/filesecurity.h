// filesecurity.h - the access lists of what is for its owner only.

#ifndef LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H
#define LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H

#include <windows.h>

namespace Platform {

// This user, the administrators and the system, nothing inherited.  nullptr
// when the system cannot say who the user is.  Lives as long as the process.
SECURITY_DESCRIPTOR* OwnerOnlyDescriptor() noexcept;

// The same for a folder, and all that is made in it.
SECURITY_DESCRIPTOR* OwnerOnlyFolderDescriptor() noexcept;

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H
