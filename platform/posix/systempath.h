// systempath.h - names as this system's calls take them.

#ifndef LISTHAVEN_PLATFORM_POSIX_SYSTEMPATH_H
#define LISTHAVEN_PLATFORM_POSIX_SYSTEMPATH_H

#include <algorithm>
#include <string>
#include <string_view>

namespace Platform {

// Backslashes become slashes.  A name that holds a NUL byte becomes "", which
// no call finds, rather than the name of some other file.
inline std::string SystemPath(std::string_view path) {
    if (path.find('\0') != std::string_view::npos) return {};
    std::string result(path);
    std::replace(result.begin(), result.end(), '\\', '/');
    return result;
}

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_POSIX_SYSTEMPATH_H
