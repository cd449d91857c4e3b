#include "engine/deliveries.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "engine/broadcastjob.h"
#include "engine/listaccount.h"
#include "senddaemon/accountfolders.h"
#include "utility/text.h"

namespace {

using SendDaemon::CDeliveryLine;
using SendDaemon::DeliveryStatus;

// Of (broadcast, message, recipient); two recipients with one hash are not worth the memory of their names.
std::uint64_t HashOf(const CDeliveryLine& line, std::string& key) {
    key.assign(line.broadcast).append(1, '\t').append(line.message).append(1, '\t').append(line.recipient);
    return std::hash<std::string>()(key);
}

bool IsWanted(const CDeliveryFilter& filter, const CDeliveryLine& line) {
    return (filter.broadcast.empty() || line.broadcast == filter.broadcast) &&
           (filter.recipient.empty() || EqualNoCase(line.recipient, filter.recipient));
}

bool HasStatus(const CDeliveryFilter& filter, const CDeliveryLine& line) {
    return filter.statuses.empty() ||
           std::find(filter.statuses.begin(), filter.statuses.end(), line.status) != filter.statuses.end();
}

using CLastLines = std::unordered_map<std::uint64_t, std::uint64_t>;  // hash to the number of the line

bool FindLastLines(const SendDaemon::CDeliverySnapshot& ledger, const CDeliveryFilter& filter, CLastLines& last) {
    std::uint64_t number = 0;
    std::string key;
    return ledger.ForEach([&](const CDeliveryLine& line) {
        ++number;
        if (IsWanted(filter, line)) last[HashOf(line, key)] = number;
        return true;
    });
}

std::uint64_t& CountFor(CBroadcastDeliveries& counts, DeliveryStatus status) {
    switch (status) {
        case DeliveryStatus::Accepted:
        case DeliveryStatus::Sent:
            return counts.sent;
        case DeliveryStatus::Deferred:
            return counts.deferred;
        case DeliveryStatus::Failed:
            return counts.failed;
        case DeliveryStatus::Expired:
            return counts.expired;
        case DeliveryStatus::Parked:
            return counts.parked;
        case DeliveryStatus::Requeued:
            break;
    }
    return counts.waiting;
}

// In the order of the first lines.
class CSummary {
public:
    bool Read(const std::string& accountRoot, std::uint64_t* skipped);
    bool AddJobs(std::uint32_t listNumber, std::uint64_t inQueue);
    std::vector<CBroadcastDeliveries> Finish();

private:
    struct CRecipientState {
        std::uint32_t broadcast;
        DeliveryStatus status;
    };
    std::uint32_t FindBroadcast(const std::string& id);

    std::vector<CBroadcastDeliveries> m_broadcasts;
    std::map<std::string, std::uint32_t> m_positions;
};

std::uint32_t CSummary::FindBroadcast(const std::string& id) {
    const auto [found, isNew] = m_positions.emplace(id, static_cast<std::uint32_t>(m_broadcasts.size()));
    if (isNew) m_broadcasts.push_back({.broadcast = id});
    return found->second;
}

bool CSummary::Read(const std::string& accountRoot, std::uint64_t* skipped) {
    std::unordered_map<std::uint64_t, CRecipientState> states;
    std::string key;
    const auto visit = [&](const CDeliveryLine& line) {
        states[HashOf(line, key)] = {FindBroadcast(line.broadcast), line.status};
        return true;
    };
    const bool isRead = SendDaemon::ForEachDeliveryLine(accountRoot, visit, skipped);
    for (const auto& [hash, state] : states)
        ++CountFor(m_broadcasts[state.broadcast], state.status);
    return isRead;
}

// What waits is given to the newest first: copies of an old one that no line
// speaks of are rather those whose lines are gone.
bool CSummary::AddJobs(std::uint32_t listNumber, std::uint64_t inQueue) {
    std::vector<BroadcastInfo> jobs;
    if (!CBroadcastJobs().List(jobs)) return false;
    for (const BroadcastInfo& job : jobs) {
        const bool isOurs = std::find(job.lists.begin(), job.lists.end(), listNumber) != job.lists.end();
        if (isOurs || m_positions.contains(job.id)) m_broadcasts[FindBroadcast(job.id)].subject = job.subject;
    }
    for (auto job = jobs.rbegin(); job != jobs.rend(); ++job) {
        const auto found = m_positions.find(job->id);
        if (found == m_positions.end()) continue;
        CBroadcastDeliveries& counts = m_broadcasts[found->second];
        const std::uint64_t tried = counts.sent + counts.deferred + counts.failed + counts.expired + counts.parked;
        const std::uint64_t untried = job->counts.copies > tried ? job->counts.copies - tried : 0;
        counts.waiting = std::max(counts.waiting, std::min(untried, inQueue));
        inQueue -= std::min(inQueue, counts.waiting);
    }
    return true;
}

std::vector<CBroadcastDeliveries> CSummary::Finish() {
    for (CBroadcastDeliveries& counts : m_broadcasts) {
        counts.copies = counts.sent + counts.deferred + counts.failed + counts.expired + counts.parked + counts.waiting;
    }
    return std::move(m_broadcasts);
}

}  // namespace

bool ForEachDelivery(std::string_view accountRoot, const CDeliveryFilter& filter,
                     const std::function<bool(const CDeliveryLine&)>& visit, std::uint64_t* skipped) {
    SendDaemon::CDeliverySnapshot ledger;
    CLastLines last;
    if (!ledger.Open(accountRoot)) return false;
    if (!filter.everyLine && !FindLastLines(ledger, filter, last)) return false;
    std::uint64_t number = 0;
    std::string key;
    return ledger.ForEach(
        [&](const CDeliveryLine& line) {
            ++number;
            if (!IsWanted(filter, line) || !HasStatus(filter, line)) return true;
            return (!filter.everyLine && last[HashOf(line, key)] != number) || visit(line);
        },
        skipped);
}

bool SummarizeDeliveries(std::uint32_t listNumber, std::vector<CBroadcastDeliveries>& broadcasts,
                         std::uint64_t* skipped) {
    const std::string root = GetAccountRoot(listNumber);
    CSummary summary;
    const SendDaemon::CAccountCounts queue = SendDaemon::CountAccountMessages(root);
    if (!summary.Read(root, skipped) || !summary.AddJobs(listNumber, queue.waiting + queue.claimed)) return false;
    broadcasts = summary.Finish();
    return true;
}
