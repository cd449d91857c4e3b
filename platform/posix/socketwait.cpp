#include "platform/socketwait.h"

#include <poll.h>

#include <vector>

namespace Platform {

void WaitForSockets(std::span<SocketWatch> sockets, std::chrono::milliseconds limit) {
    std::vector<pollfd> entries;
    for (const SocketWatch& watch : sockets) {
        const int events = (watch.wantsRead ? POLLIN : 0) | (watch.wantsWrite ? POLLOUT : 0);
        entries.push_back({static_cast<int>(watch.socket), static_cast<short>(events), 0});
    }
    if (poll(entries.data(), entries.size(), static_cast<int>(limit.count())) <= 0) return;
    for (std::size_t i = 0; i < sockets.size(); ++i) {
        const bool isBroken = (entries[i].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
        sockets[i].canRead = sockets[i].wantsRead && (isBroken || (entries[i].revents & POLLIN) != 0);
        sockets[i].canWrite = sockets[i].wantsWrite && (isBroken || (entries[i].revents & POLLOUT) != 0);
    }
}

}  // namespace Platform
