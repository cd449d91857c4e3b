// faultplan.h - makes the n-th file operation of a kind fail, for tests.
//
// Costs one relaxed load per operation while no plan is set.

#ifndef LISTHAVEN_PLATFORM_FAULTPLAN_H
#define LISTHAVEN_PLATFORM_FAULTPLAN_H

#include "platform/systemerror.h"

namespace Platform {

enum class Operation { Open, Read, Write, SetSize, Flush, FlushFolder, Rename, Remove, MakeFolder, Any };

// While it lives, the n-th operation (from 1) of that kind, in any thread,
// fails with IsNoSpace(), and with "stays" all later ones too.  One at a time.
class CFaultPlan {
public:
    enum class After { Recovers, Stays };

    CFaultPlan(Operation operation, unsigned n, After after = After::Recovers);
    CFaultPlan(const CFaultPlan&) = delete;
    CFaultPlan& operator=(const CFaultPlan&) = delete;
    ~CFaultPlan();

    bool WasHit() const noexcept;
};

// Called by the implementations: true when the operation has to fail, with
// LastSystemError() set.
bool HitsFault(Operation operation) noexcept;

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_FAULTPLAN_H
