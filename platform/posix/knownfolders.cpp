#include "platform/knownfolders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "platform/posix/systempath.h"
#include "platform/process.h"

namespace Platform {

namespace {

std::string WithoutSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

// Only full paths count in these variables.
std::string FolderVariable(const char* name) {
    const auto value = EnvironmentValue(name);
    return value && value->starts_with('/') ? WithoutSlash(*value) : std::string();
}

std::string HomeFolder() {
    if (std::string home = FolderVariable("HOME"); !home.empty()) return home;
    std::vector<char> buffer(16384);
    passwd entry;
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
    return found->pw_dir && found->pw_dir[0] == '/' ? WithoutSlash(found->pw_dir) : std::string();
}

bool MakeAll(const std::string& path) {
    for (std::size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0770);
    struct stat status;
    mkdir(path.c_str(), 0770);
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::string CommonApplicationDataFolder() {
    constexpr const char* Shared = "/var/lib";
    if (euidaccess(Shared, W_OK | X_OK) == 0) return Shared;
    std::string folder = FolderVariable("XDG_DATA_HOME");
    if (folder.empty()) {
        folder = HomeFolder();
        if (folder.empty()) return {};
        folder += folder == "/" ? ".local/share" : "/.local/share";
    }
    return MakeAll(folder) ? folder : std::string();
}

std::string CanonicalFolder(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> found(realpath(SystemPath(path).c_str(), nullptr), std::free);
    return found ? found.get() : path;
}

std::string TemporaryFolder() {
    const std::string folder = FolderVariable("TMPDIR");
    return folder.empty() ? "/tmp" : folder;
}

char PathSeparator() noexcept {
    return '/';
}

bool PathsIgnoreCase() noexcept {
    return false;
}

}  // namespace Platform
