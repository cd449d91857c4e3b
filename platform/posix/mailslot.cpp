#include "platform/mailslot.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/namedmutex.h"
#include "platform/posix/namedobjects.h"

namespace Platform {

namespace {

constexpr std::size_t MaxSocketName = 60;

class CDescriptor {
public:
    explicit CDescriptor(int fd = -1) noexcept : m_fd(fd) {}
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    ~CDescriptor() { Reset(-1); }

    int Get() const noexcept { return m_fd; }
    void Reset(int fd) noexcept {
        const int code = errno;
        if (m_fd >= 0) close(m_fd);
        m_fd = fd;
        errno = code;
    }

private:
    int m_fd;
};

// A socket's address has room for 107 bytes, less than the path of many a data
// folder: longer ones are reached through an open descriptor of the folder.
class CSlotAddress {
public:
    bool Set(std::string_view slot) {
        const std::string folder = MailslotFolder();
        const std::size_t separator = slot.find_last_of("\\/");
        if (separator != slot.npos) slot.remove_prefix(separator + 1);
        if (folder.empty() || slot.empty()) {
            errno = ENOENT;
            return false;
        }
        m_folder.Reset(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (m_folder.Get() < 0) return false;
        m_file = ObjectFileName(slot, MaxSocketName);
        std::string path = folder + '/' + m_file;
        if (path.size() >= sizeof m_address.sun_path)
            path = "/proc/self/fd/" + std::to_string(m_folder.Get()) + '/' + m_file;
        m_address.sun_family = AF_UNIX;
        path.copy(m_address.sun_path, sizeof m_address.sun_path - 1);
        return true;
    }

    const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&m_address); }
    socklen_t Size() const { return sizeof m_address; }
    int Folder() const { return m_folder.Get(); }
    const std::string& File() const { return m_file; }

private:
    CDescriptor m_folder;
    std::string m_file;
    sockaddr_un m_address{};
};

int MakeSocket() {
    return socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

// Whether somebody reads it; false removes what a dead process left.
bool IsAlive(const CSlotAddress& address) {
    const CDescriptor probe(MakeSocket());
    if (probe.Get() < 0) return true;
    if (connect(probe.Get(), address.Address(), address.Size()) == 0) return true;
    if (errno == ENOENT) return false;
    return errno != ECONNREFUSED || unlinkat(address.Folder(), address.File().c_str(), 0) != 0;
}

}  // namespace

struct CMailslot::CState {
    explicit CState(std::string_view slot) : guard("mailslot-" + std::string(slot)) {}

    CNamedMutex guard;  // two who find a dead slot must not both remove it
    CSlotAddress address;
    CDescriptor reader;
    dev_t device = 0;
    ino_t identity = 0;

    // -1 with EAGAIN when none waits.
    ssize_t NextSize() const {
        ssize_t size;
        do {
            size = recv(reader.Get(), nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
        } while (size < 0 && errno == EINTR);
        return size;
    }

    bool Bind() {
        reader.Reset(MakeSocket());
        if (reader.Get() < 0) return false;
        if (IsAlive(address)) {
            errno = EADDRINUSE;
            return false;
        }
        if (bind(reader.Get(), address.Address(), address.Size()) != 0) return false;
        struct stat status;
        if (fchmodat(address.Folder(), address.File().c_str(), 0660, 0) != 0 ||
            fstatat(address.Folder(), address.File().c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        device = status.st_dev;
        identity = status.st_ino;
        return true;
    }

    void Remove() {
        struct stat status;
        if (identity != 0 && fstatat(address.Folder(), address.File().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            status.st_dev == device && status.st_ino == identity)
            unlinkat(address.Folder(), address.File().c_str(), 0);
    }
};

CMailslot::CMailslot() = default;

CMailslot::~CMailslot() {
    Close();
}

bool CMailslot::Create(std::string_view name) {
    Close();
    auto state = std::make_unique<CState>(name);
    if (!state->address.Set(name)) return false;
    state->guard.Lock();
    const bool bound = state->Bind();
    state->guard.Unlock();
    if (bound) m_state = std::move(state);
    return bound;
}

void CMailslot::Close() noexcept {
    if (!m_state) return;
    m_state->guard.Lock();
    m_state->Remove();
    m_state->guard.Unlock();
    m_state.reset();
}

bool CMailslot::GetInfo(std::size_t& size, std::size_t& waiting) {
    size = 0;
    waiting = 0;
    if (!m_state) {
        errno = EBADF;
        return false;
    }
    const ssize_t next = m_state->NextSize();
    if (next < 0) return errno == EAGAIN;
    size = static_cast<std::size_t>(next);
    waiting = 1;
    return true;
}

bool CMailslot::Read(std::string& message) {
    message.clear();
    if (!m_state) {
        errno = EBADF;
        return false;
    }
    const ssize_t size = m_state->NextSize();
    if (size < 0) return false;
    message.resize(static_cast<std::size_t>(size));
    ssize_t got;
    do {
        got = recv(m_state->reader.Get(), message.data(), message.size(), MSG_DONTWAIT);
    } while (got < 0 && errno == EINTR);
    message.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return got >= 0;
}

bool CMailslot::WaitFor(std::chrono::milliseconds limit) {
    if (!m_state) {
        errno = EBADF;
        return false;
    }
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        pollfd reader{m_state->reader.Get(), POLLIN, 0};
        const int ready = poll(&reader, 1, static_cast<int>(std::clamp<decltype(rest)>(rest, 0, 60'000)));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
        if (rest <= 0) return false;
    }
}

// A reader that is stuck must not hold up the writer: with its queue full the
// write fails.
bool WriteToMailslot(std::string_view name, std::string_view message) {
    CSlotAddress address;
    if (!address.Set(name)) return false;
    const CDescriptor writer(MakeSocket());
    if (writer.Get() < 0) return false;
    ssize_t sent;
    do {
        sent = sendto(writer.Get(), message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL, address.Address(),
                      address.Size());
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(message.size());
}

}  // namespace Platform
