#include "engine/incoming/mailfetch.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <utility>

#include "app/heartbeat.h"
#include "engine/eventlog.h"
#include "engine/incoming/fetchedmessage.h"
#include "engine/incoming/fetchmarks.h"
#include "engine/incoming/inboxmessage.h"
#include "engine/incoming/knowncontents.h"
#include "engine/incoming/mailboxlisting.h"
#include "engine/incoming/mailretrieval.h"
#include "senddaemon/popclient.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

using Net::FailureKind;
using Net::Pop3Message;
using MarkState = CServerMark::State;
using Clock = std::chrono::steady_clock;

constexpr int MostReconnects = 100;
constexpr int MostBroken = 3;
constexpr std::uint64_t MostLogged = 10;  // vanished messages in a session
constexpr std::int64_t KeptFor = 7 * 86400;
constexpr std::int64_t KeptLongFor = 90 * 86400;

}  // namespace

struct CMailFetch::CState {
    CState(std::uint32_t number, CCycleState& owner, CFetchOptions given)
        : list(number), state(owner), options(std::move(given)) {
        limit = options.limitSize ? std::min(options.maxSize, HardLimit) : HardLimit;
    }

    bool Fail(std::string reason);
    bool FailBySession() { return Fail(Session().GetFailure().text); }
    Net::CPop3Session& Session() { return client.GetSession(); }

    bool IsToStop() const { return (stop && stop()) || Clock::now() >= lastBegin || broken > MostBroken; }
    void EndIn(Clock::duration time);
    bool WasEndedByTime();
    bool Connect();
    bool List(Net::CPop3Listing& listing);
    bool Reconnect();
    void Order(const CCycleTransaction& transaction);
    bool TakeOrdered(CCycleTransaction& transaction, std::int64_t now, std::vector<CInboxMessage>& group);
    bool TakeRetrieved(CCycleTransaction& transaction, CRetrieved& retrieved, std::int64_t now,
                       std::vector<CInboxMessage>& group);
    bool FetchOne(CCycleTransaction& transaction, std::int64_t now);
    bool FetchWhole(CCycleTransaction& transaction, std::int64_t now);
    bool FetchTooLarge(CCycleTransaction& transaction, std::int64_t now);
    bool Store(CCycleTransaction& transaction, CFetchedMessage& fetched, std::uint64_t tooLargeSize, std::int64_t now);
    CServerMark FindMark(CCycleTransaction& transaction, const std::string& key, const std::string& content);
    bool SkipKnown(CCycleTransaction& transaction, const std::string& key, CServerMark& mark);
    bool FailRetrieval(const Net::Failure& why);
    CServerMark GetMark(const CCycleTransaction& transaction, std::string_view key) const;
    bool IsSurelyKnown(const CServerMark& mark, std::size_t index) const;
    CServerMark TakeByContent(CCycleTransaction& transaction, const std::string& content);
    bool DeleteMarked(bool isOneByOne);
    bool DeleteMarkedInTheEnd();
    bool TidyMarks(std::int64_t now, bool isConfirmed);

    std::uint32_t list;
    CCycleState& state;
    CFetchOptions options;
    std::uint64_t limit = 0;  // octets of a message
    SendDaemon::CPopClient client;
    CMailboxListing messages;
    std::size_t next = 0;
    CKnownContents contents;
    CFetchTotals totals;
    std::vector<std::string> paths;  // of the group
    std::uint64_t groupBytes = 0;
    std::string failure;        // "": none
    std::vector<bool> ordered;  // of the messages from "next" on: whether each comes, or is known
    CMailRetrieval retrieval;
    std::function<bool()> stop;
    Clock::duration timeLimit{0};
    Clock::time_point lastBegin = Clock::time_point::max();  // of a message
    bool saysSizes = true;                                   // and they are true
    bool hasUids = true;
    bool hasTop = true;
    int reconnects = 0;
    int broken = 0;  // messages that have ended the session; they are tried again the next time
    std::string whyBroken;
    std::atomic<bool> isCancelled = false;
};

// The first reason is the one that counts.
bool CMailFetch::CState::Fail(std::string reason) {
    if (failure.empty()) failure = reason.empty() ? "Fetching has failed" : std::move(reason);
    SetLastErrorText(failure);
    return false;
}

void CMailFetch::CState::EndIn(Clock::duration time) {
    if (timeLimit > Clock::duration::zero()) Session().EndBy(Clock::now() + time);
}

bool CMailFetch::CState::WasEndedByTime() {
    return !isCancelled && Clock::now() >= lastBegin && Session().GetFailure().kind == FailureKind::TimedOut;
}

bool CMailFetch::CState::Connect() {
    Beat();
    if (isCancelled) return Fail("Fetching was cancelled");
    SendDaemon::CSmtpSettings settings;
    if (!MakePopSettings(options, settings)) return Fail(GetLastErrorText());
    return client.Open(settings) || Fail(GetLastErrorText());
}

// A server whose list of ids is nonsense is one without ids.
bool CMailFetch::CState::List(Net::CPop3Listing& listing) {
    if (!Session().GetMessages(listing)) return FailBySession();
    if (!hasUids || listing.IsEmpty()) return true;
    if (!Session().GetUids(listing)) {
        const auto kind = Session().GetFailure().kind;
        if (kind != FailureKind::Reply && kind != FailureKind::Protocol) return FailBySession();
        hasUids = false;
        if (kind == FailureKind::Protocol) {
            Log(LogWarning, "%s The messages are told apart by their content.", Session().GetFailure().text.c_str());
            return Connect() && List(listing);
        }
    }
    return true;
}

// To end a message that is not wanted any further takes a new session.  If the
// mailbox has changed meanwhile, the walk begins again: what is known is skipped.
bool CMailFetch::CState::Reconnect() {
    if (++reconnects > MostReconnects) return Fail("Too many messages above the size limit for one session");
    Net::CPop3Listing listing;
    if (!Connect() || !List(listing)) return false;
    if (!messages.Replace(std::move(listing), next)) next = 0;
    return true;
}

CServerMark CMailFetch::CState::GetMark(const CCycleTransaction& transaction, std::string_view key) const {
    std::string value;
    transaction.GetMark(MarkKind::ServerMessage, key, value);
    return CServerMark::Parse(value);
}

// An id can have gone over to another message, which must not be deleted unread.
bool CMailFetch::CState::IsSurelyKnown(const CServerMark& mark, std::size_t index) const {
    const std::uint64_t size = messages.Get(index).size;
    const bool isOfThatSize = mark.size == size;
    if (mark.state == MarkState::Keep) return mark.size == 0 || isOfThatSize;
    if (mark.state != MarkState::Delete) return false;
    return messages.IsCompared(index) || (isOfThatSize && size > limit);
}

// A server that gives its messages other ids must not make them come twice.  The
// mark under the other key is taken away.
CServerMark CMailFetch::CState::TakeByContent(CCycleTransaction& transaction, const std::string& content) {
    if (!contents.IsLoaded()) {
        const CMailboxListing::Order met = messages.SortNoted(next);
        contents.Load(state, [&](std::string_view key) { return messages.Contains(met, key); });
    }
    std::string key;
    CServerMark mark;
    if (!contents.Find(content, key, mark)) return {};
    if (GetMark(transaction, key).content == content) transaction.SetMark(MarkKind::ServerMessage, key, "");
    return mark;
}

bool CMailFetch::CState::FetchOne(CCycleTransaction& transaction, std::int64_t now) {
    Beat();
    if (isCancelled) return Fail("Fetching was cancelled");
    if (!Session().IsOpen() && !Reconnect()) return false;
    if (next >= messages.GetCount()) return true;
    const Pop3Message message = messages.Get(next);
    const CServerMark mark = message.uid.empty() ? CServerMark() : GetMark(transaction, message.uid);
    if (IsSurelyKnown(mark, next)) {
        messages.NoteKey(next, message.uid);
        contents.Forget(mark.content);
        ++totals.known;
        ++next;
        return true;
    }
    return message.size > limit ? FetchTooLarge(transaction, now) : FetchWhole(transaction, now);
}

// A refusal says that the message has vanished since it was listed.  One that
// breaks the session each time must not keep all behind it on the server.
bool CMailFetch::CState::FailRetrieval(const Net::Failure& why) {
    const bool isOurs = isCancelled || why.kind == FailureKind::Cancelled || why.kind == FailureKind::Local;
    if (isOurs || WasEndedByTime()) return Fail(why.text);
    if (why.kind != FailureKind::Reply) {
        if (broken++ == 0) whyBroken = "Message " + std::to_string(messages.Get(next).number) + ": " + why.text;
        ++next;
        return true;
    }
    if (++totals.vanished <= MostLogged)
        Log(LogWarning, "Message %u is left out: %s\n", static_cast<unsigned>(messages.Get(next).number),
            why.text.c_str());
    ++next;
    return true;
}

bool CMailFetch::CState::FetchWhole(CCycleTransaction& transaction, std::int64_t now) {
    CFetchedMessage fetched(transaction, messages.Get(next).uid, now);
    if (!fetched.Begin(GetInboxFolder(list))) return Fail(GetLastErrorText());
    const auto take = [&](std::string_view block) {
        Beat();
        return fetched.Add(block, limit);
    };
    if (Session().Retrieve(messages.Get(next).number, UINT64_MAX, take)) return Store(transaction, fetched, 0, now);
    if (fetched.IsTooLarge()) return Store(transaction, fetched, fetched.GetOctets(), now);
    if (Session().GetFailure().kind == FailureKind::Local) return Fail(GetLastErrorText());
    return FailRetrieval(Session().GetFailure());
}

bool CMailFetch::CState::FetchTooLarge(CCycleTransaction& transaction, std::int64_t now) {
    const Pop3Message message = messages.Get(next);
    CFetchedMessage fetched(transaction, message.uid, now);
    const auto take = [&](std::string_view block) {
        Beat();
        return fetched.AddHeader(block);
    };
    bool isFetched = hasTop && Session().RetrieveTop(message.number, 0, UINT64_MAX, take);
    const bool isRefused = hasTop && !isFetched && Session().GetFailure().kind == FailureKind::Reply;
    if (!hasTop || isRefused) {
        isFetched = Session().Retrieve(message.number, UINT64_MAX, take);
        hasTop = hasTop && !isFetched && Session().GetFailure().kind == FailureKind::Reply;
    }
    const bool isEnough = Session().GetFailure().kind == FailureKind::Local && fetched.HasWholeHeader();
    if (isFetched || isEnough) return Store(transaction, fetched, message.size, now);
    if (Session().GetFailure().kind == FailureKind::Local) return Fail(GetLastErrorText());
    return FailRetrieval(Session().GetFailure());
}

// The mark of the message at hand, which has that content; it counts as met.
CServerMark CMailFetch::CState::FindMark(CCycleTransaction& transaction, const std::string& key,
                                         const std::string& content) {
    CServerMark mark = GetMark(transaction, key);
    const bool isUnsaid = mark.content.empty() && (mark.state == MarkState::Keep || mark.state == MarkState::Delete);
    if (mark.content != content && !isUnsaid) mark = TakeByContent(transaction, content);
    contents.Forget(content);
    messages.NoteCompared(next);
    messages.NoteKey(next, key);
    mark.size = messages.Get(next).size;
    return mark;
}

bool CMailFetch::CState::SkipKnown(CCycleTransaction& transaction, const std::string& key, CServerMark& mark) {
    if (mark.state == MarkState::None) return false;
    ++totals.known;
    if (mark.state == MarkState::Gone) mark.state = MarkState::Delete;
    transaction.SetMark(MarkKind::ServerMessage, key, mark.Encode());
    return true;
}

// What comes next into memory: up to a message that is too long for it.  The
// thread begins at once; what is known already is skipped when its turn comes.
void CMailFetch::CState::Order(const CCycleTransaction& transaction) {
    ordered.clear();
    std::vector<std::uint32_t> wanted;
    std::uint64_t octets = 0;
    for (std::size_t i = next; i < messages.GetCount() && wanted.size() < GroupSize && octets < GroupBytes; ++i) {
        const Pop3Message message = messages.Get(i);
        const bool isKnown = !message.uid.empty() && IsSurelyKnown(GetMark(transaction, message.uid), i);
        const bool isLong = message.size > std::min(limit, CMailRetrieval::LargestMessage);
        if (!isKnown && (isLong || !saysSizes)) break;
        ordered.push_back(!isKnown);
        if (isKnown) continue;
        wanted.push_back(message.number);
        octets += message.size;
    }
    if (wanted.empty()) return;
    retrieval.Start(Session(), std::move(wanted), std::min(limit, CMailRetrieval::LargestMessage));
}

// Those of the order that have come, in their turn.  What was known when it was
// ordered can have lost its mark to another message since.
bool CMailFetch::CState::TakeOrdered(CCycleTransaction& transaction, std::int64_t now,
                                     std::vector<CInboxMessage>& group) {
    std::vector<CRetrieved> retrieved = retrieval.Take([this] { return IsToStop(); });
    auto at = retrieved.begin();
    for (const bool isWanted : std::exchange(ordered, {})) {
        if (isCancelled) return Fail("Fetching was cancelled");
        if (isWanted) {
            if (at == retrieved.end()) return true;
            if (!TakeRetrieved(transaction, *at++, now, group)) return false;
            continue;
        }
        const std::string_view uid = messages.Get(next).uid;
        const CServerMark mark = GetMark(transaction, uid);
        if (!IsSurelyKnown(mark, next)) return true;
        contents.Forget(mark.content);
        messages.NoteKey(next, uid);
        ++totals.known;
        ++next;
    }
    return true;
}

bool CMailFetch::CState::TakeRetrieved(CCycleTransaction& transaction, CRetrieved& retrieved, std::int64_t now,
                                       std::vector<CInboxMessage>& group) {
    if (retrieved.isTooLong) {  // comes once more, into a file, as do all that follow
        saysSizes = false;
        return true;
    }
    if (!retrieved.isWhole) return FailRetrieval(retrieved.failure);
    if (retrieved.content.empty()) return Fail("This system does not allow SHA-256.");
    const Pop3Message message = messages.Get(next);
    CInboxMessage taken;
    taken.key = message.uid.empty() ? retrieved.content : message.uid;
    CServerMark mark = FindMark(transaction, taken.key, retrieved.content);
    ++next;
    const auto isSame = [&](const CInboxMessage& other) { return other.key == taken.key; };
    const bool isDoubled = message.uid.empty() && std::any_of(group.begin(), group.end(), isSame);
    if (isDoubled) ++totals.known;
    if (isDoubled || SkipKnown(transaction, taken.key, mark)) return true;
    mark = {options.leaveCopies ? MarkState::Keep : MarkState::Delete, now, retrieved.content, message.size};
    taken.mark = mark.Encode();
    taken.isSaved = options.saveIncoming;
    taken.text = std::make_shared<const std::string>(MakeFetchedFields(now, taken.key) + retrieved.text);
    group.push_back(std::move(taken));
    ++totals.fetched;
    return true;
}

// The mark goes with the message, in one transaction.
bool CMailFetch::CState::Store(CCycleTransaction& transaction, CFetchedMessage& fetched, std::uint64_t tooLargeSize,
                               std::int64_t now) {
    const bool isTooLarge = tooLargeSize != 0;
    const Pop3Message message = messages.Get(next);
    const std::string content = fetched.MakeContentKey(isTooLarge ? std::to_string(message.size) : std::string());
    if (content.empty()) return Fail(GetLastErrorText());
    const std::string key(message.uid.empty() ? std::string_view(content) : message.uid);
    CServerMark mark = FindMark(transaction, key, content);
    ++next;
    if (SkipKnown(transaction, key, mark)) return true;
    std::string path;
    const bool isStored =
        isTooLarge ? fetched.FinishHeader(GetInboxFolder(list), tooLargeSize, path)
                   : fetched.Finish(path) && (!options.saveIncoming || transaction.AddTwin(GetReceivedFolder(list)));
    if (!isStored) return Fail(GetLastErrorText());
    const bool isToGo = isTooLarge ? options.removeTooLarge : !options.leaveCopies;
    mark = {isToGo ? MarkState::Delete : MarkState::Keep, now, content, message.size};
    transaction.SetMark(MarkKind::ServerMessage, key, mark.Encode());
    ++(isTooLarge ? totals.tooLarge : totals.fetched);
    groupBytes += isTooLarge ? 0 : fetched.GetOctets();
    paths.push_back(std::move(path));
    return true;
}

bool CMailFetch::CState::DeleteMarked(bool isOneByOne) {
    if (isCancelled) return Fail("Fetching was cancelled");
    std::vector<std::uint32_t> due;
    std::vector<std::uint32_t> numbers;
    std::string value;
    for (std::size_t i = 0; i < next; ++i) {
        const std::string_view key = messages.GetKey(i);
        if (key.empty() || !state.GetMark(MarkKind::ServerMessage, key, value)) continue;
        if (CServerMark::Parse(value).state != MarkState::Delete) continue;
        due.push_back(static_cast<std::uint32_t>(i));
        numbers.push_back(messages.Get(i).number);
    }
    const auto take = [&](std::size_t index, bool isDone) {
        if (isDone) return messages.NoteDeleted(due[index]);
        Log(LogWarning, "Message %u stays on the server: %s\n", static_cast<unsigned>(numbers[index]),
            Session().GetFailure().text.c_str());
    };
    return Session().DeleteAll(numbers, take, isOneByOne) || FailBySession();
}

// A proxy may pass on the server's PIPELINING and yet lose what follows a command.
bool CMailFetch::CState::DeleteMarkedInTheEnd() {
    if (DeleteMarked(false)) return true;
    if (isCancelled || Session().IsOpen()) return false;
    Log(LogWarning, "%s The messages are deleted one by one.\n", std::exchange(failure, {}).c_str());
    messages.ForgetDeleted();
    return Reconnect() && DeleteMarked(true);
}

bool CMailFetch::CState::TidyMarks(std::int64_t now, bool isConfirmed) {
    const CMailboxListing::Order listed = messages.SortAll();
    const CMailboxListing::Order deleted = messages.SortDeleted();
    const bool areAllKnown = listed.size() == messages.GetCount();
    const auto isListed = [&](std::string_view key) {
        // One that is known by its content may be among those that were not fetched.
        return messages.Contains(listed, key) || (!areAllKnown && key.starts_with('#'));
    };
    const auto keysOf = [&](const CMailboxListing::Order& order) {
        return CServerKeys{order.size(), [&](std::size_t i) { return messages.GetKeyOrUid(order[i]); }};
    };
    if (isConfirmed) totals.deleted += deleted.size();
    return RenewServerMarks(state, keysOf(listed), now) &&
           (!isConfirmed || SetServerMarksGone(state, keysOf(deleted), now)) &&
           DropServerMarks(state, isListed, now - (options.keepIds ? KeptLongFor : KeptFor));
}

CMailFetch::CMailFetch(std::uint32_t listNumber, CCycleState& state, CFetchOptions options)
    : m_state(std::make_unique<CState>(listNumber, state, std::move(options))) {}

CMailFetch::~CMailFetch() {
    if (m_state->retrieval.IsUnderWay()) m_state->client.Cancel();
}

void CMailFetch::LimitTime(std::chrono::milliseconds limit) {
    CState& s = *m_state;
    s.timeLimit = limit;
    s.lastBegin = limit.count() > 0 ? Clock::now() + limit : Clock::time_point::max();
    s.EndIn(s.timeLimit + s.timeLimit / 2);
}

bool CMailFetch::IsCut() const {
    return Clock::now() >= m_state->lastBegin && m_state->next < m_state->messages.GetCount();
}

void CMailFetch::StopWhen(std::function<bool()> stop) {
    m_state->stop = std::move(stop);
}

bool CMailFetch::Open() {
    CState& s = *m_state;
    Net::CPop3Listing listing;
    if (!s.Connect() || !s.List(listing)) return false;
    s.messages.Replace(std::move(listing), 0);
    return true;
}

// What came before the session broke is kept, and the failure told with the next call.
CMailFetch::Step CMailFetch::Next(std::int64_t now, std::vector<CInboxMessage>& group) {
    CState& s = *m_state;
    group.clear();
    s.paths.clear();
    s.groupBytes = 0;
    CCycleTransaction transaction(s.state);
    // Messages for files are together in a group of their own.
    while (s.failure.empty() && group.empty() && s.paths.size() < GroupSize && s.groupBytes < GroupBytes &&
           !s.IsToStop()) {
        if (s.ordered.empty() && s.Session().IsOpen()) s.Order(transaction);
        if (!s.paths.empty() && !s.ordered.empty()) break;
        if (s.ordered.empty() && s.next >= s.messages.GetCount()) break;
        if (!(s.ordered.empty() ? s.FetchOne(transaction, now) : s.TakeOrdered(transaction, now, group))) break;
    }
    if (s.failure.empty() && s.ordered.empty() && s.Session().IsOpen() && !s.IsToStop()) s.Order(transaction);
    if (!s.failure.empty() && s.WasEndedByTime()) s.failure.clear();  // the rest is for the next time
    const bool isCommitted = transaction.Commit() || s.Fail(GetLastErrorText());
    if (isCommitted && (!s.paths.empty() || !group.empty())) {
        for (std::string& path : s.paths)
            group.emplace_back(std::move(path));
        return Step::Group;
    }
    SetLastErrorText(s.failure);
    return s.failure.empty() ? Step::End : Step::Failed;
}

bool CMailFetch::Finish(std::int64_t now) {
    CState& s = *m_state;
    s.retrieval.Stop();
    s.retrieval.Take();
    s.EndIn(s.timeLimit / 2);
    if (!s.failure.empty()) {
        SetLastErrorText(s.failure);
        return false;
    }
    // Nobody is to wait for it: what could not be deleted will be next time.
    if (!s.Session().IsOpen() && !s.Reconnect()) return false;
    if (!s.DeleteMarkedInTheEnd()) return false;
    const bool isConfirmed = s.Session().Quit() || s.FailBySession();
    if (s.totals.vanished > MostLogged)
        Log(LogWarning, "%llu messages in all were left out.\n", static_cast<unsigned long long>(s.totals.vanished));
    const bool isTidy = s.TidyMarks(now, isConfirmed) || s.Fail(GetLastErrorText());
    return isConfirmed && isTidy && (s.broken == 0 || s.Fail(s.whyBroken));
}

const CFetchTotals& CMailFetch::GetTotals() const noexcept {
    return m_state->totals;
}

void CMailFetch::Cancel() noexcept {
    m_state->isCancelled = true;
    m_state->client.Cancel();
}
