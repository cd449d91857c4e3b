// deliverylogfiles.h - which files a ledger consists of; for the ledger itself.
//
// Threads  Any.  While files may be renamed, under the ledger's mutex.

#ifndef LISTHAVEN_SENDDAEMON_DELIVERYLOGFILES_H
#define LISTHAVEN_SENDDAEMON_DELIVERYLOGFILES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace SendDaemon {

std::string GetDeliveryLogPath(std::string_view accountRoot, std::uint32_t number = 0);  // 0: "delivery.log"
std::string GetDeliveryLogMutexName(std::string_view accountRoot);

// The numbers of those that are there, the newest first; 0 stands for
// "delivery.log" itself.  False, with the reason in the last-error text, when
// the folder cannot be read; a folder that is missing has none.
bool ListDeliveryLogs(std::string_view accountRoot, std::vector<std::uint32_t>& numbers);

// What of a value is stored.
inline constexpr std::size_t DeliveryValueLimit = 4096;
inline constexpr std::size_t DeliveryTextLimit = 1024;
void AppendDeliveryValue(std::string& to, std::string_view value, std::size_t limit);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DELIVERYLOGFILES_H
