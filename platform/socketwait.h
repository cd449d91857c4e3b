// socketwait.h - waits for sockets that a library keeps to itself.
//
// Errors   None: a wait that fails ends early, and nothing is ready.
// Threads  Any.

#ifndef LISTHAVEN_PLATFORM_SOCKETWAIT_H
#define LISTHAVEN_PLATFORM_SOCKETWAIT_H

#include <chrono>
#include <cstdint>
#include <span>

namespace Platform {

using SocketHandle = std::intptr_t;

struct SocketWatch {
    SocketHandle socket = -1;
    bool wantsRead = false;
    bool wantsWrite = false;
    bool canRead = false;  // filled in; an error or an end counts as both
    bool canWrite = false;
};

// Returns when one can do what it wants, or after the limit.  With no sockets
// it just waits.
void WaitForSockets(std::span<SocketWatch> sockets, std::chrono::milliseconds limit);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_SOCKETWAIT_H
