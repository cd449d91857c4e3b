#include "senddaemon/backoff.h"

#include <algorithm>

#include "senddaemon/retryschedule.h"

namespace SendDaemon {

namespace {

constexpr std::int64_t ForgetAfter = 6 * 3600;
constexpr std::size_t LeastForgotten = 1000;

}  // namespace

CBackOff::State CBackOff::GetState(std::string_view destination, std::int64_t now) const {
    const auto found = m_entries.find(destination);
    if (found == m_entries.end()) return State::Free;
    if (found->second.isProbing) return State::Probing;
    // More than it was given is left only when the clock was set back.
    const std::int64_t left = found->second.until - now;
    return left > 0 && left <= GetBackOffSeconds(found->second.failures) ? State::Resting : State::ProbeDue;
}

std::int64_t CBackOff::GetEnd(std::string_view destination) const {
    const auto found = m_entries.find(destination);
    return found == m_entries.end() ? 0 : found->second.until;
}

std::string CBackOff::GetReason(std::string_view destination) const {
    const auto found = m_entries.find(destination);
    return found == m_entries.end() ? std::string() : found->second.reason;
}

bool CBackOff::BeginProbe(std::string_view destination, std::int64_t now) {
    if (GetState(destination, now) != State::ProbeDue) return false;
    m_entries.find(destination)->second.isProbing = true;
    return true;
}

void CBackOff::OnProbeLost(std::string_view destination) {
    const auto found = m_entries.find(destination);
    if (found != m_entries.end()) found->second.isProbing = false;
}

// Of domains that nobody writes to any more.
void CBackOff::ForgetOld(std::int64_t now) {
    if (m_entries.size() < m_forgetAt) return;
    std::erase_if(m_entries,
                  [&](const auto& each) { return !each.second.isProbing && now - each.second.until > ForgetAfter; });
    m_forgetAt = std::max(LeastForgotten, 2 * m_entries.size());
}

bool CBackOff::OnUnavailable(std::string_view destination, bool isProbe, std::int64_t now, std::string_view reason) {
    ForgetOld(now);
    const auto [found, isNew] = m_entries.try_emplace(std::string(destination));
    CEntry& entry = found->second;
    if (!isNew && !isProbe) return false;
    entry.until = now + GetBackOffSeconds(++entry.failures);
    entry.isProbing = false;
    entry.reason = reason;
    return true;
}

bool CBackOff::OnAnswered(std::string_view destination) {
    const auto found = m_entries.find(destination);
    if (found == m_entries.end()) return false;
    m_entries.erase(found);
    return true;
}

}  // namespace SendDaemon
