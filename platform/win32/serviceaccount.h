// serviceaccount.h - whom the service runs as, and what that account may do.

#ifndef LISTHAVEN_PLATFORM_WIN32_SERVICEACCOUNT_H
#define LISTHAVEN_PLATFORM_WIN32_SERVICEACCOUNT_H

#include <windows.h>

#include <string>
#include <vector>

namespace Platform {

using SidBytes = std::vector<BYTE>;

// Of the identity that every service has in its token besides its account's.  It
// follows from the name, so it can be named before the service is there.
bool GetServiceSid(const std::wstring& service, SidBytes& sid);

// The account's identity; LocalSystem, and a name of this machine with or
// without ".\", are known.
bool FindAccountSid(const std::wstring& account, SidBytes& sid);

// As the service manager wants it: a name without a domain gets ".\".
std::wstring FullAccountName(const std::wstring& account);

// The right to log on as a service.
bool GrantServiceLogon(const SidBytes& account);

// Lets them change everything in the folder: what is there, files for their owner
// only too, and what will be made.
bool LetIntoFolder(const std::wstring& folder, const SidBytes& who);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_SERVICEACCOUNT_H
