#include "platform/systemerror.h"

#include <windows.h>

#include "platform/errorcodes.h"
#include "platform/win32/errornumbers.h"
#include "platform/win32/systempath.h"

namespace Platform {

SystemError LastSystemError() noexcept {
    return GetLastError();
}

void SetLastSystemError(SystemError code) noexcept {
    SetLastError(code);
}

std::string SystemErrorText(SystemError code) {
    const DWORD before = GetLastError();
    wchar_t* text = nullptr;
    // Line ends within a text become blanks.
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                            FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
                                        nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL),
                                        reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::string result = text ? FromWide(std::wstring_view(text, length)) : std::string();
    LocalFree(text);
    result.resize(result.find_last_not_of(" \r\n") + 1);
    if (result.empty()) result = "Unknown error " + std::to_string(code);
    SetLastError(before);
    return result;
}

bool IsNotFound(SystemError code) noexcept {
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND || code == ERROR_INVALID_NAME ||
           code == ERROR_BAD_PATHNAME || code == ERROR_DIRECTORY;
}

bool IsAlreadyThere(SystemError code) noexcept {
    return code == ERROR_ALREADY_EXISTS || code == ERROR_FILE_EXISTS;
}

bool IsAccessDenied(SystemError code) noexcept {
    return code == ERROR_ACCESS_DENIED || code == ERROR_WRITE_PROTECT || code == ERROR_PRIVILEGE_NOT_HELD;
}

bool IsNoSpace(SystemError code) noexcept {
    return code == ERROR_DISK_FULL || code == ERROR_HANDLE_DISK_FULL || code == QuotaExceededCode;
}

bool IsNotEmpty(SystemError code) noexcept {
    return code == ERROR_DIR_NOT_EMPTY;
}

SystemError NoSpaceError() noexcept {
    return ERROR_DISK_FULL;
}

SystemError InvalidArgumentError() noexcept {
    return ERROR_INVALID_PARAMETER;
}

}  // namespace Platform
