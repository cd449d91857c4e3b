#include "platform/posix/namedobjects.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <mutex>

#include "platform/namedmutex.h"
#include "platform/posix/systempath.h"

namespace Platform {

namespace {

struct Folders {
    std::mutex guard;
    std::string locks;
    std::string mailslots;
};

Folders& TheFolders() {
    static Folders* const folders = new Folders;  // outlives every other static object
    return *folders;
}

void MakeFolders(const std::string& path) {
    for (std::size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0770);
    mkdir(path.c_str(), 0770);
}

// FNV-1a
std::uint64_t Hash(std::string_view text) {
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return hash;
}

bool IsPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-';
}

}  // namespace

void SetNamedObjectFolder(std::string_view locks, std::string_view mailslots, NamedObjectScope) {
    std::string lockFolder = SystemPath(locks);
    std::string mailslotFolder = SystemPath(mailslots);
    for (std::string* folder : {&lockFolder, &mailslotFolder}) {
        while (folder->size() > 1 && folder->back() == '/')
            folder->pop_back();
        if (!folder->empty()) MakeFolders(*folder);
    }
    Folders& folders = TheFolders();
    const std::lock_guard lock(folders.guard);
    folders.locks = std::move(lockFolder);
    folders.mailslots = std::move(mailslotFolder);
}

std::string LockFolder() {
    Folders& folders = TheFolders();
    const std::lock_guard lock(folders.guard);
    return folders.locks;
}

std::string MailslotFolder() {
    Folders& folders = TheFolders();
    const std::lock_guard lock(folders.guard);
    return folders.mailslots;
}

// "_" stands for other characters, so a name that holds one gets the hash too.
std::string ObjectFileName(std::string_view name, std::size_t maxLength) {
    std::string plain;
    bool same = !name.empty() && name.front() != '.' && name.size() <= maxLength;
    for (const char c : name) {
        same = same && IsPlain(c);
        plain += IsPlain(c) ? c : '_';
    }
    if (same) return plain;
    constexpr std::size_t HashLength = 17;
    if (plain.size() > maxLength - HashLength) plain.resize(maxLength - HashLength);
    if (plain.starts_with('.')) plain.front() = '_';
    plain += '_';
    for (std::uint64_t hash = Hash(name), digit = 0; digit < 16; ++digit, hash <<= 4)
        plain += "0123456789abcdef"[hash >> 60];
    return plain;
}

int OpenLockFile(const std::string& path, bool create) {
    constexpr mode_t Mode = 0660;
    const int common = O_CLOEXEC | O_NOFOLLOW;
    int fd = open(path.c_str(), O_RDWR | common | (create ? O_CREAT : 0), Mode);
    if (fd < 0 && errno == EACCES) fd = open(path.c_str(), O_RDONLY | common);
    if (fd < 0) return -1;
    struct stat status;
    if (create && fstat(fd, &status) == 0 && (status.st_mode & 0777) != Mode && status.st_uid == geteuid())
        fchmod(fd, Mode);
    return fd;
}

bool LockFile(int fd, int operation) {
    int result;
    do {
        result = flock(fd, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

}  // namespace Platform
