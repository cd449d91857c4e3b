#include "senddaemon/threadregistry.h"

#include <mutex>

namespace SendDaemon {

namespace {

struct CRegistry {
    std::mutex lock;
    std::map<Platform::ThreadId, std::string> threads;
};

CRegistry& GetRegistry() {
    static CRegistry registry;
    return registry;
}

}  // namespace

CThreadRegistration::CThreadRegistration() {
    CRegistry& registry = GetRegistry();
    const std::lock_guard guard(registry.lock);
    registry.threads[Platform::CurrentThreadId()].clear();
}

CThreadRegistration::~CThreadRegistration() {
    CRegistry& registry = GetRegistry();
    const std::lock_guard guard(registry.lock);
    registry.threads.erase(Platform::CurrentThreadId());
}

void SetThreadJobName(std::string_view name) {
    CRegistry& registry = GetRegistry();
    const std::lock_guard guard(registry.lock);
    const auto found = registry.threads.find(Platform::CurrentThreadId());
    if (found != registry.threads.end()) found->second = name;
}

std::map<Platform::ThreadId, std::string> GetRegisteredThreads() {
    CRegistry& registry = GetRegistry();
    const std::lock_guard guard(registry.lock);
    return registry.threads;
}

}  // namespace SendDaemon
