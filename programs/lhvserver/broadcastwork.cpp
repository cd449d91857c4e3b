#include "programs/lhvserver/broadcastwork.h"

#include <algorithm>
#include <tuple>
#include <vector>

#include "engine/eventlog.h"
#include "utility/lasterror.h"

namespace {

constexpr std::int64_t FirstPause = 60;
constexpr std::int64_t LongestPause = 1800;

}  // namespace

bool CBroadcastWork::Run(std::int64_t now, const std::function<bool()>& stop) {
    m_wasStopped = false;
    struct CDue {
        std::int64_t started;
        std::string id;
    };
    std::vector<CDue> due;
    const auto take = [&](const BroadcastInfo& job) {
        const auto own = m_own.find(job.id);
        if (own != m_own.end()) own->second.isThere = true;
        if (job.state != BroadcastState::Interrupted || !IsOurs(job)) return;
        if (own == m_own.end() || now >= own->second.nextTry) due.push_back({job.started, job.id});
    };
    for (auto& [id, own] : m_own)
        own.isThere = false;
    if (!m_jobs.ForEach(take)) Log(LogError, "The broadcasts cannot be listed: %s", DescribeLastError().c_str());
    std::erase_if(m_own, [](const auto& own) { return !own.second.isThere; });
    std::sort(due.begin(), due.end(),
              [](const CDue& a, const CDue& b) { return std::tie(a.started, a.id) < std::tie(b.started, b.id); });
    for (const CDue& job : due) {
        m_wasStopped = m_wasStopped || stop();
        if (!m_wasStopped)
            RunOne(job.id, now, stop);
        else
            m_own[job.id];
    }
    m_hasStarted = true;
    return !due.empty();
}

bool CBroadcastWork::IsOurs(const BroadcastInfo& info) {
    return !m_hasStarted || !info.hasBegun || m_own.contains(info.id);
}

void CBroadcastWork::RunOne(const std::string& id, std::int64_t now, const std::function<bool()>& stop) {
    BroadcastInfo info;
    const bool succeeded = m_jobs.Run(id, stop, {}, info);  // logs what fails
    if (!succeeded) {
        COwn& own = m_own[id];
        own.pause = own.pause == 0 ? FirstPause : std::min(2 * own.pause, LongestPause);
        own.nextTry = now + own.pause;
        return;
    }
    if (info.state == BroadcastState::Interrupted) {
        m_own[id] = {};
        m_wasStopped = true;
        return;
    }
    m_own.erase(id);
    Log(LogInfo, "Broadcast %s is %s: %llu copies.", info.id.c_str(),
        std::string(BroadcastStateName(info.state)).c_str(), static_cast<unsigned long long>(info.counts.copies));
}
