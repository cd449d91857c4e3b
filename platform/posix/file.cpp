#include "platform/file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <utility>

#include "platform/faultplan.h"
#include "platform/posix/renamebylink.h"
#include "platform/posix/systempath.h"

namespace Platform {

namespace {

std::atomic<bool> g_flushEnabled{true};

int OpenFlags(FileMode mode) {
    switch (mode) {
        case FileMode::Read:
            return O_RDONLY;
        case FileMode::ReadWrite:
            return O_RDWR;
        case FileMode::OpenOrCreate:
            return O_RDWR | O_CREAT;
        case FileMode::CreateNew:
            return O_RDWR | O_CREAT | O_EXCL;
        case FileMode::CreateOrEmpty:
            return O_RDWR | O_CREAT | O_TRUNC;
        case FileMode::Append:
            return O_WRONLY | O_CREAT | O_APPEND;
    }
    return O_RDONLY;
}

// Who gives a folder to a group, so that new files get that group, gives it the
// secrets too: else a front end would make files that its server cannot read.
mode_t PrivateMode(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    struct stat status;
    return stat(folder.c_str(), &status) == 0 && (status.st_mode & S_ISGID) != 0 ? 0660 : 0600;
}

int OpenRetrying(const char* path, int flags, mode_t mode) {
    int fd;
    do {
        fd = open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// step(bytes done) moves some bytes and returns as read() and write() do.
// False with errno 0 when it moved none.
template <class F>
bool MoveAll(std::size_t size, std::size_t& done, F step) {
    done = 0;
    while (done < size) {
        const ssize_t moved = step(done);
        if (moved < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (moved == 0) {
            errno = 0;
            return false;
        }
        done += static_cast<std::size_t>(moved);
    }
    return true;
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
    const int code = errno;
    Close();
    errno = code;  // the reason of the failure that unwinds the caller
}

bool CFile::Open(std::string_view path, FileMode mode, FileAccess access) {
    Close();
    if (HitsFault(Operation::Open)) return false;
    const std::string name = SystemPath(path);
    const mode_t newMode = access == FileAccess::Private ? PrivateMode(name) : 0660;
    const int fd = OpenRetrying(name.c_str(), OpenFlags(mode), newMode);
    if (fd < 0) return false;
    struct stat status;
    if (mode == FileMode::Read && fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) {
        close(fd);
        errno = EISDIR;
        return false;
    }
    m_handle = fd;
    return true;
}

bool CFile::IsOpen() const noexcept {
    return m_handle >= 0;
}

bool CFile::Close() {
    if (m_handle < 0) return true;
    const int fd = static_cast<int>(std::exchange(m_handle, -1));
    return close(fd) == 0 || errno == EINTR;  // closed all the same
}

bool CFile::ReadAt(std::uint64_t offset, void* to, std::size_t size, std::size_t* got) const {
    if (got) *got = 0;
    if (HitsFault(Operation::Read)) return false;
    std::size_t done;
    const bool whole = MoveAll(size, done, [&](std::size_t at) {
        return pread(static_cast<int>(m_handle), static_cast<char*>(to) + at, size - at,
                     static_cast<off_t>(offset + at));
    });
    if (got) *got = done;
    return whole;
}

bool CFile::WriteAt(std::uint64_t offset, const void* from, std::size_t size) {
    if (HitsFault(Operation::Write)) return false;
    std::size_t done;
    return MoveAll(size, done, [&](std::size_t at) {
        return pwrite(static_cast<int>(m_handle), static_cast<const char*>(from) + at, size - at,
                      static_cast<off_t>(offset + at));
    });
}

bool CFile::Write(std::string_view bytes) {
    if (HitsFault(Operation::Write)) return false;
    std::size_t done;
    return MoveAll(bytes.size(), done, [&](std::size_t at) {
        return write(static_cast<int>(m_handle), bytes.data() + at, bytes.size() - at);
    });
}

bool CFile::GetSize(std::uint64_t& size) const {
    struct stat status;
    if (fstat(static_cast<int>(m_handle), &status) != 0) return false;
    size = static_cast<std::uint64_t>(status.st_size);
    return true;
}

bool CFile::SetSize(std::uint64_t size) {
    if (HitsFault(Operation::SetSize)) return false;
    int result;
    do {
        result = ftruncate(static_cast<int>(m_handle), static_cast<off_t>(size));
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool CFile::Flush() {
    if (!IsFlushEnabled()) return true;
    if (HitsFault(Operation::Flush)) return false;
    int result;
    do {
        result = fdatasync(static_cast<int>(m_handle));
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

void CFile::StartFlush() noexcept {
#ifdef SYNC_FILE_RANGE_WRITE
    const int code = errno;
    if (IsFlushEnabled() && IsOpen()) sync_file_range(static_cast<int>(m_handle), 0, 0, SYNC_FILE_RANGE_WRITE);
    errno = code;
#endif
}

bool FlushFolder(std::string_view folder) {
    if (!IsFlushEnabled()) return true;
    if (HitsFault(Operation::FlushFolder)) return false;
    const int fd = OpenRetrying(folder.empty() ? "." : SystemPath(folder).c_str(), O_RDONLY | O_DIRECTORY, 0);
    if (fd < 0) return false;
    int result;
    do {
        result = fsync(fd);
    } while (result != 0 && errno == EINTR);
    const int code = errno;
    close(fd);
    errno = code;
    return result == 0;
}

void SetFlushEnabled(bool on) noexcept {
    g_flushEnabled.store(on, std::memory_order_relaxed);
}

bool IsFlushEnabled() noexcept {
    return g_flushEnabled.load(std::memory_order_relaxed);
}

bool RenameReplacing(std::string_view from, std::string_view to) {
    if (HitsFault(Operation::Rename)) return false;
    return rename(SystemPath(from).c_str(), SystemPath(to).c_str()) == 0;
}

bool RenameNew(std::string_view from, std::string_view to) {
    if (HitsFault(Operation::Rename)) return false;
    const std::string source = SystemPath(from);
    const std::string target = SystemPath(to);
    if (renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return false;
    return RenameByLink(source.c_str(), target.c_str());
}

bool LinkFile(std::string_view from, std::string_view to) {
    if (HitsFault(Operation::Rename)) return false;
    return link(SystemPath(from).c_str(), SystemPath(to).c_str()) == 0;
}

bool RemoveFile(std::string_view path) {
    if (HitsFault(Operation::Remove)) return false;
    return unlink(SystemPath(path).c_str()) == 0;
}

bool MakeFolder(std::string_view path) {
    if (HitsFault(Operation::MakeFolder)) return false;
    return mkdir(SystemPath(path).c_str(), 0770) == 0;
}

bool RemoveEmptyFolder(std::string_view path) {
    if (HitsFault(Operation::Remove)) return false;
    return rmdir(SystemPath(path).c_str()) == 0;
}

bool ChangeToFolder(std::string_view path) {
    return chdir(SystemPath(path).c_str()) == 0;
}

std::string WorkingFolder() {
    std::string path(256, '\0');
    while (!getcwd(path.data(), path.size())) {
        if (errno != ERANGE) return {};
        path.resize(path.size() * 2);
    }
    path.resize(path.find('\0'));
    return path;
}

std::string NameForLibraries(std::string_view path) {
    std::string raw = SystemPath(path);
    if (raw.empty()) return {};
    if (!raw.starts_with('/')) raw = WorkingFolder() + '/' + raw;
    std::string full;
    for (std::size_t at = 0; at < raw.size(); ++at) {
        if (raw[at] == '/' && raw.compare(at, 3, "/./") == 0) {
            ++at;
            continue;
        }
        if (raw[at] != '/' || full.empty() || full.back() != '/') full += raw[at];
    }
    return full;
}

}  // namespace Platform
