#include "platform/systemclaim.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "platform/claimpause.h"
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

// False also when another system's look holds the byte for an instant.
bool LockOwn(int fd, std::uint32_t party) {
    struct flock own = Range(F_RDLCK, party, 1);
    if (fcntl(fd, F_OFD_SETLK, &own) == 0) return true;
    return errno != EAGAIN && errno != EACCES && errno != EINTR;  // true on a file system without locks
}

void UnlockOwn(int fd, std::uint32_t party) {
    struct flock own = Range(F_UNLCK, party, 1);
    fcntl(fd, F_OFD_SETLK, &own);
}

bool IsLocked(int fd, std::uint32_t start, std::uint32_t length) {
    struct flock range = Range(F_WRLCK, start, length);
    return fcntl(fd, F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}

bool TryTake(int fd, std::uint32_t party) {
    if (!LockOwn(fd, party)) return false;
    if ((party == 0 || !IsLocked(fd, 0, party)) && !IsLocked(fd, party + 1, 0)) return true;
    UnlockOwn(fd, party);
    return false;
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
    const auto end = std::chrono::steady_clock::now() + ClaimPatience;
    while (!TryTake(m_state->fd, party)) {
        if (std::chrono::steady_clock::now() >= end) {
            Release();
            return Result::OtherSystem;
        }
        std::this_thread::sleep_for(ClaimPause());
    }
    return Result::Taken;
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
