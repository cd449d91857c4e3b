#include "platform/knownfolders.h"

#include <windows.h>
// after windows.h
#include <shlobj.h>

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
