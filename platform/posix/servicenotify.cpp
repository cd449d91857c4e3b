// The running service's side: datagrams to the service manager.

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "platform/process.h"
#include "platform/service.h"

namespace Platform {

namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

std::atomic<bool> g_isService{false};

template <class T>
bool ReadNumber(const char* variable, T& number) {
    const auto value = EnvironmentValue(variable);
    if (!value || value->empty()) return false;
    const auto [end, fault] = std::from_chars(value->data(), value->data() + value->size(), number);
    return fault == std::errc() && end == value->data() + value->size();
}

// "@NAME" is a name without a file; other kinds of addresses are not known.
bool MakeAddress(const std::string& name, sockaddr_un& address, socklen_t& length) {
    if (name.size() < 2 || name.size() >= sizeof address.sun_path || (name[0] != '/' && name[0] != '@')) return false;
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    const std::size_t used = offsetof(sockaddr_un, sun_path) + name.size();
    length = static_cast<socklen_t>(name[0] == '@' ? used : used + 1);
    if (name[0] == '@') address.sun_path[0] = '\0';
    return true;
}

// Waits a little for a service manager that is busy, but never for ever.
void Notify(std::string_view text) {
    const auto name = EnvironmentValue("NOTIFY_SOCKET");
    sockaddr_un address;
    socklen_t length = 0;
    if (!name || !MakeAddress(*name, address, length)) return;
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    const timeval limit{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ssize_t sent;
    do {
        sent = sendto(fd, text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), length);
    } while (sent < 0 && errno == EINTR);
    close(fd);
}

}  // namespace

// systemd starts a service as any program.
int RunAsService(std::string_view, const std::function<int()>& serve) {
    g_isService = true;
    return serve();
}

void NotifyServiceReady() {
    Notify("READY=1\nSTATUS=Processing mail and sending");
}

void NotifyServiceStopping() {
    Notify("STOPPING=1\nSTATUS=Ending what is under way");
}

std::optional<std::chrono::milliseconds> ServiceWatchInterval() {
    std::uint64_t interval = 0;
    std::uint32_t process = CurrentProcessId();
    if (!ReadNumber("WATCHDOG_USEC", interval) || interval == 0) return std::nullopt;
    if (EnvironmentValue("WATCHDOG_PID") && !ReadNumber("WATCHDOG_PID", process)) return std::nullopt;
    if (process != CurrentProcessId()) return std::nullopt;
    return std::chrono::duration_cast<std::chrono::milliseconds>(microseconds(interval));
}

// Four times as often as the service manager wants it.
void NotifyServiceAlive() {
    static std::atomic<steady_clock::rep> next{0};
    const auto interval = ServiceWatchInterval();
    const steady_clock::rep now = steady_clock::now().time_since_epoch().count();
    if (!interval || now < next) return;
    next = now + std::chrono::duration_cast<steady_clock::duration>(*interval / 4).count();
    Notify("WATCHDOG=1");
}

// The journal takes what a service writes there; the number is its level.
void ReportToSystemLog(std::string_view text) {
    if (!g_isService) return;
    const std::string line = "<3>" + std::string(text) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace Platform
