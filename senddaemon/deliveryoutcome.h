// deliveryoutcome.h - what became of a message for each of its recipients, as a
// sender reports it.

#ifndef LISTHAVEN_SENDDAEMON_DELIVERYOUTCOME_H
#define LISTHAVEN_SENDDAEMON_DELIVERYOUTCOME_H

#include <cstdint>
#include <string>
#include <vector>

namespace SendDaemon {

enum class RecipientOutcome : std::uint8_t {
    Accepted,  // the server took it
    Refused,   // for good
    Deferred,  // for now: another time may do
};

struct CRecipientReport {
    std::string recipient;
    RecipientOutcome outcome = RecipientOutcome::Refused;
    std::string host;      // that said so; "" when none was reached
    int code = 0;          // of its reply; 0 without
    std::string enhanced;  // "4.7.1"; "" without
    std::string text;
};

struct CDeliveryReport {
    std::vector<CRecipientReport> recipients;
    // The host takes no messages now (no connection, 421): further ones to the
    // same destination would fail likewise.
    bool isHostUnavailable = false;
    // The data had gone out whole when the connection was lost: a deferred
    // recipient may have the message all the same.
    bool mayBeTaken = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DELIVERYOUTCOME_H
