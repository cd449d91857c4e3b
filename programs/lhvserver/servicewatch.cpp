#include "programs/lhvserver/servicewatch.h"

#include <algorithm>

#include "app/settings.h"
#include "engine/eventlog.h"
#include "platform/service.h"

namespace {

constexpr std::chrono::minutes UnwatchedInterval{10};  // then it is only logged
constexpr std::chrono::milliseconds LookInterval{200};
constexpr int WaitsPerConversation = 10;  // until the first message comes: connecting, twice, with TLS and login

}  // namespace

bool CServiceWatch::IsMailStuck() const {
    const std::chrono::milliseconds interval = Platform::ServiceWatchInterval().value_or(UnwatchedInterval);
    const std::chrono::milliseconds silence = m_mail.GetSilence();
    if (silence <= interval) return false;
    const std::chrono::seconds wait{std::clamp(ReadSetting("Service", "Pop3Timeout", 60), 0, 86400)};
    return silence > interval + wait * WaitsPerConversation;
}

void CServiceWatch::Look() {
    const auto now = std::chrono::steady_clock::now();
    if (now < m_next) return;
    m_next = now + LookInterval;
    const bool isStuck = IsMailStuck();
    if (isStuck && !m_wasStuck)
        Log(LogError, "The mail thread has not got on for %lld seconds.",
            static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(m_mail.GetSilence()).count()));
    if (!isStuck && m_wasStuck) Log(LogInfo, "The mail thread gets on again.");
    m_wasStuck = isStuck;
    if (!isStuck) Platform::NotifyServiceAlive();
}
