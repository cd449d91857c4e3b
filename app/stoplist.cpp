#include "app/stoplist.h"

#include <atomic>
#include <mutex>
#include <set>

namespace {

std::mutex listLock;
std::set<Platform::ThreadId> list;
std::atomic<std::size_t> listSize{0};

}  // namespace

void RequestThreadStop(Platform::ThreadId thread) {
    const std::lock_guard guard(listLock);
    list.insert(thread);
    listSize = list.size();
}

void ClearThreadStop(Platform::ThreadId thread) {
    const std::lock_guard guard(listLock);
    list.erase(thread);
    listSize = list.size();
}

bool IsThreadStopRequested(Platform::ThreadId thread) {
    if (listSize == 0) return false;
    const std::lock_guard guard(listLock);
    return list.contains(thread);
}
