// The operations of file.h on names.
//
// Windows 10 and later know names as POSIX does on their own file system: a
// file that is open can be replaced and removed, and its name is free at once.
// Where that is not so (other file systems, shares), a file that somebody else
// has open is moved aside before it is removed, and replacing one waits.

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <vector>

#include "platform/faultplan.h"
#include "platform/file.h"
#include "platform/guid.h"
#include "platform/knownfolders.h"
#include "platform/win32/errornumbers.h"
#include "platform/win32/filesecurity.h"
#include "platform/win32/handle.h"
#include "platform/win32/patience.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD NamePatience = 5000;  // milliseconds

// The headers have these names only for newer systems than they are used with.
constexpr auto DispositionClass = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
constexpr auto RenameClass = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
constexpr DWORD RemoveFlags = 0x01 | 0x02 | 0x10;   // delete, POSIX semantics, read-only or not
constexpr DWORD ReplaceFlags = 0x01 | 0x02 | 0x40;  // replace, POSIX semantics, read-only or not

// The name itself, should it be a link.
HANDLE OpenName(const std::wstring& path, DWORD access, DWORD share) {
    const DWORD through = IsFlushEnabled() ? FILE_FLAG_WRITE_THROUGH : 0;
    return CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT | through, nullptr);
}

bool IsUnknownRequest(DWORD code) {
    return code == ERROR_INVALID_PARAMETER || code == ERROR_INVALID_FUNCTION || code == ERROR_NOT_SUPPORTED ||
           code == ERROR_INVALID_LEVEL || code == ERROR_CALL_NOT_IMPLEMENTED;
}

// Learnt from the first refusal.
std::atomic<bool> g_knowsPosixNames{true};

bool KnowsPosixNames() {
    return g_knowsPosixNames.load(std::memory_order_relaxed);
}

bool IsRefusal(DWORD code) {
    if (!IsUnknownRequest(code)) return false;
    g_knowsPosixNames.store(false, std::memory_order_relaxed);
    return true;
}

bool RenameHandle(HANDLE handle, const std::wstring& to, FILE_INFO_BY_HANDLE_CLASS how, DWORD flags) {
    const std::size_t bytes = to.size() * sizeof(wchar_t);
    std::vector<std::byte> buffer(sizeof(FILE_RENAME_INFO) + bytes);
    auto* const information = reinterpret_cast<FILE_RENAME_INFO*>(buffer.data());
    information->Flags = flags;
    information->FileNameLength = static_cast<DWORD>(bytes);
    std::memcpy(information->FileName, to.data(), bytes);
    return SetFileInformationByHandle(handle, how, information, static_cast<DWORD>(buffer.size())) != 0;
}

bool MarkRemoved(HANDLE handle) {
    FILE_DISPOSITION_INFO information = {TRUE};
    return SetFileInformationByHandle(handle, FileDispositionInfo, &information, sizeof(information)) != 0;
}

DWORD AttributesOf(const std::wstring& path) {
    return GetFileAttributesW(path.c_str());
}

bool IsRealFolder(DWORD attributes) {
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

// A read-only file is made writable while it lives, and read-only again unless it is gone.
class CWritable {
public:
    explicit CWritable(const std::wstring& path) : m_path(path), m_attributes(AttributesOf(path)) {
        if (!IsNeeded()) return;
        SetFileAttributesW(path.c_str(), m_attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    }
    CWritable(const CWritable&) = delete;
    CWritable& operator=(const CWritable&) = delete;
    ~CWritable() {
        if (!IsNeeded()) return;
        const DWORD code = GetLastError();
        SetFileAttributesW(m_path.c_str(), m_attributes);
        SetLastError(code);
    }
    void IsGone() noexcept { m_attributes = INVALID_FILE_ATTRIBUTES; }

private:
    bool IsNeeded() const {
        return m_attributes != INVALID_FILE_ATTRIBUTES && (m_attributes & FILE_ATTRIBUTE_READONLY) != 0;
    }
    const std::wstring& m_path;
    DWORD m_attributes;
};

// A name in the same folder that the programs take for one of their leftovers.
std::wstring NameAside(const std::wstring& path) {
    return path.substr(0, path.rfind(L'\\') + 1) + L"~" + std::to_wstring(RandomNumber()) + L".tmp";
}

// Moved aside, so that the name is free although somebody has it open.
bool RemoveAside(const std::wstring& path) {
    const CHandle file(OpenName(path, DELETE | SYNCHRONIZE, ShareAll));
    if (!file) return false;
    const bool isMoved = RenameHandle(file.Get(), NameAside(path), FileRenameInfo, 0);
    if (MarkRemoved(file.Get())) return true;
    const DWORD code = GetLastError();
    if (isMoved) RenameHandle(file.Get(), path, FileRenameInfo, 0);
    SetLastError(code);
    return false;
}

bool RemovePlainly(const std::wstring& path) {
    CWritable writable(path);
    bool isRemoved = false;
    {
        const CHandle file(OpenName(path, DELETE | SYNCHRONIZE, 0));  // alone
        isRemoved = file && MarkRemoved(file.Get());
        if (!file && GetLastError() == ERROR_SHARING_VIOLATION) isRemoved = RemoveAside(path);
    }
    if (isRemoved) writable.IsGone();
    return isRemoved;
}

bool RemoveOnce(const std::wstring& path) {
    if (KnowsPosixNames()) {
        const CHandle file(OpenName(path, DELETE | SYNCHRONIZE, ShareAll));
        if (!file) return false;
        DWORD flags = RemoveFlags;
        if (SetFileInformationByHandle(file.Get(), DispositionClass, &flags, sizeof(flags))) return true;
        if (!IsRefusal(GetLastError())) return false;
    }
    return RemovePlainly(path);
}

// As far as rights go.
bool MayRemove(const std::wstring& path) {
    const CHandle file(OpenName(path, DELETE | SYNCHRONIZE, ShareAll));
    return file || GetLastError() == ERROR_SHARING_VIOLATION;
}

bool ReplacePlainly(const std::wstring& from, const std::wstring& to) {
    CWritable writable(to);
    const DWORD through = IsFlushEnabled() ? MOVEFILE_WRITE_THROUGH : 0;
    if (!MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | through)) return false;
    writable.IsGone();
    return true;
}

bool ReplaceOnce(const std::wstring& from, const std::wstring& to) {
    if (KnowsPosixNames()) {
        const CHandle file(OpenName(from, DELETE | SYNCHRONIZE, ShareAll));
        if (!file) return false;
        if (RenameHandle(file.Get(), to, RenameClass, ReplaceFlags)) return true;
        if (!IsRefusal(GetLastError())) return false;
    }
    return ReplacePlainly(from, to);
}

// A folder takes the place of an empty one, a file never that of a folder.
bool MakeRoom(const std::wstring& from, const std::wstring& to) {
    if (!IsRealFolder(AttributesOf(to))) return true;
    if (!IsRealFolder(AttributesOf(from))) {
        SetLastError(IsFolderCode);
        return false;
    }
    return CompareStringOrdinal(from.c_str(), -1, to.c_str(), -1, TRUE) == CSTR_EQUAL || RemoveDirectoryW(to.c_str());
}

// A file that is open is refused with the same code as one that this user has
// no right to.  Nor can a folder be moved while something in it is open.
bool MayPass(DWORD code, const std::wstring& a, const std::wstring& b, int& doubts) {
    if (code != ERROR_ACCESS_DENIED) return code == ERROR_SHARING_VIOLATION;
    return IsRealFolder(AttributesOf(a)) || (MayRemove(a) && MayRemove(b)) || doubts-- > 0;
}

// step() is repeated while others keep "a" or "b" open.
template <class F>
bool Patiently(const std::wstring& a, const std::wstring& b, F step) {
    int doubts = 3;
    for (CPatience patience(NamePatience);;) {
        if (step()) return true;
        const DWORD code = GetLastError();
        const bool mayPass = MayPass(code, a, b, doubts);
        SetLastError(code);
        if (!mayPass || !patience.IsLeft()) return false;
    }
}

// What is made there may be read by every user of the machine, if nothing else is said.
bool IsForAllUsers(const std::wstring& folder) {
    static const std::wstring common = SystemPath(CommonApplicationDataFolder());
    return !common.empty() && CompareStringOrdinal(folder.c_str(), -1, common.c_str(), -1, TRUE) == CSTR_EQUAL;
}

bool FailAsNotFound() {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return false;
}

}  // namespace

bool RenameReplacing(std::string_view from, std::string_view to) {
    if (HitsFault(Operation::Rename)) return false;
    const std::wstring source = SystemPath(from);
    const std::wstring target = SystemPath(to);
    if (source.empty() || target.empty()) return FailAsNotFound();
    return Patiently(source, target, [&] { return MakeRoom(source, target) && ReplaceOnce(source, target); });
}

bool RenameNew(std::string_view from, std::string_view to) {
    if (HitsFault(Operation::Rename)) return false;
    const std::wstring source = SystemPath(from);
    const std::wstring target = SystemPath(to);
    if (source.empty() || target.empty()) return FailAsNotFound();
    const DWORD through = IsFlushEnabled() ? MOVEFILE_WRITE_THROUGH : 0;
    return Patiently(source, target, [&] { return MoveFileExW(source.c_str(), target.c_str(), through) != 0; });
}

bool LinkFile(std::string_view from, std::string_view to) {
    if (HitsFault(Operation::Rename)) return false;
    const std::wstring source = SystemPath(from);
    const std::wstring target = SystemPath(to);
    if (source.empty() || target.empty()) return FailAsNotFound();
    return Patiently(source, target, [&] { return CreateHardLinkW(target.c_str(), source.c_str(), nullptr) != 0; });
}

bool RemoveFile(std::string_view path) {
    if (HitsFault(Operation::Remove)) return false;
    const std::wstring name = SystemPath(path);
    if (name.empty()) return FailAsNotFound();
    if (IsRealFolder(AttributesOf(name))) {
        SetLastError(IsFolderCode);
        return false;
    }
    return Patiently(name, name, [&] { return RemoveOnce(name); });
}

bool MakeFolder(std::string_view path) {
    if (HitsFault(Operation::MakeFolder)) return false;
    const std::wstring name = SystemPath(path);
    SECURITY_ATTRIBUTES security = {sizeof(security), nullptr, FALSE};
    if (IsForAllUsers(name.substr(0, name.rfind(L'\\')))) security.lpSecurityDescriptor = OwnerOnlyFolderDescriptor();
    return CreateDirectoryW(name.c_str(), &security) != 0;
}

namespace {

// A folder that is open elsewhere does not say that it is not empty either.
bool HoldsSomething(const std::wstring& folder) {
    WIN32_FIND_DATAW entry;
    const HANDLE search =
        FindFirstFileExW((folder + L"\\*").c_str(), FindExInfoBasic, &entry, FindExSearchNameMatch, nullptr, 0);
    if (search == INVALID_HANDLE_VALUE) return false;
    const std::wstring_view self = L".";
    const std::wstring_view parent = L"..";
    bool isFound = false;
    do
        isFound = entry.cFileName != self && entry.cFileName != parent;
    while (!isFound && FindNextFileW(search, &entry));
    FindClose(search);
    return isFound;
}

}  // namespace

bool RemoveEmptyFolder(std::string_view path) {
    if (HitsFault(Operation::Remove)) return false;
    const std::wstring name = SystemPath(path);
    if (name.empty()) return FailAsNotFound();
    return Patiently(name, name, [&] {
        if (RemoveDirectoryW(name.c_str())) return true;
        const DWORD code = GetLastError();
        SetLastError(HoldsSomething(name) ? ERROR_DIR_NOT_EMPTY : code);
        return false;
    });
}

// A name with the prefix would stay in the way of relative names.
bool ChangeToFolder(std::string_view path) {
    std::wstring name = SystemPath(path);
    constexpr std::wstring_view Prefix = L"\\\\?\\";
    constexpr std::wstring_view SharePrefix = L"\\\\?\\UNC\\";
    if (name.starts_with(SharePrefix))
        name = L"\\\\" + name.substr(SharePrefix.size());
    else if (name.starts_with(Prefix))
        name = name.substr(Prefix.size());
    return SetCurrentDirectoryW(name.c_str()) != 0;
}

std::string WorkingFolder() {
    return FromWide(WorkingFolderPath());
}

std::string NameForLibraries(std::string_view path) {
    return FromWide(SystemPath(path));
}

}  // namespace Platform
