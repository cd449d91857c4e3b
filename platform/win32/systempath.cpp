#include "platform/win32/systempath.h"

#include <windows.h>

#include <algorithm>

namespace Platform {

namespace {

constexpr std::wstring_view PlainPrefix = L"\\\\?\\";
constexpr std::wstring_view SharePrefix = L"\\\\?\\UNC\\";

bool IsDrive(std::wstring_view path) {
    const auto isLetter = [](wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); };
    return path.size() >= 2 && isLetter(path[0]) && path[1] == L':';
}

// "C:" or "\\server\share" of a full name; 0 for every other name.
std::size_t RootLength(std::wstring_view path) {
    if (IsDrive(path)) return path.size() == 2 || path[2] == L'\\' ? 2 : 0;
    if (!path.starts_with(L"\\\\")) return 0;
    const std::size_t server = path.find_first_not_of(L'\\', 2);
    const std::size_t share = path.find_first_not_of(L'\\', std::min(path.find(L'\\', server), path.size()));
    if (server != 2 || share == path.npos) return 0;
    return std::min(path.find(L'\\', share), path.size());
}

// What "path" is relative to.
std::wstring MadeFull(const std::wstring& path) {
    if (IsDrive(path)) {
        std::wstring folder(32768, L'\0');
        folder.resize(
            GetFullPathNameW(path.substr(0, 2).c_str(), static_cast<DWORD>(folder.size()), folder.data(), nullptr));
        return folder + L'\\' + path.substr(2);
    }
    const std::wstring folder = WorkingFolderPath();
    if (path.starts_with(L'\\')) return folder.substr(0, RootLength(folder)) + path;
    return folder + L'\\' + path;
}

// False when a part names something else than a file or a folder.
bool AppendParts(std::wstring_view parts, std::wstring& path) {
    const std::size_t root = path.size();
    for (std::size_t at = 0; at < parts.size();) {
        const std::size_t end = std::min(parts.find(L'\\', at), parts.size());
        const std::wstring_view part = parts.substr(at, end - at);
        at = end + 1;
        if (part.empty() || part == L".") continue;
        if (part == L"..") {
            path.resize(std::max(root, std::min(path.rfind(L'\\'), path.size())));
            continue;
        }
        if (part.find(L':') != part.npos) return false;
        path += L'\\';
        path += part;
    }
    if (path.size() == root) path += L'\\';
    return true;
}

}  // namespace

std::wstring ToWide(std::string_view text) {
    const int size = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(std::max(length, 0)), L'\0');
    if (length > 0) MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(), length);
    return wide;
}

std::string FromWide(std::wstring_view text) {
    const int size = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(std::max(length, 0)), '\0');
    if (length > 0) WideCharToMultiByte(CP_UTF8, 0, text.data(), size, bytes.data(), length, nullptr, nullptr);
    return bytes;
}

std::wstring SystemPath(std::string_view path) {
    if (path.find('\0') != path.npos) return {};
    std::wstring full = ToWide(path);
    if (full.empty()) return {};
    std::replace(full.begin(), full.end(), L'/', L'\\');
    if (full.starts_with(PlainPrefix)) return full;
    if (full.starts_with(L"\\\\.\\")) return {};
    if (RootLength(full) == 0) full = MadeFull(full);
    const std::size_t root = RootLength(full);
    if (root == 0) return {};
    std::wstring result;
    if (full.starts_with(L"\\\\"))
        result.append(SharePrefix).append(full, 2, root - 2);
    else
        result.append(PlainPrefix).append(full, 0, root);
    return AppendParts(std::wstring_view(full).substr(root), result) ? result : std::wstring();
}

std::wstring WorkingFolderPath() {
    std::wstring path(260, L'\0');
    for (;;) {
        const DWORD length = GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data());
        if (length == 0) return {};
        const bool fits = length < path.size();
        path.resize(length);
        if (fits) break;
    }
    if (path.starts_with(SharePrefix)) return L"\\\\" + path.substr(SharePrefix.size());
    return path.starts_with(PlainPrefix) ? path.substr(PlainPrefix.size()) : path;
}

}  // namespace Platform
