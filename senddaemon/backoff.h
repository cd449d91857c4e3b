// backoff.h - destinations that take no messages now, and for how long each is
// left alone.
//
// A destination is a host name or a domain, without regard to case.  When its
// time is over one message goes to it as a probe; the others wait for what
// becomes of that one.
//
// Threads  One at a time.

#ifndef LISTHAVEN_SENDDAEMON_BACKOFF_H
#define LISTHAVEN_SENDDAEMON_BACKOFF_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "utility/text.h"

namespace SendDaemon {

class CBackOff {
public:
    enum class State : std::uint8_t {
        Free,
        Resting,   // until its time is over
        ProbeDue,  // one message may go
        Probing,   // it has gone
    };

    // All times are seconds since 1970.
    State GetState(std::string_view destination, std::int64_t now) const;
    std::int64_t GetEnd(std::string_view destination) const;    // 0 when free
    std::string GetReason(std::string_view destination) const;  // of the last failure; "" when free
    bool IsAnyResting() const noexcept { return !m_entries.empty(); }

    // When a probe is due it is begun, and the caller says what came of it:
    // OnUnavailable(), OnAnswered() or OnProbeLost().
    bool BeginProbe(std::string_view destination, std::int64_t now);
    void OnProbeLost(std::string_view destination);  // it ended without having asked the destination

    // Messages that were on their way when it began to rest fail likewise, and
    // change nothing: of a destination that is not free only the probe counts.
    // True when its rest begins or is prolonged.
    bool OnUnavailable(std::string_view destination, bool isProbe, std::int64_t now, std::string_view reason);
    bool OnAnswered(std::string_view destination);  // whatever the answer was; true when it was not free
    void Clear() { m_entries.clear(); }

private:
    struct CEntry {
        std::uint32_t failures = 0;
        std::int64_t until = 0;
        bool isProbing = false;
        std::string reason;
    };
    void ForgetOld(std::int64_t now);

    std::map<std::string, CEntry, CLessNoCase> m_entries;
    std::size_t m_forgetAt = 1000;  // entries
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_BACKOFF_H
