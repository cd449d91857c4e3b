// blockedaddresses.h - the addresses that get no mail from any list.
//
// One table for all lists, BLOCKED.DAT in the data folder.  A pattern is an
// address, "*@domain" (that domain) or "*@*.domain" (its subdomains at any
// depth, not the domain itself).  Case of A-Z does not count.
//
// Errors   CLhvException: a pattern that is none, a table that cannot be read.
//          IsBlocked() throws too: a table that cannot be read blocks nobody
//          by mistake and lets nobody through.
// Threads  Any member from any thread; other processes may change the table.
// Crash    A pattern is there whole or not at all.

#ifndef LISTHAVEN_ENGINE_BLOCKEDADDRESSES_H
#define LISTHAVEN_ENGINE_BLOCKEDADDRESSES_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "engine/stable.h"

struct BlockedPattern {
    std::string pattern;
    std::int64_t since = 0;  // seconds since 1970
};

class CBlockedAddresses {
public:
    CBlockedAddresses();  // of the data folder
    explicit CBlockedAddresses(std::string tablePath);
    CBlockedAddresses(const CBlockedAddresses&) = delete;
    CBlockedAddresses& operator=(const CBlockedAddresses&) = delete;
    ~CBlockedAddresses();

    bool Add(std::string_view pattern);                                             // false when it is there already
    bool Remove(std::string_view pattern);                                          // false when it is not there
    void ForEach(const std::function<void(const BlockedPattern& pattern)>& visit);  // oldest first

    // Costs a look at the status of the file and a few hash look-ups, however
    // many patterns there are.  A change by another process is seen at once, or
    // 20 ms later when it followed another one within the tick of the file clock.
    bool IsBlocked(std::string_view address);

    static bool IsPattern(std::string_view pattern, std::string* reason = nullptr);
    static std::span<const CColumnDescription> Columns() noexcept;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

#endif  // LISTHAVEN_ENGINE_BLOCKEDADDRESSES_H
