#include "platform/knownfolders.h"

#include <windows.h>
// after windows.h
#include <shlobj.h>

#include "platform/win32/handle.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

std::string WithoutSeparator(std::wstring path) {
    while (path.size() > 3 && (path.back() == L'\\' || path.back() == L'/'))
        path.pop_back();
    return FromWide(path);
}

}  // namespace

std::string CommonApplicationDataFolder() {
    wchar_t path[MAX_PATH] = {};
    const HRESULT result =
        SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT, path);
    return result == S_OK ? WithoutSeparator(path) : std::string();
}

std::string CanonicalFolder(const std::string& path) {
    const CHandle folder(CreateFileW(SystemPath(path).c_str(), 0,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!folder) return path;
    std::wstring found(32768, L'\0');
    const DWORD size = GetFinalPathNameByHandleW(folder.Get(), found.data(), static_cast<DWORD>(found.size()), 0);
    if (size == 0 || size >= found.size()) return path;
    found.resize(size);
    constexpr std::wstring_view Prefix = L"\\\\?\\";
    constexpr std::wstring_view SharePrefix = L"\\\\?\\UNC\\";
    if (found.starts_with(SharePrefix))
        found.replace(0, SharePrefix.size(), L"\\\\");
    else if (found.starts_with(Prefix))
        found.erase(0, Prefix.size());
    return WithoutSeparator(std::move(found));
}

std::string TemporaryFolder() {
    std::wstring path(MAX_PATH + 2, L'\0');
    path.resize(GetTempPathW(static_cast<DWORD>(path.size()), path.data()));
    return WithoutSeparator(path);
}

char PathSeparator() noexcept {
    return '\\';
}

bool PathsIgnoreCase() noexcept {
    return true;
}

}  // namespace Platform
