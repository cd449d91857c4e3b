// systempath.h - names as this system's calls take them.

#ifndef LISTHAVEN_PLATFORM_WIN32_SYSTEMPATH_H
#define LISTHAVEN_PLATFORM_WIN32_SYSTEMPATH_H

#include <string>
#include <string_view>

namespace Platform {

// UTF-8 to the system's characters and back.  Text that is no UTF-8 becomes
// "" one way, characters that are no text become U+FFFD the other way.
std::wstring ToWide(std::string_view text);
std::string FromWide(std::wstring_view text);

// A full name in the form that the system takes as it stands: of any length,
// with no device behind CON or NUL and nothing cut off at the end.  A name that
// holds a NUL byte or names a part of a file or a device ("a:b", "\\.\x")
// becomes "", which no call finds, rather than the name of some other file.
std::wstring SystemPath(std::string_view path);

std::wstring WorkingFolderPath();  // without the prefix that the above has

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_SYSTEMPATH_H
