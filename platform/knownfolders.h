// knownfolders.h - where the system wants programs to keep their data.

#ifndef LISTHAVEN_PLATFORM_KNOWNFOLDERS_H
#define LISTHAVEN_PLATFORM_KNOWNFOLDERS_H

#include <string>

namespace Platform {

// The folder for data that all users of the machine share, made when missing,
// without trailing separator; empty when the system has none.  Without such a
// folder of its own: /var/lib when this user may write there, else
// $XDG_DATA_HOME, else ~/.local/share.
std::string CommonApplicationDataFolder();

// One text for all the ways to write the path of a folder (links, case, short
// names, ".."), without trailing separator; one that is not there as given.
std::string CanonicalFolder(const std::string& path);

std::string TemporaryFolder();  // without trailing separator

char PathSeparator() noexcept;    // the system's own
bool PathsIgnoreCase() noexcept;  // names of files compare without regard to case

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_KNOWNFOLDERS_H
