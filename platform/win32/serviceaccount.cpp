#include "platform/win32/serviceaccount.h"

#include <windows.h>
//
#include <aclapi.h>
#include <bcrypt.h>
#include <ntsecapi.h>

#include <algorithm>
#include <cstring>
#include <cwctype>

namespace Platform {

namespace {

bool EqualsIgnoringCase(const std::wstring& a, const std::wstring& b) {
    return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()), TRUE) ==
           CSTR_EQUAL;
}

bool HashName(const std::wstring& upper, DWORD (&hash)[5]) {
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    if (BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA1_ALGORITHM, nullptr, 0) < 0) return false;
    std::vector<UCHAR> bytes(upper.size() * sizeof(wchar_t));
    std::memcpy(bytes.data(), upper.data(), bytes.size());
    const NTSTATUS status = BCryptHash(algorithm, nullptr, 0, bytes.data(), static_cast<ULONG>(bytes.size()),
                                       reinterpret_cast<UCHAR*>(hash), sizeof hash);
    BCryptCloseAlgorithmProvider(algorithm, 0);
    return status >= 0;
}

class CSecurity {
public:
    bool Read(const std::wstring& path) {
        const DWORD code = GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                                 nullptr, &m_list, nullptr, &m_descriptor);
        SetLastError(code);
        return code == ERROR_SUCCESS;
    }
    CSecurity() = default;
    CSecurity(const CSecurity&) = delete;
    CSecurity& operator=(const CSecurity&) = delete;
    ~CSecurity() {
        const DWORD code = GetLastError();
        LocalFree(m_descriptor);
        SetLastError(code);
    }

    ACL* GetList() const { return m_list; }
    bool InheritsNothing() const {
        SECURITY_DESCRIPTOR_CONTROL control = 0;
        DWORD revision = 0;
        return GetSecurityDescriptorControl(m_descriptor, &control, &revision) && (control & SE_DACL_PROTECTED) != 0;
    }

private:
    ACL* m_list = nullptr;
    PSECURITY_DESCRIPTOR m_descriptor = nullptr;
};

bool AddEntry(const std::wstring& path, const CSecurity& security, const SidBytes& who, DWORD inheritance) {
    EXPLICIT_ACCESSW entry{};
    entry.grfAccessPermissions = FILE_ALL_ACCESS & ~static_cast<DWORD>(WRITE_DAC | WRITE_OWNER);
    entry.grfAccessMode = GRANT_ACCESS;
    entry.grfInheritance = inheritance;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = TRUSTEE_IS_UNKNOWN;
    entry.Trustee.ptstrName = reinterpret_cast<LPWSTR>(const_cast<BYTE*>(who.data()));
    ACL* list = nullptr;
    DWORD code = SetEntriesInAclW(1, &entry, security.GetList(), &list);
    if (code == ERROR_SUCCESS) {
        std::wstring name = path;
        code = SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, list,
                                     nullptr);
        LocalFree(list);
    }
    SetLastError(code);
    return code == ERROR_SUCCESS;
}

// What inherits got the entry with its folder.
bool LetIntoWhatInheritsNothing(const std::wstring& folder, const SidBytes& who) {
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
    bool succeeded = true;
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L".." || (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) continue;
        const std::wstring path = folder + L'\\' + name;
        const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        CSecurity security;
        const DWORD inheritance = isFolder ? SUB_CONTAINERS_AND_OBJECTS_INHERIT : NO_INHERITANCE;
        if (security.Read(path) && security.InheritsNothing())
            succeeded = AddEntry(path, security, who, inheritance) && succeeded;
        if (isFolder) succeeded = LetIntoWhatInheritsNothing(path, who) && succeeded;
    } while (FindNextFileW(search, &found));
    const DWORD code = GetLastError();
    FindClose(search);
    SetLastError(code == ERROR_NO_MORE_FILES ? static_cast<DWORD>(ERROR_ACCESS_DENIED) : code);
    return succeeded && code == ERROR_NO_MORE_FILES;
}

}  // namespace

bool GetServiceSid(const std::wstring& service, SidBytes& sid) {
    constexpr DWORD ServiceAuthority = 80;
    std::wstring upper = service;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](wchar_t c) { return static_cast<wchar_t>(std::towupper(c)); });
    DWORD hash[5];
    if (!HashName(upper, hash)) return false;
    SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
    sid.assign(GetSidLengthRequired(6), 0);
    if (!InitializeSid(sid.data(), &authority, 6)) return false;
    *GetSidSubAuthority(sid.data(), 0) = ServiceAuthority;
    for (DWORD i = 0; i < 5; ++i)
        *GetSidSubAuthority(sid.data(), i + 1) = hash[i];
    return true;
}

bool FindAccountSid(const std::wstring& account, SidBytes& sid) {
    std::wstring name = account.starts_with(L".\\") ? account.substr(2) : account;
    if (EqualsIgnoringCase(name, L"LocalSystem")) name = L"SYSTEM";
    DWORD size = SECURITY_MAX_SID_SIZE;
    sid.assign(size, 0);
    wchar_t domain[256];
    DWORD domainLength = 256;
    SID_NAME_USE use;
    return LookupAccountNameW(nullptr, name.c_str(), sid.data(), &size, domain, &domainLength, &use) != FALSE;
}

std::wstring FullAccountName(const std::wstring& account) {
    if (account.find_first_of(L"\\@") != std::wstring::npos || EqualsIgnoringCase(account, L"LocalSystem"))
        return account;
    return L".\\" + account;
}

bool GrantServiceLogon(const SidBytes& account) {
    LSA_OBJECT_ATTRIBUTES attributes{};
    LSA_HANDLE policy = nullptr;
    NTSTATUS status = LsaOpenPolicy(nullptr, &attributes, POLICY_CREATE_ACCOUNT | POLICY_LOOKUP_NAMES, &policy);
    if (status >= 0) {
        std::wstring name = L"SeServiceLogonRight";
        const auto bytes = static_cast<USHORT>(name.size() * sizeof(wchar_t));
        LSA_UNICODE_STRING right{bytes, static_cast<USHORT>(bytes + sizeof(wchar_t)), name.data()};
        status = LsaAddAccountRights(policy, const_cast<BYTE*>(account.data()), &right, 1);
        LsaClose(policy);
    }
    SetLastError(status >= 0 ? static_cast<ULONG>(ERROR_SUCCESS) : LsaNtStatusToWinError(status));
    return status >= 0;
}

bool LetIntoFolder(const std::wstring& folder, const SidBytes& who) {
    CSecurity security;
    return security.Read(folder) && AddEntry(folder, security, who, SUB_CONTAINERS_AND_OBJECTS_INHERIT) &&
           LetIntoWhatInheritsNothing(folder, who);
}

}  // namespace Platform
