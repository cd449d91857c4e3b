#include "platform/file.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "platform/faultplan.h"
#include "platform/win32/errornumbers.h"
#include "platform/win32/filesecurity.h"
#include "platform/win32/handle.h"
#include "platform/win32/patience.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD OpenPatience = 2000;  // milliseconds
constexpr std::size_t MostAtOnce = 1U << 30;

std::atomic<bool> g_flushEnabled{true};

// In place of an offset: the end of the file, wherever it is by then.
constexpr std::uint64_t AtEnd = ~std::uint64_t{0};

// Reads and writes at an offset move the system's file pointer too, so the
// place of the next Write() is kept here.
struct OpenFile {
    HANDLE handle;
    bool appends;
    std::uint64_t next = 0;
};

OpenFile* Opened(std::intptr_t handle) {
    return reinterpret_cast<OpenFile*>(handle);
}

DWORD AccessOf(FileMode mode) {
    if (mode == FileMode::Read) return GENERIC_READ;
    return mode == FileMode::Append ? GENERIC_WRITE | FILE_READ_ATTRIBUTES : GENERIC_READ | GENERIC_WRITE;
}

DWORD DispositionOf(FileMode mode) {
    switch (mode) {
        case FileMode::Read:
        case FileMode::ReadWrite:
            return OPEN_EXISTING;
        case FileMode::CreateNew:
            return CREATE_NEW;
        default:
            return OPEN_ALWAYS;
    }
}

// A file that was removed while somebody has it open keeps its name until he
// closes it, where the system knows no better.
bool IsBeingRemoved() {
    using Function = LONG(WINAPI*)();
    static const auto lastStatus = reinterpret_cast<Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetLastNtStatus")));
    constexpr LONG DeletePending = static_cast<LONG>(0xC0000056);
    return GetLastError() == ERROR_ACCESS_DENIED && lastStatus && lastStatus() == DeletePending;
}

HANDLE OpenPatiently(const std::wstring& path, FileMode mode, SECURITY_ATTRIBUTES* security) {
    for (CPatience patience(OpenPatience);;) {
        const HANDLE handle = CreateFileW(path.c_str(), AccessOf(mode), ShareAll, security, DispositionOf(mode),
                                          FILE_ATTRIBUTE_NORMAL, nullptr);
        if (handle != INVALID_HANDLE_VALUE) return handle;
        const bool isRemoved = IsBeingRemoved();
        if (isRemoved && DispositionOf(mode) == OPEN_EXISTING) {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return handle;
        }
        if ((!isRemoved && GetLastError() != ERROR_SHARING_VIOLATION) || !patience.IsLeft()) return handle;
    }
}

bool SetEnd(HANDLE handle, std::uint64_t size) {
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
    return SetFileInformationByHandle(handle, FileEndOfFileInfo, &end, sizeof(end)) != 0;
}

OVERLAPPED At(std::uint64_t offset) {
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

// step(done, size, moved) moves some bytes and returns as ReadFile() and
// WriteFile() do.  False with error 0 when it moved none.
template <class F>
bool MoveAll(std::size_t size, std::size_t& done, F step) {
    done = 0;
    while (done < size) {
        DWORD moved = 0;
        if (!step(done, static_cast<DWORD>(std::min(size - done, MostAtOnce)), &moved)) return false;
        if (moved == 0) {
            SetLastError(ERROR_SUCCESS);
            return false;
        }
        done += moved;
    }
    return true;
}

bool WriteAll(HANDLE handle, std::uint64_t offset, const char* from, std::size_t size) {
    std::size_t done;
    return MoveAll(size, done, [&](std::size_t at, DWORD part, DWORD* moved) {
        OVERLAPPED place = At(offset == AtEnd ? AtEnd : offset + at);
        return WriteFile(handle, from + at, part, moved, &place);
    });
}

bool NotOpen() {
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
}

}  // namespace

CFile::CFile(CFile&& other) noexcept : m_handle(std::exchange(other.m_handle, -1)) {}

CFile& CFile::operator=(CFile&& other) noexcept {
    if (this != &other) {
        Close();
        m_handle = std::exchange(other.m_handle, -1);
    }
    return *this;
}

CFile::~CFile() {
    const DWORD code = GetLastError();
    Close();
    SetLastError(code);  // the reason of the failure that unwinds the caller
}

bool CFile::Open(std::string_view path, FileMode mode, FileAccess access) {
    Close();
    if (HitsFault(Operation::Open)) return false;
    SECURITY_ATTRIBUTES security = {sizeof(security), nullptr, FALSE};
    const std::wstring name = SystemPath(path);
    CLocalDescriptor shared;
    if (access == FileAccess::Private) {
        shared = OwnerAndServicesDescriptor(name.substr(0, name.rfind(L'\\')));
        security.lpSecurityDescriptor = shared ? shared.get() : OwnerOnlyDescriptor();
    }
    const HANDLE handle = OpenPatiently(name, mode, &security);
    if (handle == INVALID_HANDLE_VALUE) {
        if (GetLastError() != ERROR_ACCESS_DENIED) return false;
        const DWORD attributes = GetFileAttributesW(name.c_str());
        const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        SetLastError(!isFolder ? ERROR_ACCESS_DENIED : mode == FileMode::CreateNew ? ERROR_FILE_EXISTS : IsFolderCode);
        return false;
    }
    m_handle = reinterpret_cast<std::intptr_t>(new OpenFile{handle, mode == FileMode::Append});
    if (mode != FileMode::CreateOrEmpty || SetEnd(handle, 0)) return true;
    const DWORD code = GetLastError();
    Close();
    SetLastError(code);
    return false;
}

bool CFile::IsOpen() const noexcept {
    return m_handle != -1;
}

bool CFile::Close() {
    if (m_handle == -1) return true;
    OpenFile* const file = Opened(std::exchange(m_handle, -1));
    const bool isClosed = CloseHandle(file->handle) != 0;
    delete file;
    return isClosed;
}

bool CFile::ReadAt(std::uint64_t offset, void* to, std::size_t size, std::size_t* got) const {
    if (got) *got = 0;
    if (HitsFault(Operation::Read)) return false;
    if (!IsOpen()) return NotOpen();
    std::size_t done;
    const bool whole = MoveAll(size, done, [&](std::size_t at, DWORD part, DWORD* moved) {
        OVERLAPPED place = At(offset + at);
        return ReadFile(Opened(m_handle)->handle, static_cast<char*>(to) + at, part, moved, &place) ||
               GetLastError() == ERROR_HANDLE_EOF;
    });
    if (got) *got = done;
    return whole;
}

bool CFile::WriteAt(std::uint64_t offset, const void* from, std::size_t size) {
    if (HitsFault(Operation::Write)) return false;
    if (!IsOpen()) return NotOpen();
    return WriteAll(Opened(m_handle)->handle, offset, static_cast<const char*>(from), size);
}

bool CFile::Write(std::string_view bytes) {
    if (HitsFault(Operation::Write)) return false;
    if (!IsOpen()) return NotOpen();
    OpenFile& file = *Opened(m_handle);
    if (!WriteAll(file.handle, file.appends ? AtEnd : file.next, bytes.data(), bytes.size())) return false;
    file.next += bytes.size();
    return true;
}

bool CFile::GetSize(std::uint64_t& size) const {
    if (!IsOpen()) return NotOpen();
    LARGE_INTEGER length;
    if (!GetFileSizeEx(Opened(m_handle)->handle, &length)) return false;
    size = static_cast<std::uint64_t>(length.QuadPart);
    return true;
}

bool CFile::SetSize(std::uint64_t size) {
    if (HitsFault(Operation::SetSize)) return false;
    return IsOpen() ? SetEnd(Opened(m_handle)->handle, size) : NotOpen();
}

bool CFile::Flush() {
    if (!IsFlushEnabled()) return true;
    if (HitsFault(Operation::Flush)) return false;
    return IsOpen() ? FlushFileBuffers(Opened(m_handle)->handle) != 0 : NotOpen();
}

void CFile::StartFlush() noexcept {}  // the system has no such thing

// Names are in the journal of the file system, which the flush of the folder
// writes where the system does that.  Renames are written through besides.
bool FlushFolder(std::string_view folder) {
    if (!IsFlushEnabled()) return true;
    if (HitsFault(Operation::FlushFolder)) return false;
    const std::wstring path = SystemPath(folder.empty() ? "." : folder);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        SetLastError(ERROR_DIRECTORY);
        return false;
    }
    const CHandle opened(CreateFileW(path.c_str(), GENERIC_WRITE, ShareAll, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!opened) return GetLastError() == ERROR_ACCESS_DENIED;
    const bool isFlushed = FlushFileBuffers(opened.Get()) != 0;
    const DWORD code = GetLastError();
    // A system that flushes no folders says one of these; a disk that fails says something else.
    return isFlushed || code == ERROR_ACCESS_DENIED || code == ERROR_INVALID_FUNCTION || code == ERROR_NOT_SUPPORTED ||
           code == ERROR_INVALID_PARAMETER;
}

void SetFlushEnabled(bool on) noexcept {
    g_flushEnabled.store(on, std::memory_order_relaxed);
}

bool IsFlushEnabled() noexcept {
    return g_flushEnabled.load(std::memory_order_relaxed);
}

}  // namespace Platform
