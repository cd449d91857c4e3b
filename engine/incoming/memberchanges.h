// memberchanges.h - what messages do to member records.
//
// Errors   CLhvException from the stores.
// Threads  One at a time.

#ifndef LISTHAVEN_ENGINE_INCOMING_MEMBERCHANGES_H
#define LISTHAVEN_ENGINE_INCOMING_MEMBERCHANGES_H

#include <string>
#include <string_view>

#include "engine/incoming/listview.h"
#include "engine/member.h"

class CBlockedAddresses;

enum class MemberChange {
    None,   // "said" tells why, or that nothing had to be done
    Added,  // also: is active again
    Updated,
    Removed,
};

// said: address, name and fields as the message has them; what is empty there
// leaves the record as it is.  A member who was inactive is active again, and what
// bounces had counted is forgotten: he has just shown that mail reaches him.  With
// one who is active only time does that.
MemberChange AddSubscriber(CListView& view, CBlockedAddresses& blocked, const CMember& said, std::string& what);

MemberChange UpdateSubscriber(CListView& view, const CMember& said, std::string& what);
MemberChange RemoveSubscriber(CListView& view, std::string_view address, CMember& removed, std::string& what);
MemberChange SetSubscriberMode(CListView& view, std::string_view address, DeliveryMode mode, std::string& what);

#endif  // LISTHAVEN_ENGINE_INCOMING_MEMBERCHANGES_H
