#include "programs/lhvserver/broadcastwork.h"

#include <algorithm>
#include <vector>

#include "engine/eventlog.h"
#include "utility/lasterror.h"

namespace {

constexpr std::int64_t FirstPause = 60;
constexpr std::int64_t LongestPause = 1800;

}  // namespace

void CBroadcastWork::Run(std::int64_t now, const std::function<bool()>& stop) {
    m_wasStopped = false;
    std::vector<BroadcastInfo> jobs;
    if (!m_jobs.List(jobs)) Log(LogError, "The broadcasts cannot be listed: %s", DescribeLastError().c_str());
    for (const BroadcastInfo& job : jobs) {
        if (job.state != BroadcastState::Interrupted || !IsOurs(job)) continue;
        if (now < m_own[job.id].nextTry) continue;
        if (stop()) m_wasStopped = true;
        if (!m_wasStopped) RunOne(job, now, stop);
    }
    m_hasStarted = true;
    std::erase_if(m_own, [&](const auto& own) {
        return std::none_of(jobs.begin(), jobs.end(), [&](const BroadcastInfo& job) { return job.id == own.first; });
    });
}

bool CBroadcastWork::IsOurs(const BroadcastInfo& info) {
    return !m_hasStarted || !info.hasBegun || m_own.contains(info.id);
}

void CBroadcastWork::RunOne(const BroadcastInfo& job, std::int64_t now, const std::function<bool()>& stop) {
    BroadcastInfo info = job;
    const bool succeeded = m_jobs.Run(job.id, stop, {}, info);  // logs what fails
    if (!succeeded) {
        COwn& own = m_own[job.id];
        own.pause = own.pause == 0 ? FirstPause : std::min(2 * own.pause, LongestPause);
        own.nextTry = now + own.pause;
        return;
    }
    if (info.state == BroadcastState::Interrupted) {
        m_own[job.id] = {};
        m_wasStopped = true;
        return;
    }
    m_own.erase(job.id);
    Log(LogInfo, "Broadcast %s is %s: %llu copies.", info.id.c_str(),
        std::string(BroadcastStateName(info.state)).c_str(), static_cast<unsigned long long>(info.counts.copies));
}
