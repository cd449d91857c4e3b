// repair.h - puts right what an unclean shutdown left in the data folder.
//
// Tables: half a record at the end is dropped, a record whose flag is neither
// 'N' nor 'Y' becomes a deleted one, a reference to a text that is not there or
// damaged becomes none, a text that two records share is given to each, space
// that no text uses is freed, an interrupted rewriting is finished, a missing or
// short version file is written when the length fits one layout only.  Indexes
// are made anew.  Files that were left half-written are removed.  Nothing that
// could still be somebody's mail is touched.
//
// Errors   false when a fault remains, each one told like an action.  Nothing
//          throws but what report throws.
// Sharing  Each table is repaired under its named mutex; other programs may run.
// Crash    May be interrupted at any point and run again.

#ifndef LISTHAVEN_ENGINE_REPAIR_H
#define LISTHAVEN_ENGINE_REPAIR_H

#include <functional>
#include <string>

enum class LostMembers {
    Awaited,  // a fault that remains: their list takes no mail in until they are members again
    Accepted  // their lists go on without them
};

// report gets one sentence for each action and each remaining fault; they are
// logged as well.
bool RepairDataFolder(const std::function<void(const std::string& action)>& report,
                      LostMembers lost = LostMembers::Awaited);

#endif  // LISTHAVEN_ENGINE_REPAIR_H
