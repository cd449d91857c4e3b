#include "platform/filemode.h"

#include <windows.h>
// after windows.h
#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <cstring>
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

// "flags" say what inherits the entries, in the system's language for them.
SECURITY_DESCRIPTOR* MakeOwnerOnlyDescriptor(const std::wstring& flags, const std::wstring& furtherEntries = {}) {
    const std::wstring user = CurrentUser();
    if (user.empty()) return nullptr;
    std::wstring text = L"D:P";
    for (const std::wstring& who : {user, std::wstring(L"BA"), std::wstring(L"SY")})
        text += L"(A;" + flags + L";FA;;;" + who + L")";
    text += furtherEntries;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
        return nullptr;
    return static_cast<SECURITY_DESCRIPTOR*>(descriptor);
}

bool IsOfService(PSID sid) {
    constexpr DWORD ServiceAuthority = 80;
    constexpr SID_IDENTIFIER_AUTHORITY System = SECURITY_NT_AUTHORITY;
    return IsValidSid(sid) && std::memcmp(GetSidIdentifierAuthority(sid), &System, sizeof System) == 0 &&
           *GetSidSubAuthorityCount(sid) == 6 && *GetSidSubAuthority(sid, 0) == ServiceAuthority;
}

// A file system without access lists has nothing to carry over.
bool IsWithoutLists(DWORD code) {
    return code == ERROR_NOT_SUPPORTED || code == ERROR_INVALID_FUNCTION || code == ERROR_CALL_NOT_IMPLEMENTED;
}

struct AccessList {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    PACL list = nullptr;  // in it
    SECURITY_DESCRIPTOR_CONTROL control = 0;

    AccessList() = default;
    AccessList(const AccessList&) = delete;
    AccessList& operator=(const AccessList&) = delete;
    ~AccessList() { LocalFree(descriptor); }

    DWORD Read(HANDLE file) {
        const DWORD code = GetSecurityInfo(file, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                                           nullptr, &descriptor);
        DWORD revision = 0;
        if (code == ERROR_SUCCESS) GetSecurityDescriptorControl(descriptor, &control, &revision);
        return code;
    }
    bool IsProtected() const { return (control & SE_DACL_PROTECTED) != 0; }
    bool operator==(const AccessList& other) const {
        if (IsProtected() != other.IsProtected()) return false;
        if (!list || !other.list) return list == other.list;
        return list->AclSize == other.list->AclSize && std::memcmp(list, other.list, list->AclSize) == 0;
    }
};

// As it stands, with what it has inherited: both are in one folder.  The call
// that inherits anew would widen the list where the system keeps no mark that
// nothing is to be inherited.
DWORD CopyAccessList(HANDLE from, HANDLE to) {
    AccessList old, present;
    if (const DWORD code = old.Read(from); code != ERROR_SUCCESS) return code;
    if (present.Read(to) == ERROR_SUCCESS && old == present) return ERROR_SUCCESS;
    if ((old.control & SE_DACL_AUTO_INHERITED) != 0)
        SetSecurityDescriptorControl(old.descriptor, SE_DACL_AUTO_INHERIT_REQ, SE_DACL_AUTO_INHERIT_REQ);
    const SECURITY_INFORMATION kind =
        old.IsProtected() ? PROTECTED_DACL_SECURITY_INFORMATION : UNPROTECTED_DACL_SECURITY_INFORMATION;
    return SetKernelObjectSecurity(to, DACL_SECURITY_INFORMATION | kind, old.descriptor) ? ERROR_SUCCESS
                                                                                         : GetLastError();
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
    static SECURITY_DESCRIPTOR* const descriptor = MakeOwnerOnlyDescriptor(L"");
    return descriptor;
}

CLocalDescriptor OwnerAndServicesDescriptor(const std::wstring& folder) {
    AccessList access;
    const CHandle opened(CreateFileW(folder.c_str(), READ_CONTROL,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!opened || access.Read(opened.Get()) != ERROR_SUCCESS || access.list == nullptr) return {};
    std::wstring entries;
    for (DWORD i = 0; i < access.list->AceCount; ++i) {
        void* entry = nullptr;
        if (!GetAce(access.list, i, &entry) || static_cast<ACE_HEADER*>(entry)->AceType != ACCESS_ALLOWED_ACE_TYPE)
            continue;
        PSID sid = &static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart;
        wchar_t* text = nullptr;
        if (!IsOfService(sid) || !ConvertSidToStringSidW(sid, &text)) continue;
        entries += L"(A;;FA;;;" + std::wstring(text) + L")";
        LocalFree(text);
    }
    return CLocalDescriptor(entries.empty() ? nullptr : MakeOwnerOnlyDescriptor(L"", entries));
}

SECURITY_DESCRIPTOR* OwnerOnlyFolderDescriptor() noexcept {
    static SECURITY_DESCRIPTOR* const descriptor = MakeOwnerOnlyDescriptor(L"OICI");
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
