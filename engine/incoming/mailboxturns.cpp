#include "engine/incoming/mailboxturns.h"

#include <algorithm>
#include <utility>

std::chrono::seconds CMailboxTurns::GetLimit(std::uint32_t list, int seconds) const {
    const auto turn = m_turns.find(list);
    const unsigned doublings = turn == m_turns.end() ? 0 : turn->second.doublings;
    return std::chrono::seconds(std::max(seconds, 0)) * (1 << doublings);
}

bool CMailboxTurns::NoteCut(std::uint32_t list, bool hasCome, std::int64_t began, std::int64_t now) {
    CTurn& turn = m_turns[list];
    if (!hasCome && turn.doublings == MostDoublings) {
        m_turns.erase(list);
        return false;
    }
    turn.doublings = hasCome ? 0 : turn.doublings + 1;
    turn.ended = now;
    turn.next = now + std::max<std::int64_t>(now - began, 0);
    return m_hasCut = true;
}

// When the clock was set back it does not wait for what was.
bool CMailboxTurns::IsPausing(std::uint32_t list, std::int64_t now) const {
    const auto turn = m_turns.find(list);
    return turn != m_turns.end() && now >= turn->second.ended && now < turn->second.next;
}

bool CMailboxTurns::TakeCut() {
    return std::exchange(m_hasCut, false);
}
