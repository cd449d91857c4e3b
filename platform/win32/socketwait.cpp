#define FD_SETSIZE 1024

#include "platform/socketwait.h"

#include <winsock2.h>
//
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <memory>

namespace Platform {

namespace {

struct Sets {
    fd_set read;
    fd_set write;
    fd_set failed;

    Sets() {
        FD_ZERO(&read);
        FD_ZERO(&write);
        FD_ZERO(&failed);
    }
};

bool IsIn(SOCKET socket, const fd_set& set) {
    return std::find(set.fd_array, set.fd_array + set.fd_count, socket) != set.fd_array + set.fd_count;
}

}  // namespace

// select() and not WSAPoll(), which on older systems never tells that a
// connection was refused.
void WaitForSockets(std::span<SocketWatch> sockets, std::chrono::milliseconds limit) {
    const std::int64_t count = std::clamp<std::int64_t>(limit.count(), 0, 1'000'000'000);
    if (sockets.empty()) {
        Sleep(static_cast<DWORD>(count));
        return;
    }
    const auto sets = std::make_unique<Sets>();
    for (const SocketWatch& watch : sockets.first(std::min<std::size_t>(sockets.size(), FD_SETSIZE))) {
        const auto socket = static_cast<SOCKET>(watch.socket);
        if (watch.wantsRead) sets->read.fd_array[sets->read.fd_count++] = socket;
        if (watch.wantsWrite) sets->write.fd_array[sets->write.fd_count++] = socket;
        sets->failed.fd_array[sets->failed.fd_count++] = socket;
    }
    timeval time{static_cast<long>(count / 1000), static_cast<long>(count % 1000 * 1000)};
    if (select(0, &sets->read, &sets->write, &sets->failed, &time) <= 0) return;
    for (SocketWatch& watch : sockets) {
        const auto socket = static_cast<SOCKET>(watch.socket);
        const bool isBroken = IsIn(socket, sets->failed);
        watch.canRead = watch.wantsRead && (isBroken || IsIn(socket, sets->read));
        watch.canWrite = watch.wantsWrite && (isBroken || IsIn(socket, sets->write));
    }
}

}  // namespace Platform
