#include "engine/incoming/inboxprocessing.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "app/heartbeat.h"
#include "engine/catalogue.h"
#include "engine/datafields.h"
#include "engine/eventlog.h"
#include "engine/filelook.h"
#include "engine/incoming/originalfields.h"
#include "engine/rules/addressmatch.h"
#include "platform/clock.h"
#include "platform/filestatus.h"
#include "platform/profilefile.h"
#include "platform/systemerror.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::size_t LongestTitle = 200;  // bytes, in the log

class CMarksInUse {
public:
    CMarksInUse(CListView& view, const CCycleTransaction& transaction) : m_view(view) {
        m_view.UseTransaction(&transaction);
    }
    CMarksInUse(const CMarksInUse&) = delete;
    CMarksInUse& operator=(const CMarksInUse&) = delete;
    ~CMarksInUse() {
        m_view.UseTransaction(nullptr);
        m_view.ForgetChanges();
    }

private:
    CListView& m_view;
};

// The list stays as it is while messages are looked at one after the other, and
// nothing of it is looked at anew; but not for longer than a moment: other
// programs wait.
class CListHold {
public:
    explicit CListHold(CListView& view) : m_view(view) {}

    void Take(bool isLong) {
        if (m_held && (isLong || Platform::ClockMilliseconds() - m_since >= LongestHold)) m_held.reset();
        if (isLong || m_held) return;
        m_held.emplace(m_view);
        m_since = Platform::ClockMilliseconds();
    }
    void Release() noexcept { m_held.reset(); }

private:
    static constexpr std::uint32_t LongestHold = 10;  // milliseconds, and a message

    struct CHeld {
        explicit CHeld(CListView& view) : catalogue(GetCatalogue()), members(view.GetStore()) {}
        CCatalogue::CKeep catalogue;
        CMemberStore::CKeep members;
        Platform::CProfileStay settings;
        CFileLookStay files;
    };

    CListView& m_view;
    std::optional<CHeld> m_held;
    std::uint32_t m_since = 0;
};

std::string ForLog(std::string_view text) {
    std::string shown(text.substr(0, LongestTitle));
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    std::replace_if(shown.begin(), shown.end(), isControl, ' ');
    return shown;
}

std::string TitleOf(const CIncomingMessage& message) {
    const std::string sender = message.sender.address.empty() ? "an empty sender" : message.sender.address;
    return "\"" + ForLog(message.subject) + "\" from " + ForLog(sender);
}

}  // namespace

CInboxProcessing::CInboxProcessing(std::uint32_t listNumber, CCycleState& state, std::int64_t now)
    : m_list(listNumber), m_state(state), m_view(listNumber, now, &state), m_store(listNumber) {}

void CInboxProcessing::Refresh(std::int64_t now) {
    m_view.Refresh(now);
    m_execution.emplace(m_view);
    m_ownAddresses = OwnAddresses(m_view.GetList());
    CCatalogue& catalogue = GetCatalogue();
    const std::int32_t index = catalogue.FindByNumber(m_list);
    m_loops.bits = catalogue.GetNumber(index, ListColumn::LoopProtection);
    m_loops.redirect = catalogue.GetFlag(index, ListColumn::RedirectLoops);
    m_loops.redirectAddress = catalogue.GetText(index, ListColumn::RedirectAddress);
    m_loops.remove = catalogue.GetFlag(index, ListColumn::RemoveLoops);
    m_notifications = ReadNotificationTreatment();
    std::string stamp = m_store.GetStamp();
    if (!m_stamp.empty() && stamp == m_stamp) return;
    m_rules = m_store.Load();
    m_stamp = std::move(stamp);
}

namespace {

std::string WhyRulesCannotServe(std::span<const CMessageRule> rules) {
    if (rules.empty()) return "The list has no rules (rule reset makes them): its mail is left where it is.";
    for (const CMessageRule& rule : rules) {
        if (rule.GetFault().empty()) continue;
        return FormatText("The rule \"%s\" is damaged (%s): the list's mail is left where it is until it is put right.",
                          rule.Get().name.c_str(), rule.GetFault().c_str());
    }
    return {};
}

}  // namespace

bool CInboxProcessing::HasRules(std::int64_t now) {
    Refresh(now);
    return WhyRulesCannotServe(m_rules).empty();
}

void CInboxProcessing::CheckRules(std::int64_t now) {
    Refresh(now);
    if (const std::string reason = WhyRulesCannotServe(m_rules); !reason.empty()) throw CLhvException(reason);
}

bool CInboxProcessing::Process(std::span<const CInboxMessage> messages, std::int64_t now, CCycleTotals& totals) {
    CheckRules(now);
    while (!messages.empty() && !IsToStop()) {
        std::size_t count = 0;
        if (!ProcessGroup(messages, count, totals)) {
            Log(LogWarning, "%u messages are processed one by one: %s", static_cast<unsigned>(count),
                DescribeLastError().c_str());
            if (!m_state.Recover() || !ProcessSingly(messages.first(count), totals)) return false;
        }
        messages = messages.subspan(count);
    }
    return true;
}

// count: how many of the messages belonged to the transaction, also to one that failed.
bool CInboxProcessing::ProcessGroup(std::span<const CInboxMessage> messages, std::size_t& count, CCycleTotals& totals) {
    CCycleTransaction transaction(m_state);
    const CMarksInUse marks(m_view, transaction);
    CCycleTotals done;
    std::vector<std::string> lines;
    std::vector<std::string> warnings;
    bool hasBroadcasts = false;
    CListHold hold(m_view);
    for (const CInboxMessage& waiting : messages.first(std::min(messages.size(), GroupSize))) {
        Beat();
        if (count > 0 && IsToStop()) break;
        CMessageEffects effects;
        hold.Take(!waiting.IsShort());
        const Handled handled = Handle(waiting, hasBroadcasts, transaction, effects);
        if (handled == Handled::Later) break;
        ++count;
        if (handled == Handled::NotTaken) return false;
        m_view.KeepChanges();
        done += effects.totals;
        std::vector<std::string>& notes = effects.isRepeat ? warnings : lines;
        if (effects.done.size() == 1 && effects.notes.empty()) effects.Say("no rule does anything with it");
        std::move(effects.notes.begin(), effects.notes.end(), std::back_inserter(notes));
        if (effects.done.size() > 1) lines.push_back(Join(effects.done, "; ") + ".");  // else a note has said why
        hasBroadcasts = hasBroadcasts || effects.hasBroadcast;
        if (transaction.CountFiles() > GroupFiles) break;
    }
    hold.Release();
    if (!transaction.IsEmpty() && !transaction.Commit()) return false;
    totals += done;
    const CLogGroup together;
    const Platform::CProfileStay settings;
    for (const std::string& line : warnings)
        Log(LogWarning, "%s", line.c_str());
    for (const std::string& line : lines)
        Log(LogInfo, "%s", line.c_str());
    return true;
}

// Ends at the first one that fails: what came later must not overtake it.  Most
// often the system is to blame; a message that a transaction cannot take for
// another reason must not stand in the way for ever.
bool CInboxProcessing::ProcessSingly(std::span<const CInboxMessage> messages, CCycleTotals& totals) {
    for (const CInboxMessage& waiting : messages) {
        if (IsToStop()) return true;
        std::size_t count = 0;
        if (waiting.WasProcessed(m_state) || ProcessGroup({&waiting, 1}, count, totals)) continue;
        const bool isDiskFull = Platform::IsNoSpace(Platform::LastSystemError());
        const std::string reason = DescribeLastError();
        if (!m_state.Recover()) return false;
        if (waiting.WasProcessed(m_state)) continue;  // after all
        CCycleTransaction transaction(m_state);
        const bool isCounted = isDiskFull || CountAttempt(waiting, waiting.GetName(), reason, transaction, totals);
        if (isCounted && (transaction.IsEmpty() || transaction.Commit())) SetLastErrorText(reason);
        return false;
    }
    return true;
}

// Taken also when the message failed by itself: then that is what goes into the
// transaction.  A fault of the list's own tables is thrown: no message is to
// blame for it.
CInboxProcessing::Handled CInboxProcessing::Handle(const CInboxMessage& waiting, bool hasBroadcasts,
                                                   CCycleTransaction& transaction, CMessageEffects& effects) {
    const Platform::CProfileStay settings;
    CIncomingMessage message;
    std::string title = waiting.GetName();
    try {
        if (waiting.IsInMemory()) {
            ParseIncomingMessage(waiting.text, m_ownAddresses, message);
        } else if (!ReadIncomingMessage(waiting.path, m_ownAddresses, message)) {
            if (!Platform::FileIsThere(waiting.path)) return Handled::Taken;
            throw CLhvException(DescribeLastError());
        }
        title = TitleOf(message);
        message.isAccepted =
            !waiting.IsInMemory() && SamePath(ParentFolder(ParentFolder(waiting.path)), GetAcceptedFolder(m_list));
        // Neither its loop marks nor whether a program wrote it can be known.
        if (message.hasHugeHeader) throw CLhvException("Its header is larger than 1 MiB.");
        const BroadcastList& list = m_view.GetList();
        if (EqualNoCase(message.directList, list.guid)) message.to.push_back({list.name, list.address});
        effects.Say(title + ": " + (message.isAccepted ? "accepted by the moderator" : "processed"));
        Plan(message, effects);
    } catch (const CMembersDamaged&) {
        throw;
    } catch (const std::exception& exception) {
        const std::string reason = exception.what();
        m_view.DropChanges();
        CMember nobody;
        m_view.FindMember("nobody@localhost", nobody);
        m_view.CheckAccess("nobody@localhost");
        effects = {};
        return CountAttempt(waiting, title, reason, transaction, effects.totals) ? Handled::Taken : Handled::NotTaken;
    }
    if (hasBroadcasts && !m_view.GetMessageChanges().empty()) return Handled::Later;
    effects.totals.processed = 1;
    const std::string key = LastPathComponent(waiting.path);
    if (std::string attempts; !key.empty() && transaction.GetMark(MarkKind::Attempts, key, attempts))
        transaction.SetMark(MarkKind::Attempts, key, "");
    message.message = {};  // not while its copies are made
    message.source.reset();
    const bool isTaken = AddMarkOf(waiting, m_list, transaction) && effects.AddTo(transaction, m_view, message);
    return isTaken ? Handled::Taken : Handled::NotTaken;
}

// True when the operator does not want it to be processed.
bool CInboxProcessing::TakeNotification(const CIncomingMessage& message, CMessageEffects& effects) const {
    const NotificationTreatment treatment = TreatmentOf(message, m_notifications);
    if (treatment == NotificationTreatment::Process) return false;
    effects.keepOnServer = treatment == NotificationTreatment::Leave;
    effects.removeFromServer = !effects.keepOnServer;
    effects.Say(effects.keepOnServer ? "a delivery notification, left on the server"
                                     : "a delivery notification, deleted");
    return true;
}

void CInboxProcessing::Plan(CIncomingMessage& message, CMessageEffects& effects) {
    if (TakeNotification(message, effects)) return;
    const CDataFieldScope scope;
    SetIncomingFields(message, m_view.GetList());
    if (message.tooLarge > 0) return m_execution->AnswerTooLarge(message, m_loops.bits, effects);
    const CMessagePlan plan = PlanMessage(m_rules, message, m_loops, m_view);
    m_execution->Execute(plan, m_rules, message, effects);
}

// False when the transaction cannot take it.
bool CInboxProcessing::CountAttempt(const CInboxMessage& waiting, const std::string& title, const std::string& reason,
                                    CCycleTransaction& transaction, CCycleTotals& totals) {
    std::string path;
    if (!PutIntoInbox(waiting, m_list, transaction, path)) return false;
    const std::string key = LastPathComponent(path);
    std::string stored;
    transaction.GetMark(MarkKind::Attempts, key, stored);
    const std::int64_t attempt = ParseNumber(stored).value_or(0) + 1;
    Log(LogError, "%s could not be processed (attempt %d of %d): %s", title.c_str(), static_cast<int>(attempt),
        MaxAttempts, reason.c_str());
    ++totals.failed;
    if (attempt < MaxAttempts) {
        transaction.SetMark(MarkKind::Attempts, key, std::to_string(attempt));
        return true;
    }
    Log(LogError, "%s is set aside in %s.", title.c_str(), GetFailedFolder(m_list).c_str());
    transaction.MoveMessage(path, GetFailedFolder(m_list));
    transaction.SetMark(MarkKind::Attempts, key, "");
    return true;
}
