// threadregistry.h - the sender threads of this process and what they are doing.
//
// Threads  Any.

#ifndef LISTHAVEN_SENDDAEMON_THREADREGISTRY_H
#define LISTHAVEN_SENDDAEMON_THREADREGISTRY_H

#include <map>
#include <string>
#include <string_view>

#include "platform/process.h"

namespace SendDaemon {

// Registers the calling thread for as long as it lives, on that thread.
class CThreadRegistration {
public:
    CThreadRegistration();
    CThreadRegistration(const CThreadRegistration&) = delete;
    CThreadRegistration& operator=(const CThreadRegistration&) = delete;
    ~CThreadRegistration();
};

void SetThreadJobName(std::string_view name);  // of the calling thread; ignored when it is not registered
std::map<Platform::ThreadId, std::string> GetRegisteredThreads();  // with their job names

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_THREADREGISTRY_H
