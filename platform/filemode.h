// filemode.h - who may use a file, carried over to its replacement.

#ifndef LISTHAVEN_PLATFORM_FILEMODE_H
#define LISTHAVEN_PLATFORM_FILEMODE_H

#include <string_view>

namespace Platform {

// Gives "to" the permissions and, as far as this process may, the group of
// "from".  When the group cannot be kept, it gets no more than others had.
bool CopyFileMode(std::string_view from, std::string_view to);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_FILEMODE_H
