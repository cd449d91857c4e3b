#include "senddaemon/threadregistry.h"

#include <mutex>

namespace SendDaemon {

namespace {

struct CRegistry {
    std::mutex lock;
    std::map<Platform::ThreadId, std::string> threads;
};

// Its entry in the registry, for the thread itself.
thread_local std::string* ownJobName = nullptr;

CRegistry& GetRegistry() {
    static CRegistry registry;
    return registry;
}

}  // namespace

CThreadRegistration::CThreadRegistration() {
    CRegistry& registry = GetRegistry();
    const std::lock_guard guard(registry.lock);
    ownJobName = &registry.threads[Platform::CurrentThreadId()];
    ownJobName->clear();
}

CThreadRegistration::~CThreadRegistration() {
    CRegistry& registry = GetRegistry();
    const std::lock_guard guard(registry.lock);
    registry.threads.erase(Platform::CurrentThreadId());
    ownJobName = nullptr;
}

void SetThreadJobName(std::string_view name) {
    CRegistry& registry = GetRegistry();
    const std::lock_guard guard(registry.lock);
    if (ownJobName != nullptr) *ownJobName = name;
}

std::map<Platform::ThreadId, std::string> GetRegisteredThreads() {
    CRegistry& registry = GetRegistry();
    const std::lock_guard guard(registry.lock);
    return registry.threads;
}

}  // namespace SendDaemon
