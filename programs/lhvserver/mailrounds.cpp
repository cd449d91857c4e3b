#include "programs/lhvserver/mailrounds.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "app/notifications.h"
#include "app/settings.h"
#include "engine/catalogue.h"
#include "engine/eventlog.h"
#include "engine/incoming/bouncerecords.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/digests.h"
#include "platform/filestatus.h"
#include "senddaemon/messageiterator.h"
#include "senddaemon/notificationlistener.h"
#include "utility/lasterror.h"

namespace {

constexpr std::int64_t Minute = 60;
constexpr std::int64_t BusyPause = 30;  // before a list that another program is at is asked again
constexpr std::int64_t PruningInterval = 6 * 3600;
constexpr std::int64_t Day = 86400;
constexpr std::chrono::seconds DueCheckInterval{1};  // while copies are made

std::int64_t Now() {
    return Platform::SecondsSince1970();
}

bool HoldsMessage(const std::string& queue) {
    CMessageIterator iterator;
    std::string path;
    return Platform::FolderIsThere(queue) && iterator.Start(queue) && iterator.PeekCurrent(path);
}

// The front end, if there is one.
void Notify(std::uint32_t list, const CCycleTotals& totals) {
    const auto tell = [list](Notification kind) {
        SendDaemon::SendNotification(static_cast<std::uint32_t>(kind), list);
    };
    if (totals.processed > 0) tell(Notification::MailProcessed);
    if (totals.held > 0) tell(Notification::MessageHeld);
}

}  // namespace

CMailRounds::CMailRounds(std::function<bool()> stop, CCycleControl& control)
    : m_stop(std::move(stop)), m_control(control) {}

bool CMailRounds::Look() {
    m_hasWorked = false;
    Guard("look", "Looking after the lists' mail", [&] {
        Round(Which::Due);
        return true;
    });
    return m_hasWorked;
}

void CMailRounds::RunOnce() {
    Guard("look", "Looking after the lists' mail", [&] {
        Round(Which::Every);
        while (m_turns.TakeCut() && !m_stop())
            Round(Which::Cut);
        return true;
    });
}

// The work of one list or of one kind; whatever it throws stays here.
bool CMailRounds::Guard(const std::string& key, const std::string& what, const std::function<bool()>& work) {
    std::string reason;
    try {
        if (work()) {
            m_failures.NoteSuccess(key, what);
            return true;
        }
        reason = DescribeLastError();
    } catch (const std::exception& exception) {
        reason = exception.what();
    }
    if (!m_stop()) m_failures.NoteFailure(key, what, reason, Now());
    return false;
}

void CMailRounds::Round(Which which) {
    const std::int64_t now = Now();
    const bool isMinute = which != Which::Due || now >= m_nextMinute || now < m_nextMinute - Minute;
    if (isMinute) m_nextMinute = now + Minute;
    const std::vector<CList> lists = FindLists(which);
    for (const CList& list : lists) {
        if (m_stop()) return;
        if (list.isDue)
            RunCycle(list);
        else
            TakeUpAccepted(list);
        if (list.isDue || isMinute) MakeDigest(list);
    }
    if (!m_stop() && (isMinute || m_hasNew || m_broadcasts.HasMore())) RunBroadcasts(which);
    if (!m_stop() && (now >= m_nextPruning || now < m_nextPruning - PruningInterval)) {
        m_nextPruning = now + PruningInterval;
        m_hasWorked = true;
        Prune();
        WarnOfDigests();
    }
}

// Enabled ones within their hours; those whose cycle failed last.
std::vector<CMailRounds::CList> CMailRounds::FindLists(Which which) {
    CCatalogue& catalogue = GetCatalogue();
    const CCycleSchedule schedule = ReadCycleSchedule();
    const std::int64_t now = Now();
    std::vector<CList> lists;
    for (const std::int32_t index : catalogue.GetLists()) {
        CList list{index, catalogue.GetListNumber(index), {}, which == Which::Every};
        if (which == Which::Cut) list.isDue = m_turns.WasCut(list.number);
        Guard("list " + std::to_string(list.number), "Reading the settings of list " + std::to_string(list.number),
              [&] {
                  if (!catalogue.GetFlag(index, ListColumn::Enabled)) return true;
                  if (!IsWithinHours(ReadCycleHours(index), now)) return true;
                  list.name = catalogue.GetName(index);
                  const auto busy = m_busy.find(list.number);
                  const bool isBusy = busy != m_busy.end() && now < busy->second + BusyPause && now >= busy->second;
                  list.isDue = list.isDue || (which == Which::Due && !isBusy && IsDue(schedule, list, now));
                  lists.push_back(list);
                  return true;
              });
    }
    std::stable_partition(lists.begin(), lists.end(), [&](const CList& list) {
        return !m_failures.IsFailing("mail " + std::to_string(list.number));
    });
    return lists;
}

bool CMailRounds::IsDue(const CCycleSchedule& schedule, const CList& list, std::int64_t now) const {
    // What it has left is not to keep the copies from being made.
    if ((m_isBroadcasting || m_broadcasts.HasMore()) && m_turns.IsPausing(list.number, now)) return false;
    CCatalogue& catalogue = GetCatalogue();
    std::int64_t last = catalogue.GetNumber(list.index, ListColumn::LastCycle);
    // An attempt that failed left no trace in the catalogue.
    const auto attempt = m_attempts.find(list.number);
    if (attempt != m_attempts.end() && attempt->second <= now && (last > now || last < attempt->second))
        last = attempt->second;
    return IsCycleDue(schedule, last, catalogue.GetNumber(list.index, ListColumn::Created), now);
}

bool CMailRounds::IsAnyCycleDue() {
    const std::vector<CList> lists = FindLists(Which::Due);
    return std::any_of(lists.begin(), lists.end(), [](const CList& list) { return list.isDue; });
}

void CMailRounds::RunCycle(const CList& list) {
    const std::int64_t began = Now();
    CycleResult result = CycleResult::Failed;
    bool hasCome = false;
    Guard("mail " + std::to_string(list.number), "Processing the mail of the list \"" + list.name + "\"", [&] {
        CCycleTotals totals;
        m_control.LimitMailbox(m_turns.GetLimit(list.number, ReadSetting("Service", "MailboxTime", 120)));
        result = RunMailCycle(list.number, m_stop, totals, &m_control);
        m_hasNew = m_hasNew || totals.processed != 0 || totals.posted != 0;
        hasCome = totals.fetched > 0;
        Notify(list.number, totals);
        m_hasWorked = m_hasWorked || hasCome || totals.processed + totals.failed > 0;
        if (result != CycleResult::Cut || hasCome) return result != CycleResult::Failed;
        SetLastErrorText("The POP3 server is so slow that no message has come whole in the time for one mailbox.");
        return false;
    });
    if (result != CycleResult::Cut) m_turns.NoteEnd(list.number);
    if (result == CycleResult::Cut && m_turns.NoteCut(list.number, hasCome, began, Now())) return;
    (result == CycleResult::Busy ? m_busy : m_attempts)[list.number] = began;
}

// They need not wait for the next cycle.  What stays there is tried again once a minute.
void CMailRounds::TakeUpAccepted(const CList& list) {
    const std::int64_t now = Now();
    const auto next = m_acceptedTries.find(list.number);
    if (next != m_acceptedTries.end() && now < next->second && now >= next->second - Minute) return;
    if (!HoldsMessage(GetAcceptedFolder(list.number))) return;
    m_acceptedTries[list.number] = now + Minute;
    m_hasNew = true;
    m_hasWorked = true;
    Guard("accepted " + std::to_string(list.number), "Processing what was accepted for the list \"" + list.name + "\"",
          [&] {
              CCycleTotals totals;
              const CycleResult result = ProcessInbox(list.number, m_stop, totals);
              Notify(list.number, totals);
              return result != CycleResult::Failed;
          });
    if (!HoldsMessage(GetAcceptedFolder(list.number))) m_acceptedTries.erase(list.number);
}

void CMailRounds::MakeDigest(const CList& list) {
    if (m_stop() || !HasDigestWork(list.number)) return;
    Guard("digest " + std::to_string(list.number), "The digest of the list \"" + list.name + "\"", [&] {
        const CCycleLock lock(list.number);
        if (!lock.IsHeld()) return true;  // the next look is soon
        bool sent = false;
        const bool succeeded = SendDigestIfDue(list.number, Now(), sent);
        m_hasNew = m_hasNew || sent;
        m_hasWorked = m_hasWorked || sent;
        return succeeded;
    });
}

void CMailRounds::RunBroadcasts(Which which) {
    using Clock = std::chrono::steady_clock;
    m_hasNew = false;
    auto nextCheck = Clock::now() + DueCheckInterval;
    bool isCycleDue = false;
    const auto stop = [&] {
        if (m_stop()) return true;
        if (which != Which::Due || isCycleDue || Clock::now() < nextCheck) return isCycleDue;
        nextCheck = Clock::now() + DueCheckInterval;
        return isCycleDue = IsAnyCycleDue();
    };
    m_isBroadcasting = true;
    Guard("broadcasts", "Running the broadcasts", [&] {
        const bool hasWorked = m_broadcasts.Run(Now(), stop);
        m_hasWorked = m_hasWorked || hasWorked;
        return true;
    });
    m_isBroadcasting = false;
}

void CMailRounds::Prune() {
    Guard("pruning", "Removing old broadcasts", [] {
        const int days = ReadSetting("Service", "KeepBroadcasts", 30);
        std::size_t pruned = 0;
        const bool succeeded = days <= 0 || CBroadcastJobs().PruneDone(Now() - days * Day, pruned);
        if (pruned != 0) Log(LogInfo, "%zu broadcasts that ended more than %d days ago were removed.", pruned, days);
        return succeeded;
    });
    Guard("bounces", "Removing old bounces", [] {
        for (const std::int32_t index : GetCatalogue().GetLists())
            PruneBounces(GetCatalogue().GetListNumber(index), Now());
        return true;
    });
}

// The rules of a new list collect for a digest, but it is not due by anything.
void CMailRounds::WarnOfDigests() {
    Guard("digests", "Looking at the digests", [&] {
        for (const std::int32_t index : GetCatalogue().GetLists()) {
            const std::uint32_t number = GetCatalogue().GetListNumber(index);
            CDigestState state;
            if (!HasDigestWork(number) || !ReadDigestState(number, state)) continue;
            if (state.isAutomatic || state.entries.empty() || !m_warnedOf.insert(number).second) continue;
            Log(LogWarning,
                "The list \"%s\" has collected %zu messages for a digest that is never due: set digestByTime or "
                "digestByCount, send it with \"digest send\", or let its rules not add to it.",
                GetCatalogue().GetName(index).c_str(), state.entries.size());
        }
        return true;
    });
}
