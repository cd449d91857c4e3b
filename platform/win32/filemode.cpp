#include "platform/filemode.h"

#include <windows.h>
// after windows.h
#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <string>

#include "platform/win32/filesecurity.h"
#include "platform/win32/handle.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

HANDLE OpenForAttributes(std::string_view path, DWORD access) {
    return CreateFileW(SystemPath(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

std::wstring CurrentUser() {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return {};
    const CHandle token(opened);
    alignas(TOKEN_USER) std::array<BYTE, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> buffer;
    DWORD length = 0;
    if (!GetTokenInformation(token.Get(), TokenUser, buffer.data(), static_cast<DWORD>(buffer.size()), &length))
        return {};
    wchar_t* text = nullptr;
    if (!ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid, &text)) return {};
    std::wstring user(text);
    LocalFree(text);
    return user;
}

SECURITY_DESCRIPTOR* MakeOwnerOnlyDescriptor() {
    const std::wstring user = CurrentUser();
    if (user.empty()) return nullptr;
    const std::wstring text = L"D:P(A;;FA;;;" + user + L")(A;;FA;;;BA)(A;;FA;;;SY)";
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
        return nullptr;
    return static_cast<SECURITY_DESCRIPTOR*>(descriptor);
}

// A file system without access lists has nothing to carry over.
bool IsWithoutLists(DWORD code) {
    return code == ERROR_NOT_SUPPORTED || code == ERROR_INVALID_FUNCTION || code == ERROR_CALL_NOT_IMPLEMENTED;
}

// What the old file inherited, the new one inherits again.
DWORD CopyAccessList(HANDLE from, HANDLE to) {
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD code =
        GetSecurityInfo(from, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list, nullptr, &descriptor);
    if (code != ERROR_SUCCESS) return code;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    GetSecurityDescriptorControl(descriptor, &control, &revision);
    const SECURITY_INFORMATION kind = (control & SE_DACL_PROTECTED) != 0 ? PROTECTED_DACL_SECURITY_INFORMATION
                                                                         : UNPROTECTED_DACL_SECURITY_INFORMATION;
    const DWORD result =
        SetSecurityInfo(to, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | kind, nullptr, nullptr, list, nullptr);
    LocalFree(descriptor);
    return result;
}

bool CopyReadOnly(HANDLE from, HANDLE to) {
    BY_HANDLE_FILE_INFORMATION information;
    FILE_BASIC_INFO basic;
    if (!GetFileInformationByHandle(from, &information) ||
        !GetFileInformationByHandleEx(to, FileBasicInfo, &basic, sizeof(basic)))
        return false;
    const DWORD readOnly = information.dwFileAttributes & FILE_ATTRIBUTE_READONLY;
    if ((basic.FileAttributes & FILE_ATTRIBUTE_READONLY) == readOnly) return true;
    FILE_BASIC_INFO change = {};  // times that are 0 stay
    change.FileAttributes = (basic.FileAttributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY)) | readOnly;
    return SetFileInformationByHandle(to, FileBasicInfo, &change, sizeof(change)) != 0;
}

}  // namespace

SECURITY_DESCRIPTOR* OwnerOnlyDescriptor() noexcept {
    static SECURITY_DESCRIPTOR* const descriptor = MakeOwnerOnlyDescriptor();
    return descriptor;
}

bool CopyFileMode(std::string_view from, std::string_view to) {
    const CHandle source(OpenForAttributes(from, READ_CONTROL | FILE_READ_ATTRIBUTES));
    if (!source) return false;
    const CHandle target(
        OpenForAttributes(to, READ_CONTROL | WRITE_DAC | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES));
    if (!target) return false;
    const DWORD code = CopyAccessList(source.Get(), target.Get());
    if (code != ERROR_SUCCESS && !IsWithoutLists(code)) {
        SetLastError(code);
        return false;
    }
    return CopyReadOnly(source.Get(), target.Get());
}

}  // namespace Platform
