// namedobjects.h - the system's names of mutexes, presences and mailslots.

#ifndef LISTHAVEN_PLATFORM_WIN32_NAMEDOBJECTS_H
#define LISTHAVEN_PLATFORM_WIN32_NAMEDOBJECTS_H

#include <windows.h>

#include <string>
#include <string_view>

namespace Platform {

// In the name space of the machine: a service runs in another session than
// the front end.  Names that differ give names that differ; what an object
// cannot be called gets a hash.
std::wstring ObjectName(std::string_view name);
std::wstring MailslotName(std::string_view name);

// With a null access list: everyone may use what is made with it.  Built once;
// throws std::runtime_error "Error in GetMutexSecurityAttributes function ...".
SECURITY_ATTRIBUTES* GetMutexSecurityAttributes();

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_NAMEDOBJECTS_H
