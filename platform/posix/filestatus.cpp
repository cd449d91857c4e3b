#include "platform/filestatus.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "platform/filemode.h"
#include "platform/posix/systempath.h"

namespace Platform {

namespace {

constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;

std::int64_t ToNanoseconds(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * NanosecondsPerSecond + time.tv_nsec;
}

timespec ToTimespec(std::int64_t nanoseconds) {
    timespec time{};
    time.tv_sec = nanoseconds / NanosecondsPerSecond;
    time.tv_nsec = nanoseconds % NanosecondsPerSecond;
    if (time.tv_nsec < 0) {
        --time.tv_sec;
        time.tv_nsec += NanosecondsPerSecond;
    }
    return time;
}

}  // namespace

bool GetFileStatus(std::string_view path, FileStatus& status) {
    struct stat raw;
    if (stat(SystemPath(path).c_str(), &raw) != 0) return false;
    status.isFolder = S_ISDIR(raw.st_mode);
    status.size = static_cast<std::uint64_t>(raw.st_size);
    status.identity = raw.st_ino;
    status.times.modified = ToNanoseconds(raw.st_mtim);
    status.times.created = status.times.modified;
    return true;
}

bool SetFileTimes(std::string_view path, const FileTimes& times) {
    const timespec stamps[2] = {{0, UTIME_OMIT}, ToTimespec(times.modified)};
    return utimensat(AT_FDCWD, SystemPath(path).c_str(), stamps, 0) == 0;
}

bool MayWrite(std::string_view path) {
    return faccessat(AT_FDCWD, SystemPath(path).c_str(), W_OK, AT_EACCESS) == 0;
}

bool FileIsThere(std::string_view path) {
    struct stat raw;
    return stat(SystemPath(path).c_str(), &raw) == 0 && !S_ISDIR(raw.st_mode);
}

bool FolderIsThere(std::string_view path) {
    struct stat raw;
    return stat(SystemPath(path).c_str(), &raw) == 0 && S_ISDIR(raw.st_mode);
}

std::int64_t NanosecondsSince1970() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return ToNanoseconds(now);
}

std::int64_t SecondsSince1970() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

bool CopyFileMode(std::string_view from, std::string_view to) {
    const std::string target = SystemPath(to);
    struct stat old;
    struct stat present;
    if (stat(SystemPath(from).c_str(), &old) != 0 || stat(target.c_str(), &present) != 0) return false;
    mode_t mode = old.st_mode & 0777;
    if (old.st_gid != present.st_gid && chown(target.c_str(), static_cast<uid_t>(-1), old.st_gid) != 0)
        mode &= static_cast<mode_t>(0707 | ((mode & 07) << 3));
    return chmod(target.c_str(), mode) == 0;
}

}  // namespace Platform
