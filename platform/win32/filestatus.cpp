#include "platform/filestatus.h"

#include <windows.h>
// after windows.h
#include <ntsecapi.h>

#include <cstddef>

#include "platform/win32/handle.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr std::int64_t NanosecondsPerTick = 100;
constexpr std::int64_t TicksPerSecond = 10'000'000;
constexpr std::int64_t TicksTo1970 = 11'644'473'600 * TicksPerSecond;  // since 1601
constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::int64_t ToNanoseconds(std::int64_t ticks) {
    return (ticks - TicksTo1970) * NanosecondsPerTick;
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

// What the call below tells; no header of all compilers has it.
struct AllInformation {
    FILE_BASIC_INFO basic;
    FILE_STANDARD_INFO standard;
    LARGE_INTEGER index;
    std::byte further[64];  // with the beginning of the name
};
static_assert(offsetof(AllInformation, index) == 64);

using QueryCall = NTSTATUS(NTAPI*)(HANDLE, void* status, void* information, ULONG size, int what);

QueryCall TheQuery() {
    static const auto query = reinterpret_cast<QueryCall>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationFile")));
    return query;
}

// Follows links.  Everything at once, and without what the documented call asks
// of the volume besides.
bool Ask(const std::wstring& path, AllInformation& information) {
    const CHandle file(OpenExisting(path, FILE_READ_ATTRIBUTES));
    if (!file) return false;
    constexpr int FileAllInformation = 18;
    constexpr NTSTATUS NameIsLonger = static_cast<NTSTATUS>(0x80000005);
    ULONG_PTR status[2] = {};
    const NTSTATUS result = TheQuery()(file.Get(), status, &information, sizeof(information), FileAllInformation);
    if (result >= 0 || result == NameIsLonger) return true;
    SetLastError(LsaNtStatusToWinError(result));
    return false;
}

DWORD Attributes(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return attributes;
    AllInformation information;
    return Ask(path, information) ? information.basic.FileAttributes : INVALID_FILE_ATTRIBUTES;
}

bool IsFolder(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

bool GetFileStatus(std::string_view path, FileStatus& status) {
    AllInformation raw;
    if (!Ask(SystemPath(path), raw)) return false;
    status.isFolder = IsFolder(raw.basic.FileAttributes);
    status.size = status.isFolder ? 0 : static_cast<std::uint64_t>(raw.standard.EndOfFile.QuadPart);
    status.identity = static_cast<std::uint64_t>(raw.index.QuadPart);
    status.times.modified = ToNanoseconds(raw.basic.LastWriteTime.QuadPart);
    status.times.created = ToNanoseconds(raw.basic.CreationTime.QuadPart);
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
    const auto high = static_cast<std::uint64_t>(now.dwHighDateTime) << 32;
    return ToNanoseconds(static_cast<std::int64_t>(high | now.dwLowDateTime));
}

std::int64_t SecondsSince1970() {
    return NanosecondsSince1970() / 1'000'000'000;
}

}  // namespace Platform
