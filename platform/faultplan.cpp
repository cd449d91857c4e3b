#include "platform/faultplan.h"

#include <atomic>
#include <mutex>

#include "platform/errorcodes.h"

namespace Platform {

namespace {

struct Plan {
    Operation operation = Operation::Any;
    CFaultPlan::After after = CFaultPlan::After::Recovers;
    unsigned remaining = 0;
    bool hit = false;
};

std::atomic<bool> g_planned{false};
std::mutex g_guard;
Plan g_plan;

}  // namespace

CFaultPlan::CFaultPlan(Operation operation, unsigned n, After after) {
    const std::lock_guard lock(g_guard);
    g_plan = {operation, after, n, false};
    g_planned.store(true, std::memory_order_relaxed);
}

CFaultPlan::~CFaultPlan() {
    const std::lock_guard lock(g_guard);
    g_planned.store(false, std::memory_order_relaxed);
    g_plan = {};
}

bool CFaultPlan::WasHit() const noexcept {
    const std::lock_guard lock(g_guard);
    return g_plan.hit;
}

bool HitsFault(Operation operation) noexcept {
    if (!g_planned.load(std::memory_order_relaxed)) return false;
    const std::lock_guard lock(g_guard);
    if (!g_planned.load(std::memory_order_relaxed)) return false;
    if (g_plan.operation != Operation::Any && g_plan.operation != operation) return false;
    if (g_plan.remaining > 0) --g_plan.remaining;
    const bool first = g_plan.remaining == 0 && !g_plan.hit;
    const bool later = g_plan.hit && g_plan.after == CFaultPlan::After::Stays;
    if (!first && !later) return false;
    g_plan.hit = true;
    SetLastSystemError(NoSpaceError());
    return true;
}

}  // namespace Platform
