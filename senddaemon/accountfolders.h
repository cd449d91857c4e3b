// accountfolders.h - the queue folders of one sending account.
//
// The account's root folder is itself the send queue: its batch folders hold
// what waits.  The folders named with a dot hold what happened to the rest.
//
// Errors   nullptr or false, with the reason in the last-error text.
// Threads  Any.

#ifndef LISTHAVEN_SENDDAEMON_ACCOUNTFOLDERS_H
#define LISTHAVEN_SENDDAEMON_ACCOUNTFOLDERS_H

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "senddaemon/batchfolder.h"

namespace SendDaemon {

enum class AccountFolder : std::uint8_t {
    Waiting,  // the root folder
    Claimed,  // handed to a sender, not yet reported back
    Sent,
    Errors,
    Expired,
    Parked,    // held back by a delivery limit
    Deferred,  // failed for now, to be tried again
};
inline constexpr std::size_t AccountFolderCount = 7;

inline constexpr std::string_view AccountConfigFileName = "account.cfg";
inline constexpr std::string_view ServerConfigFileName = "server.cfg";
inline constexpr std::string_view CheckerFileName = "checker.cfg";

std::string_view GetAccountFolderName(AccountFolder folder) noexcept;  // ".Queue"; "" for Waiting
std::string GetAccountFolderPath(std::string_view accountRoot, AccountFolder folder);
std::string GetAccountConfigPath(std::string_view accountRoot);

class CAccount {
public:
    bool SetUp(std::string_view rootFolder);  // makes the root folder; "" fails
    const std::string& GetRootFolder() const noexcept { return m_rootFolder; }

    // Opened on first use; stays until this is destroyed.
    CBatchFolder* GetFolder(AccountFolder folder);

private:
    std::string m_rootFolder;
    std::mutex m_lock;
    std::array<std::unique_ptr<CBatchFolder>, AccountFolderCount> m_folders;
};

// Every file counted once, without keeping names.
struct CAccountCounts {
    std::uint64_t waiting = 0;
    std::uint64_t claimed = 0;
    std::uint64_t sent = 0;
    std::uint64_t errors = 0;
    std::uint64_t expired = 0;
    std::uint64_t parked = 0;
    std::uint64_t deferred = 0;
};
CAccountCounts CountAccountMessages(std::string_view accountRoot);  // a folder that is missing has none

struct CDeferredMessages {
    std::uint64_t count = 0;
    std::int64_t firstDue = 0;  // seconds since 1970, by the names of the files; 0: none says
};
CDeferredMessages FindDeferredMessages(std::string_view accountRoot);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_ACCOUNTFOLDERS_H
