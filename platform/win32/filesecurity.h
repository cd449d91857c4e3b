// filesecurity.h - the access lists of what is for its owner only.

#ifndef LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H
#define LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H

#include <windows.h>

#include <memory>
#include <string>

namespace Platform {

// This user, the administrators and the system, nothing inherited.  nullptr
// when the system cannot say who the user is.  Lives as long as the process.
SECURITY_DESCRIPTOR* OwnerOnlyDescriptor() noexcept;

// The same for a folder, and all that is made in it.
SECURITY_DESCRIPTOR* OwnerOnlyFolderDescriptor() noexcept;

struct CLocalCloser {
    void operator()(SECURITY_DESCRIPTOR* descriptor) const noexcept { LocalFree(descriptor); }
};
using CLocalDescriptor = std::unique_ptr<SECURITY_DESCRIPTOR, CLocalCloser>;

// As OwnerOnlyDescriptor(), and the services that somebody has let into the
// folder: else a front end would make files that its server cannot read.  None
// when there are no such services.
CLocalDescriptor OwnerAndServicesDescriptor(const std::wstring& folder);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_FILESECURITY_H
