#include "platform/systemerror.h"

#include <cerrno>
#include <system_error>

#include "platform/errorcodes.h"

namespace Platform {

SystemError LastSystemError() noexcept {
    return static_cast<SystemError>(errno);
}

void SetLastSystemError(SystemError code) noexcept {
    errno = static_cast<int>(code);
}

std::string SystemErrorText(SystemError code) {
    const int before = errno;
    std::string text = std::system_category().message(static_cast<int>(code));
    errno = before;
    return text;
}

bool IsNotFound(SystemError code) noexcept {
    return code == ENOENT || code == ENOTDIR;
}

bool IsAlreadyThere(SystemError code) noexcept {
    return code == EEXIST;
}

bool IsAccessDenied(SystemError code) noexcept {
    return code == EACCES || code == EPERM || code == EROFS;
}

bool IsNoSpace(SystemError code) noexcept {
    return code == ENOSPC || code == EDQUOT;
}

bool IsNotEmpty(SystemError code) noexcept {
    return code == ENOTEMPTY || code == EEXIST;
}

SystemError NoSpaceError() noexcept {
    return ENOSPC;
}

SystemError InvalidArgumentError() noexcept {
    return EINVAL;
}

}  // namespace Platform
