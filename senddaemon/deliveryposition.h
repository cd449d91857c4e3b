// deliveryposition.h - a place in a ledger, for those who read it on from where
// they were.
//
// Errors   false, with the reason in the last-error text.
// Threads  Any.
// Cost     What is behind the place, not what is before it; FindDeliveryEnd() the whole ledger.

#ifndef LISTHAVEN_SENDDAEMON_DELIVERYPOSITION_H
#define LISTHAVEN_SENDDAEMON_DELIVERYPOSITION_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "senddaemon/deliverylog.h"

namespace SendDaemon {

// As it is made: the beginning.  It stays good when the files are rotated, and in
// a copy of the data folder.  When its file is gone, what is later than "time" is behind it.
struct CDeliveryPosition {
    std::uint64_t file = 0;    // its identity
    std::uint64_t offset = 0;  // behind the end of a line
    std::int64_t time = 0;     // of the last line before it
    std::string before{};      // the last bytes before it
};
std::string FormatDeliveryPosition(const CDeliveryPosition& position);  // one line without LF
bool ParseDeliveryPosition(std::string_view text, CDeliveryPosition& position);

// The whole lines behind the position, oldest first, until visit returns false
// or there are no more.  The position goes to behind the last one visited; a
// line that is not yet ended is left for the next time.
bool ReadDeliveriesFrom(std::string_view accountRoot, CDeliveryPosition& position,
                        const std::function<bool(const CDeliveryLine&)>& visit);

// Behind the last whole line that there is now.
bool FindDeliveryEnd(std::string_view accountRoot, CDeliveryPosition& position);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DELIVERYPOSITION_H
