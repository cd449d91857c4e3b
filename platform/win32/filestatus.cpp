#include "platform/filestatus.h"

#include <windows.h>

#include "platform/win32/handle.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr std::int64_t NanosecondsPerTick = 100;
constexpr std::int64_t TicksPerSecond = 10'000'000;
constexpr std::int64_t TicksTo1970 = 11'644'473'600 * TicksPerSecond;  // since 1601
constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::int64_t TicksSince1970(const FILETIME& time) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime) -
           TicksTo1970;
}

FILETIME ToFileTime(std::int64_t nanoseconds) {
    std::int64_t ticks = nanoseconds / NanosecondsPerTick;
    if (nanoseconds % NanosecondsPerTick < 0) --ticks;
    const auto raw = static_cast<std::uint64_t>(ticks + TicksTo1970);
    return {static_cast<DWORD>(raw), static_cast<DWORD>(raw >> 32)};
}

HANDLE OpenExisting(const std::wstring& path, DWORD access) {
    return CreateFileW(path.c_str(), access, ShareAll, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

// Follows links.
bool Ask(const std::wstring& path, BY_HANDLE_FILE_INFORMATION& information) {
    const CHandle file(OpenExisting(path, FILE_READ_ATTRIBUTES));
    return file && GetFileInformationByHandle(file.Get(), &information);
}

DWORD Attributes(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return attributes;
    BY_HANDLE_FILE_INFORMATION information;
    return Ask(path, information) ? information.dwFileAttributes : INVALID_FILE_ATTRIBUTES;
}

bool IsFolder(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

bool GetFileStatus(std::string_view path, FileStatus& status) {
    BY_HANDLE_FILE_INFORMATION raw;
    if (!Ask(SystemPath(path), raw)) return false;
    status.isFolder = IsFolder(raw.dwFileAttributes);
    status.size = static_cast<std::uint64_t>(raw.nFileSizeHigh) << 32 | raw.nFileSizeLow;
    status.identity = static_cast<std::uint64_t>(raw.nFileIndexHigh) << 32 | raw.nFileIndexLow;
    status.times.modified = TicksSince1970(raw.ftLastWriteTime) * NanosecondsPerTick;
    status.times.created = TicksSince1970(raw.ftCreationTime) * NanosecondsPerTick;
    return true;
}

bool SetFileTimes(std::string_view path, const FileTimes& times) {
    const CHandle file(OpenExisting(SystemPath(path), FILE_WRITE_ATTRIBUTES));
    if (!file) return false;
    const FILETIME created = ToFileTime(times.created);
    const FILETIME modified = ToFileTime(times.modified);
    return SetFileTime(file.Get(), &created, nullptr, &modified) != 0;
}

bool MayWrite(std::string_view path) {
    const std::wstring name = SystemPath(path);
    const DWORD attributes = Attributes(name);
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    // The attribute of a folder says nothing of what may be done in it.
    if (!IsFolder(attributes) && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    const DWORD access = IsFolder(attributes) ? FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY : FILE_WRITE_DATA;
    const CHandle file(OpenExisting(name, access));
    return file || GetLastError() == ERROR_SHARING_VIOLATION;
}

bool FileIsThere(std::string_view path) {
    const DWORD attributes = Attributes(SystemPath(path));
    return attributes != INVALID_FILE_ATTRIBUTES && !IsFolder(attributes);
}

bool FolderIsThere(std::string_view path) {
    const DWORD attributes = Attributes(SystemPath(path));
    return attributes != INVALID_FILE_ATTRIBUTES && IsFolder(attributes);
}

std::int64_t NanosecondsSince1970() {
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    return TicksSince1970(now) * NanosecondsPerTick;
}

std::int64_t SecondsSince1970() {
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    return TicksSince1970(now) / TicksPerSecond;
}

}  // namespace Platform
