// fetchmarks.h - which messages of a POP3 mailbox are known: marks of the kind
// ServerMessage, "STATE SECONDS CONTENT SIZE", with the time when the server
// listed the message last, the key of its content and the size that it listed.
//
// A server may give the id of a deleted message to another one.  So the mark of
// one whose deletion was confirmed says "gone": when the id is listed again, the
// content tells whether it is a new message or one that was not deleted after all.
// For the same reason what an earlier session left marked "delete", and what has
// changed its size, is compared before it is believed to be known.

#ifndef LISTHAVEN_ENGINE_INCOMING_FETCHMARKS_H
#define LISTHAVEN_ENGINE_INCOMING_FETCHMARKS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "engine/incoming/cycletransaction.h"

struct CServerMark {
    enum class State : std::uint8_t { None, Keep, Delete, Gone };

    State state = State::None;
    std::int64_t lastSeen = 0;  // 0: it does not say
    std::string content;        // "": it does not say
    std::uint64_t size = 0;     // in octets; 0: it does not say

    static CServerMark Parse(std::string_view value);
    std::string Encode() const;
};

// Best in their order, in which the state has them too.
struct CServerKeys {
    std::size_t count = 0;
    std::function<std::string_view(std::size_t index)> get;
};

// Those that the server lists: their time is renewed once a day.
bool RenewServerMarks(CCycleState& state, const CServerKeys& listed, std::int64_t now);

// Their deletion was confirmed.
bool SetServerMarksGone(CCycleState& state, const CServerKeys& deleted, std::int64_t now);

// Those not listed since that time; keys that isListed names stay.
bool DropServerMarks(CCycleState& state, const std::function<bool(std::string_view key)>& isListed,
                     std::int64_t lastSeenBefore);

#endif  // LISTHAVEN_ENGINE_INCOMING_FETCHMARKS_H
