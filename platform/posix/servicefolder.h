// servicefolder.h - the data folder becomes that of the service's account.

#ifndef LISTHAVEN_PLATFORM_POSIX_SERVICEFOLDER_H
#define LISTHAVEN_PLATFORM_POSIX_SERVICEFOLDER_H

#include <sys/types.h>

#include <string>

namespace Platform {

struct UnixAccount {
    std::string name;
    uid_t user = 0;
    gid_t group = 0;
};

bool FindAccount(const std::string& name, UnixAccount& account);

// The folder and all in it: owner and group of the account, which both read and
// write; what is made in it later gets the group too.  Links are not followed,
// and a file that is also somewhere else is not given away.  "" or the reason.
std::string GiveFolder(const std::string& folder, const UnixAccount& account);

// Whether the account gets there, and can do with it what is wanted (R_OK, W_OK,
// X_OK): asked as that account.
bool MayAccess(const UnixAccount& account, const std::string& path, int wanted);

// The folders of our own above it, which root has made for itself only, let
// others pass.  Those of the system are left as they are.
void OpenWayTo(const std::string& folder);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_POSIX_SERVICEFOLDER_H
