// deliveryfailures.h - what the send daemon's ledger says of members whom a
// server refused for good comes into the inbox, as the notice that a server
// would have sent: rules, records and undo treat both alike.
//
// Only lines that no cycle has seen count: the position in the ledger is written
// in the transaction that makes the notices visible.  Without one, lists older
// than this program's first reading of ledgers begin at the end: what was
// refused when nobody looked is not held against members years later.
//
// Errors   false or CLhvException, with the reason.
// Threads  One at a time; the caller holds the CCycleLock.
// Crash    Each refusal gives one notice.

#ifndef LISTHAVEN_ENGINE_INCOMING_DELIVERYFAILURES_H
#define LISTHAVEN_ENGINE_INCOMING_DELIVERYFAILURES_H

#include <cstdint>

class CCycleState;

// One notice per member and group of new lines; refusals of others have no effect.
bool AddDeliveryNotices(std::uint32_t listNumber, CCycleState& state, std::int64_t now, std::uint64_t& added);

#endif  // LISTHAVEN_ENGINE_INCOMING_DELIVERYFAILURES_H
