// paths.h - taking file names apart and joining them; no file access.

#ifndef LISTHAVEN_UTILITY_PATHS_H
#define LISTHAVEN_UTILITY_PATHS_H

#include <string>
#include <string_view>

std::string JoinPath(std::string_view folder, std::string_view name);  // one separator between them
std::string WithSeparator(std::string_view folder);                    // exactly one at the end; "" stays ""
std::string WithoutSeparator(std::string_view folder);                 // "/" stays
std::string LastPathComponent(std::string_view path);                  // of "a/b/" too: "b"
std::string ParentFolder(std::string_view path);                       // "" when there is none

// Equal as the system compares names: without regard to case on Windows,
// trailing separators do not count.
bool SamePath(std::string_view a, std::string_view b);

// What may be used as a file name of a name that came from a stranger: only the
// last component (both separators), without control characters and without the
// characters some system forbids, never "", "." or "..", no device name, no
// leading dot, at most 200 bytes.  "unnamed" when nothing is left.
std::string SafeFileName(std::string_view name);

#endif  // LISTHAVEN_UTILITY_PATHS_H
