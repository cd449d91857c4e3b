#include "platform/posix/renamebylink.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace Platform {
namespace {

bool AreSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// Two ways to write one name: to remove it could remove the last one.
bool AreOneName(const std::string& a, const std::string& b) {
    const std::string nameOfA = a.substr(a.rfind('/') + 1);
    const std::string nameOfB = b.substr(b.rfind('/') + 1);
    struct stat folderOfA, folderOfB;
    if (stat(FolderOf(a).c_str(), &folderOfA) != 0 || stat(FolderOf(b).c_str(), &folderOfB) != 0) return true;
    return AreSame(folderOfA, folderOfB) && strcasecmp(nameOfA.c_str(), nameOfB.c_str()) == 0;
}

// A kill, or on NFS a reply that was lost, can have left the file under both.
bool HasBothNames(const char* from, const char* to) {
    struct stat source, target;
    return lstat(from, &source) == 0 && lstat(to, &target) == 0 && AreSame(source, target) && source.st_nlink > 1 &&
           !AreOneName(from, to);
}

}  // namespace

bool RenameByLink(const char* from, const char* to) {
    if (link(from, to) == 0) return unlink(from) == 0;
    const int why = errno;
    if (why == EEXIST && HasBothNames(from, to)) return unlink(from) == 0;
    errno = why;
    if (why != EPERM && why != EOPNOTSUPP) return false;
    // A folder, or a file system without hard links: look first.
    struct stat there;
    if (lstat(to, &there) == 0) {
        errno = EEXIST;
        return false;
    }
    return rename(from, to) == 0;
}

}  // namespace Platform
