// systemnames.h - the addresses of a host, as the system knows them; can be
// given up from another thread.
//
// Errors   false; failure says why: NameNotFound, NameUnknown or Cancelled.
// Threads  Find() one at a time; Cancel() from any other at any moment: it ends
//          a search that is running, and does nothing when there is none.

#ifndef LISTHAVEN_NET_SYSTEMNAMES_H
#define LISTHAVEN_NET_SYSTEMNAMES_H

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "net/failure.h"

namespace Net {

class CSystemNames {
public:
    CSystemNames();
    CSystemNames(const CSystemNames&) = delete;
    CSystemNames& operator=(const CSystemNames&) = delete;
    ~CSystemNames();

    // isCancelled is set before Cancel() is called.
    bool Find(const std::string& host, std::chrono::milliseconds limit, const std::atomic<bool>& isCancelled,
              std::vector<std::string>& addresses, Failure& failure);
    void Cancel() noexcept;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_SYSTEMNAMES_H
