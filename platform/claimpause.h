// claimpause.h - how long two systems that look at one folder give way to each other.
//
// Whoever finds another there lets go of its own lock before it tries again, or
// it would be in the way of the other's colleagues; two that came at one time
// come again at different ones.

#ifndef LISTHAVEN_PLATFORM_CLAIMPAUSE_H
#define LISTHAVEN_PLATFORM_CLAIMPAUSE_H

#include <chrono>

#include "platform/guid.h"

namespace Platform {

inline constexpr std::chrono::milliseconds ClaimPatience{600};

inline std::chrono::milliseconds ClaimPause() {
    return std::chrono::milliseconds(5 + RandomNumber() % 30);
}

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_CLAIMPAUSE_H
