// namedobjects.h - the files behind named mutexes, presences and mailslots.

#ifndef LISTHAVEN_PLATFORM_POSIX_NAMEDOBJECTS_H
#define LISTHAVEN_PLATFORM_POSIX_NAMEDOBJECTS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace Platform {

std::string LockFolder();  // "" until SetNamedObjectFolder()
std::string MailslotFolder();

// A file name of at most maxLength (40 or more) bytes.  Names that differ give
// names that differ: what cannot be kept as it is gets a hash.
std::string ObjectFileName(std::string_view name, std::size_t maxLength = 120);

// Opens or creates it, without O_CREAT when not asked to; 0660.  -1 with errno.
int OpenLockFile(const std::string& path, bool create);

// flock() that goes on after a signal.
bool LockFile(int fd, int operation);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_POSIX_NAMEDOBJECTS_H
