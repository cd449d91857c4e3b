// systemclaim.h - keeps programs of two systems off one folder.
//
// Locks and mutexes of one operating system are not seen by programs of
// another one that reaches the same folder (Windows programs under Wine beside
// Linux, a network share), nor are Windows' named objects by another machine.
// So each such party has a byte of its own in a file of the folder and keeps
// it locked, in a way that all of them see, while it uses the folder: first it
// locks its own byte, then it looks whether another one is locked; if so, it lets
// go and tries again for a while.  Two that come at one time may both be refused,
// but never does one go on beside another.
//
// Errors   Failed: the file cannot be opened; the reason is in LastSystemError().
//          A file system without such locks protects nobody: Taken.
// Threads  One at a time.
// Crash    The lock ends with the process.

#ifndef LISTHAVEN_PLATFORM_SYSTEMCLAIM_H
#define LISTHAVEN_PLATFORM_SYSTEMCLAIM_H

#include <cstdint>
#include <memory>
#include <string>

namespace Platform {

class CSystemClaim {
public:
    enum class Result { Taken, OtherSystem, Failed };

    CSystemClaim();
    CSystemClaim(const CSystemClaim&) = delete;
    CSystemClaim& operator=(const CSystemClaim&) = delete;
    ~CSystemClaim();  // releases

    // Waits about half a second for another party that only looks.  Of one
    // party any number may hold the claim.
    Result Take(const std::string& file, std::uint32_t party = OwnParty());
    void Release() noexcept;

    // The byte: 0 for POSIX systems, on Windows one per machine (under Wine per prefix).
    static std::uint32_t OwnParty();

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_SYSTEMCLAIM_H
