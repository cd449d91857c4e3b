// renamebylink.h - moving a file under a new name where the file system knows no
// rename that leaves what is there, such as NFS.
//
// Crash    In between it has both names; called again, it loses the old one.

#ifndef LISTHAVEN_PLATFORM_POSIX_RENAMEBYLINK_H
#define LISTHAVEN_PLATFORM_POSIX_RENAMEBYLINK_H

namespace Platform {

// False with errno; EEXIST when there is another file.  Of several callers at
// once the one that has removed the old name has moved it: the others fail.
bool RenameByLink(const char* from, const char* to);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_POSIX_RENAMEBYLINK_H
