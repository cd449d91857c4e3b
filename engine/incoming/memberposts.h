// memberposts.h - a post on its way to the members of a list.
//
// Few recipients get their copies within the transaction of the post; for more
// of them a broadcast is created, which makes the same copies later.
//
// Errors   false, with the reason in the last-error text: the transaction cannot
//          take it.  CLhvException from the view.
// Threads  One at a time in the process: the table of data fields is shared.
// Crash    As the transaction: all of the copies or none.
// Memory   The post and one copy.

#ifndef LISTHAVEN_ENGINE_INCOMING_MEMBERPOSTS_H
#define LISTHAVEN_ENGINE_INCOMING_MEMBERPOSTS_H

#include <cstddef>
#include <string>
#include <string_view>

#include "engine/broadcast.h"

class CCycleTransaction;
class CListView;

inline constexpr std::size_t MostDirectCopies = 50;  // recipients

enum class PostWay {
    Failed,
    Copies,
    Broadcast,
};

// To the members as the view has them.  text: the message with its control
// headers.  Nothing that is set for the message at hand may be in the table of
// data fields.  done: a line for the log when the transaction is committed, or "".
PostWay AddPost(CCycleTransaction& transaction, CListView& view, const std::string& queueFolder, std::string text,
                const BroadcastModes& modes, std::string& done);

#endif  // LISTHAVEN_ENGINE_INCOMING_MEMBERPOSTS_H
