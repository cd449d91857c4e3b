#include "platform/systemclaim.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "platform/posix/namedobjects.h"
#include "platform/posix/systempath.h"

namespace Platform {

namespace {

// A length of 0 goes on without end.
struct flock Range(short type, std::uint32_t start, std::uint32_t length) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    return range;
}

// Another system's look holds the byte for an instant.
bool LockOwn(int fd, std::uint32_t party) {
    constexpr int Tries = 200;
    constexpr std::chrono::milliseconds Pause{5};
    for (int attempt = 0; attempt < Tries; ++attempt) {
        struct flock own = Range(F_RDLCK, party, 1);
        if (fcntl(fd, F_OFD_SETLK, &own) == 0) return true;
        if (errno != EAGAIN && errno != EACCES && errno != EINTR) return true;  // a file system without locks
        std::this_thread::sleep_for(Pause);
    }
    return false;
}

bool IsLocked(int fd, std::uint32_t start, std::uint32_t length) {
    struct flock range = Range(F_WRLCK, start, length);
    return fcntl(fd, F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}

}  // namespace

struct CSystemClaim::CState {
    int fd = -1;
};

CSystemClaim::CSystemClaim() : m_state(std::make_unique<CState>()) {}

CSystemClaim::~CSystemClaim() {
    Release();
}

CSystemClaim::Result CSystemClaim::Take(const std::string& file, std::uint32_t party) {
    Release();
    m_state->fd = OpenLockFile(SystemPath(file), true);
    if (m_state->fd < 0) return Result::Failed;
    const bool isAlone = LockOwn(m_state->fd, party) && (party == 0 || !IsLocked(m_state->fd, 0, party)) &&
                         !IsLocked(m_state->fd, party + 1, 0);
    if (!isAlone) Release();
    return isAlone ? Result::Taken : Result::OtherSystem;
}

void CSystemClaim::Release() noexcept {
    const int code = errno;
    if (m_state->fd >= 0) close(m_state->fd);
    m_state->fd = -1;
    errno = code;
}

std::uint32_t CSystemClaim::OwnParty() {
    return 0;
}

}  // namespace Platform
