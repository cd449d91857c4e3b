#include "platform/posix/servicefolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <vector>

#include "platform/knownfolders.h"
#include "platform/systemerror.h"

namespace Platform {

namespace {

std::string Complain(const std::string& path, std::string_view what) {
    return path + " " + std::string(what) + ": " + SystemErrorText(LastSystemError());
}

// Works with what is open, never with a name that could be exchanged meanwhile.
class CGiver {
public:
    explicit CGiver(const UnixAccount& account) : m_account(account) {}

    std::string GiveFolder(int fd, const std::string& path) {
        DIR* const folder = fdopendir(fd);
        if (folder == nullptr) {
            close(fd);
            return Complain(path, "cannot be read");
        }
        std::string fault = Give(fd, path, 02770);
        while (const dirent* entry = fault.empty() ? readdir(folder) : nullptr) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") fault = GiveEntry(fd, name, path + "/" + name);
        }
        closedir(folder);
        return fault;
    }

private:
    std::string GiveEntry(int folder, const std::string& name, const std::string& path) {
        struct stat status;
        if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return Complain(path, "cannot be read");
        const bool isFolder = S_ISDIR(status.st_mode);
        if (S_ISSOCK(status.st_mode)) {  // a mailslot: whoever reads it makes it anew
            const int done = fchownat(folder, name.c_str(), m_account.user, m_account.group, AT_SYMLINK_NOFOLLOW);
            return done == 0 ? std::string() : Complain(path, "cannot be given to the account");
        }
        if (!isFolder && !S_ISREG(status.st_mode)) return {};
        constexpr int Flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
        const int fd = openat(folder, name.c_str(), isFolder ? Flags | O_DIRECTORY : Flags);
        if (fd < 0) return Complain(path, "cannot be opened");
        if (isFolder) return GiveFolder(fd, path);
        std::string fault = Give(fd, path, 0660);
        close(fd);
        return fault;
    }

    std::string Give(int fd, const std::string& path, mode_t mode) {
        struct stat status;
        if (fstat(fd, &status) != 0) return Complain(path, "cannot be read");
        if (!S_ISDIR(status.st_mode) && status.st_nlink > 1 && status.st_uid != m_account.user)
            return path + " has other names too, maybe outside of the data folder: remove it or copy it";
        if (fchown(fd, m_account.user, m_account.group) != 0 || fchmod(fd, mode) != 0)
            return Complain(path, "cannot be given to the account");
        return {};
    }

    const UnixAccount& m_account;
};

}  // namespace

bool FindAccount(const std::string& name, UnixAccount& account) {
    std::vector<char> buffer(16384);
    passwd entry;
    passwd* found = nullptr;
    if (getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return false;
    account = {name, found->pw_uid, found->pw_gid};
    return true;
}

std::string GiveFolder(const std::string& folder, const UnixAccount& account) {
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return Complain(folder, "cannot be opened");
    return CGiver(account).GiveFolder(fd, folder);
}

bool MayAccess(const UnixAccount& account, const std::string& path, int wanted) {
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        const bool isAccount = initgroups(account.name.c_str(), account.group) == 0 && setgid(account.group) == 0 &&
                               setuid(account.user) == 0;
        _exit(isAccount && access(path.c_str(), wanted) == 0 ? 0 : 1);
    }
    int status = -1;
    pid_t got;
    do {
        got = waitpid(child, &status, 0);
    } while (got < 0 && errno == EINTR);
    return got == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void OpenWayTo(const std::string& folder) {
    const std::string common = CommonApplicationDataFolder() + "/";
    if (!folder.starts_with(common)) return;
    for (std::size_t at = folder.find('/', common.size()); at != std::string::npos; at = folder.find('/', at + 1)) {
        const std::string parent = folder.substr(0, at);
        struct stat status;
        if (lstat(parent.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == 0)
            chmod(parent.c_str(), (status.st_mode & 07777) | S_IXGRP | S_IXOTH);
    }
}

}  // namespace Platform
