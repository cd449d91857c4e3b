// deliveries.h - the ledger of a list's account for people: who got what, what
// came of each broadcast, and another try for what failed.
//
// The state of a recipient of a message is that of its last line; accepted and
// not yet filed counts as sent.
//
// Errors   false, with the reason in the last-error text.
// Threads  Any.  Everything works while another process sends.
// Cost     Memory for each recipient of a message is some tens of bytes.

#ifndef LISTHAVEN_ENGINE_DELIVERIES_H
#define LISTHAVEN_ENGINE_DELIVERIES_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "senddaemon/deliverylog.h"

struct CDeliveryFilter {
    std::string broadcast{};  // "": all of these
    std::string recipient{};  // without regard to case
    std::vector<SendDaemon::DeliveryStatus> statuses{};
    bool everyLine = false;  // rather than the last one of each recipient
};

// In the order of the lines.  visit returning false stops.  skipped (if given):
// lines that could not be read.
bool ForEachDelivery(std::string_view accountRoot, const CDeliveryFilter& filter,
                     const std::function<bool(const SendDaemon::CDeliveryLine&)>& visit,
                     std::uint64_t* skipped = nullptr);

// Recipients of one broadcast by state.
struct CBroadcastDeliveries {
    std::string broadcast{};   // "" for messages of none
    std::string subject{};     // "" when its job is gone
    std::uint64_t copies = 0;  // all below
    std::uint64_t sent = 0;
    std::uint64_t deferred = 0;
    std::uint64_t failed = 0;
    std::uint64_t expired = 0;
    std::uint64_t parked = 0;
    std::uint64_t waiting = 0;
};

// The oldest first.  Copies that no line speaks of are waiting as far as the
// list's queue has that many messages.  skipped as above.
bool SummarizeDeliveries(std::uint32_t listNumber, std::vector<CBroadcastDeliveries>& broadcasts,
                         std::uint64_t* skipped = nullptr);

enum class RetryScope : std::uint8_t { Failed, FailedAndExpired };

struct CRetryResult {
    std::uint64_t messages = 0;  // put back
    std::uint64_t recipients = 0;
    std::uint64_t settled = 0;  // messages that stay: a server has them for one of their recipients, or they still wait
    std::uint64_t doubles = 0;  // messages that stay: another one for the same recipient was put back
    std::uint64_t failures = 0;  // could not be moved
    std::string failure{};       // why, the first of them
};

// Puts the broadcast's messages in .Errors (and .Expired) back into the queue,
// as if queued now; those of which a recipient may have got, or may yet get,
// the message stay.  One call at a time for an account: another fails.
// Crash    A message is in one folder at any time; the next call puts back one
//          whose line says so, but which was not moved.
bool RetryFailed(std::string_view accountRoot, std::string_view broadcast, RetryScope scope, std::int64_t now,
                 CRetryResult& result);

#endif  // LISTHAVEN_ENGINE_DELIVERIES_H
