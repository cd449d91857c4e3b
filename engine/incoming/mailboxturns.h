// mailboxturns.h - how long the server reads the mailbox of a list before others
// have their turn.
//
// A server that sends a byte now and then must not hold the one thread that
// looks after all lists' mail.  A list whose time was over goes on in the next
// look.  While broadcasts wait it pauses as long as its turn took, so that they
// have half of the time.  If no message came whole it gets twice the time, up to
// four times, so that one that is long can come at last; if it then still gets
// none it waits for its next cycle.
//
// Threads  One.  Times are seconds since 1970.

#ifndef LISTHAVEN_ENGINE_INCOMING_MAILBOXTURNS_H
#define LISTHAVEN_ENGINE_INCOMING_MAILBOXTURNS_H

#include <chrono>
#include <cstdint>
#include <map>

class CMailboxTurns {
public:
    static constexpr unsigned MostDoublings = 2;

    std::chrono::seconds GetLimit(std::uint32_t list, int seconds) const;  // seconds: the setting
    // Whether it is to go on soon.
    bool NoteCut(std::uint32_t list, bool hasCome, std::int64_t began, std::int64_t now);
    void NoteEnd(std::uint32_t list) { m_turns.erase(list); }
    bool WasCut(std::uint32_t list) const { return m_turns.contains(list); }
    bool IsPausing(std::uint32_t list, std::int64_t now) const;
    bool TakeCut();  // whether any was since the last call

private:
    struct CTurn {
        unsigned doublings = 0;
        std::int64_t ended = 0;
        std::int64_t next = 0;
    };
    std::map<std::uint32_t, CTurn> m_turns;
    bool m_hasCut = false;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_MAILBOXTURNS_H
