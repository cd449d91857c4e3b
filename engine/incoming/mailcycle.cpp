#include "engine/incoming/mailcycle.h"

#include <optional>
#include <utility>
#include <vector>

#include "app/logcontext.h"
#include "engine/catalogue.h"
#include "engine/eventlog.h"
#include "engine/incoming/deliveryfailures.h"
#include "engine/incoming/inboxprocessing.h"
#include "engine/incoming/mailfetch.h"
#include "engine/incoming/waitingmessages.h"
#include "engine/memberstore.h"
#include "platform/filestatus.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

// While it lives, Cancel() of the control ends the fetch.
class CCycleControlUse {
public:
    CCycleControlUse(CCycleControl* control, CMailFetch& fetch) : m_control(control) {
        if (m_control == nullptr) return;
        const std::lock_guard guard(m_control->m_lock);
        fetch.LimitTime(m_control->m_mailboxTime);
        m_control->m_fetch = &fetch;
        if (m_control->m_isCancelled) fetch.Cancel();
    }
    CCycleControlUse(const CCycleControlUse&) = delete;
    CCycleControlUse& operator=(const CCycleControlUse&) = delete;
    ~CCycleControlUse() {
        if (m_control == nullptr) return;
        const std::lock_guard guard(m_control->m_lock);
        m_control->m_fetch = nullptr;
    }

private:
    CCycleControl* m_control;
};

void CCycleControl::Cancel() noexcept {
    const std::lock_guard guard(m_lock);
    m_isCancelled = true;
    if (m_fetch != nullptr) m_fetch->Cancel();
}

bool CCycleControl::IsCancelled() const noexcept {
    const std::lock_guard guard(m_lock);
    return m_isCancelled;
}

namespace {

// The steps of one cycle.  Each is false or throws when the cycle has failed.
class CCycle {
public:
    CCycle(std::uint32_t listNumber, const std::function<bool()>& stop, CCycleTotals& totals, std::int64_t fixedNow,
           CCycleControl* control)
        : m_list(listNumber), m_stop(stop), m_totals(totals), m_fixedNow(fixedNow), m_control(control) {}

    bool Open();
    bool ReadLedger();
    bool ProcessWaiting();
    bool ProcessMailbox();
    bool ForgetOldMarks();
    bool EmptyDone() { return m_state.EmptyDone(); }
    bool IsCut() const { return m_isCut; }
    bool WasCancelled() const { return m_control != nullptr && m_control->IsCancelled(); }
    bool IsStopped() const { return (m_stop && m_stop()) || WasCancelled(); }
    std::int64_t Now() const { return m_fixedNow != 0 ? m_fixedNow : Platform::SecondsSince1970(); }

private:
    bool ProcessFolder(const std::string& queueFolder);
    bool FetchAll(CMailFetch& fetch);

    std::uint32_t m_list;
    const std::function<bool()>& m_stop;
    CCycleTotals& m_totals;
    std::int64_t m_fixedNow;
    CCycleControl* m_control;
    bool m_isCut = false;
    CCycleState m_state;
    std::optional<CInboxProcessing> m_processing;
};

// A crash can leave the index ahead of the table, by members who are then put there again.
bool CCycle::Open() {
    std::vector<std::string> lost;
    {
        CMemberStore members;
        members.Open(m_list, CMemberStore::Access::ReadOnly);
        if (members.HasForeignRecords()) {
            throw CLhvException(
                "Records of the list's members are damaged, and those would be taken for strangers: its mail is left "
                "where it is until the data files are repaired.");
        }
        lost = members.FindLost();
    }
    if (!m_state.Open(m_list)) return false;
    if (!m_state.IsToPut(lost)) throw CLhvException(DescribeLostMembers(lost));
    if (!m_state.Recover()) return false;
    m_processing.emplace(m_list, m_state, Now());
    m_processing->StopWhen([this] { return IsStopped(); });
    return true;
}

// Notices that no rule looks at would only fill the inbox.
bool CCycle::ReadLedger() {
    if (!m_processing->HasRules(Now())) return true;
    std::uint64_t added = 0;
    return AddDeliveryNotices(m_list, m_state, Now(), added);
}

bool CCycle::ProcessWaiting() {
    return ProcessFolder(GetAcceptedFolder(m_list)) && ProcessFolder(GetInboxFolder(m_list));
}

bool CCycle::ProcessFolder(const std::string& queueFolder) {
    CWaitingMessages waiting;
    if (!waiting.Load(queueFolder)) return false;
    std::vector<CInboxMessage> group;
    for (std::size_t i = 0; i < waiting.GetCount() && !IsStopped();) {
        group.clear();
        while (group.size() < CInboxProcessing::GroupSize && i < waiting.GetCount())
            group.emplace_back(waiting.GetPath(i++));
        if (!m_processing->Process(group, Now(), m_totals)) return false;
    }
    return true;
}

bool CCycle::ProcessMailbox() {
    CFetchOptions options;
    if (!ReadFetchOptions(m_list, options)) return false;
    if (options.host.empty() || IsStopped()) return true;
    m_processing->CheckRules(Now());
    CMailFetch fetch(m_list, m_state, std::move(options));
    fetch.StopWhen([this] { return IsStopped(); });
    const CCycleControlUse use(m_control, fetch);
    if (!fetch.Open()) {
        SetLastErrorText("The mailbox cannot be opened: " + DescribeLastError());
        return WasCancelled();
    }
    const bool isRead = FetchAll(fetch);
    const CFetchTotals& fetched = fetch.GetTotals();
    m_totals.fetched += fetched.fetched + fetched.tooLarge;
    // The conversation that was ended on purpose has not failed.
    return isRead || WasCancelled();
}

// What was fetched is processed before the next group is taken, which comes meanwhile.
bool CCycle::FetchAll(CMailFetch& fetch) {
    std::vector<CInboxMessage> group;
    while (!IsStopped() && !fetch.IsCut()) {
        const CMailFetch::Step step = fetch.Next(Now(), group);
        if (step == CMailFetch::Step::Failed) return false;
        if (step == CMailFetch::Step::End) break;
        if (!m_processing->Process(group, Now(), m_totals)) return false;
    }
    m_isCut = !IsStopped() && fetch.IsCut();
    return fetch.Finish(Now());
}

bool CCycle::ForgetOldMarks() {
    const std::int64_t now = Now();
    const auto drop = [&](MarkKind kind, std::int64_t interval) {
        return m_state.DropMarks(kind, [&](std::string_view, std::string_view value) {
            return ParseNumber(value.substr(0, value.find(' '))).value_or(0) + interval <= now;
        });
    };
    const bool isDone = drop(MarkKind::Answer, CListView::ReadReplyInterval());
    return drop(MarkKind::Posted, CListView::ReadPostInterval()) && isDone;
}

bool SetLastErrorOfCycle(const std::exception& exception) {
    SetLastErrorFromException(exception);
    return false;
}

using CycleSteps = std::function<bool(CCycle&)>;

CycleResult RunLocked(std::uint32_t listNumber, CCycle& cycle, const CycleSteps& steps) {
    try {
        const CCycleLock lock(listNumber);
        if (!lock.IsHeld()) {
            SetLastErrorText("Another program is working on the mail of the list.");
            return CycleResult::Busy;
        }
        const std::int32_t index = GetCatalogue().FindByNumber(listNumber);
        if (index == CCatalogue::None) throw CLhvException("There is no list with that number.");
        const CLogContext context(GetCatalogue().GetName(index));
        return !steps(cycle) ? CycleResult::Failed : cycle.IsCut() ? CycleResult::Cut : CycleResult::Done;
    } catch (const std::exception& exception) {
        SetLastErrorOfCycle(exception);
        return CycleResult::Failed;
    }
}

// The ledger's notices wait for the next cycle when they cannot be made; mail
// does not wait for them.
bool RunSteps(std::uint32_t listNumber, CCycle& cycle, const CCycleTotals& totals) {
    if (!cycle.Open()) return false;
    const bool hasLedger = cycle.ReadLedger();
    const std::string ledgerReason = hasLedger ? std::string() : DescribeLastError();
    bool isDone = cycle.ProcessWaiting() && cycle.ProcessMailbox();
    const std::string reason = isDone ? ledgerReason : DescribeLastError();
    isDone = isDone && hasLedger;
    cycle.ForgetOldMarks();
    cycle.EmptyDone();
    CCatalogue& catalogue = GetCatalogue();
    const bool isOver = !cycle.IsStopped() && !(isDone && cycle.IsCut());
    if (isOver) catalogue.SetNumber(catalogue.FindByNumber(listNumber), ListColumn::LastCycle, cycle.Now());
    const bool isWorthALine = totals.fetched + totals.processed + totals.failed > 0;
    Log(isWorthALine ? LogInfo : LogDebug, "Mail cycle: %s.", DescribeTotals(totals).c_str());
    if (!isDone) SetLastErrorText(reason);
    if (isDone && cycle.IsCut())
        Log(LogInfo, "The mailbox takes long to read: other lists come first, the rest of it then.");
    return isDone;
}

}  // namespace

std::string DescribeTotals(const CCycleTotals& totals) {
    const std::pair<std::uint64_t, const char*> counts[] = {
        {totals.processed, "processed"},     {totals.replies, "answered"}, {totals.posted, "posted"},
        {totals.digested, "for the digest"}, {totals.held, "held"},        {totals.added, "added"},
        {totals.removed, "removed"},         {totals.bounces, "bounces"},  {totals.loops, "loops"},
        {totals.failed, "failed"},
    };
    std::string text = std::to_string(totals.fetched) + " fetched";
    for (const auto& [count, what] : counts) {
        if (count > 0) text += ", " + std::to_string(count) + " " + what;
    }
    return text;
}

CycleResult RunMailCycle(std::uint32_t listNumber, const std::function<bool()>& stop, CCycleTotals& totals,
                         CCycleControl* control) {
    CCycle cycle(listNumber, stop, totals, 0, control);
    return RunLocked(listNumber, cycle, [&](CCycle& it) { return RunSteps(listNumber, it, totals); });
}

CycleResult ProcessInbox(std::uint32_t listNumber, const std::function<bool()>& stop, CCycleTotals& totals,
                         std::int64_t now) {
    CCycle cycle(listNumber, stop, totals, now, nullptr);
    return RunLocked(listNumber, cycle, [](CCycle& it) { return it.Open() && it.ProcessWaiting(); });
}
