// mailrounds.h - what the server does with mail, one look at a time: the cycles
// that are due, what moderators have accepted, digests, broadcasts, pruning.
//
// A list whose cycle failed comes after the others.  Broadcasts stop, to go on
// afterwards, when a cycle is due.  A mailbox that takes long is read in turns
// (mailboxturns.h).
//
// Errors   What fails is logged once, then counted, and tried again; one list
//          does not keep the others from their turn.
// Threads  One, but stop and control may be used by others.

#ifndef LISTHAVEN_PROGRAMS_LHVSERVER_MAILROUNDS_H
#define LISTHAVEN_PROGRAMS_LHVSERVER_MAILROUNDS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "engine/incoming/cycleschedule.h"
#include "engine/incoming/mailboxturns.h"
#include "engine/incoming/mailcycle.h"
#include "programs/lhvserver/broadcastwork.h"
#include "programs/lhvserver/failurelog.h"

class CMailRounds {
public:
    CMailRounds(std::function<bool()> stop, CCycleControl& control);

    bool Look();     // whatever is due now; whether anything was done
    void RunOnce();  // a cycle of every list within its hours, digests that are due, every broadcast

private:
    struct CList {
        std::int32_t index = 0;
        std::uint32_t number = 0;
        std::string name;
        bool isDue = false;
    };
    enum class Which { Due, Every, Cut };

    void Round(Which which);
    std::vector<CList> FindLists(Which which);
    bool IsAnyCycleDue();
    bool IsDue(const CCycleSchedule& schedule, const CList& list, std::int64_t now) const;
    void RunCycle(const CList& list);
    void TakeUpAccepted(const CList& list);
    void MakeDigest(const CList& list);
    void RunBroadcasts(Which which);
    void Prune();
    void WarnOfDigests();
    bool Guard(const std::string& key, const std::string& what, const std::function<bool()>& work);

    std::function<bool()> m_stop;
    CCycleControl& m_control;
    CFailureLog m_failures;
    CBroadcastWork m_broadcasts;
    CMailboxTurns m_turns;
    bool m_isBroadcasting = false;
    std::map<std::uint32_t, std::int64_t> m_attempts;       // list: when its last cycle began
    std::map<std::uint32_t, std::int64_t> m_busy;           // list: when another program was at it
    std::map<std::uint32_t, std::int64_t> m_acceptedTries;  // list: when what was accepted is looked at again
    std::set<std::uint32_t> m_warnedOf;                     // lists whose digest is never due
    bool m_hasNew = true;                                   // broadcasts may have been made
    bool m_hasWorked = false;                               // in this look
    std::int64_t m_nextMinute = 0;                          // for what is looked at once a minute
    std::int64_t m_nextPruning = 0;
};

#endif  // LISTHAVEN_PROGRAMS_LHVSERVER_MAILROUNDS_H
