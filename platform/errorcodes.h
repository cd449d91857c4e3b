// errorcodes.h - the system's codes for failures that the platform code itself finds.

#ifndef LISTHAVEN_PLATFORM_ERRORCODES_H
#define LISTHAVEN_PLATFORM_ERRORCODES_H

#include "platform/systemerror.h"

namespace Platform {

SystemError NoSpaceError() noexcept;
SystemError InvalidArgumentError() noexcept;

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_ERRORCODES_H
