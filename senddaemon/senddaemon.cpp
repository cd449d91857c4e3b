#include "senddaemon/senddaemon.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "app/pumpmessages.h"
#include "platform/filestatus.h"
#include "platform/knownfolders.h"
#include "platform/namedmutex.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/dispatchcheck.h"
#include "senddaemon/messageinfo.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::string_view SourceName = "Shared/SendDaemon/senddaemon";
constexpr std::string_view PresenceName = "Vantorel.Listhaven.3.SendDaemon";

// Some ten microseconds: a quick delivery is over before this thread could
// fall asleep.
constexpr int LooksBeforeSleep = 100;

bool FailInternally(int line, InternalErrorKind kind) {
    SetLastErrorText(InternalErrorText(SourceName, line, kind));
    return false;
}

// Two ways to write one path are one folder.
std::string GetPresenceName(const std::string& rootFolder) {
    return std::string(PresenceName) + WithoutSeparator(Platform::CanonicalFolder(rootFolder));
}

}  // namespace

struct CSendDaemon::CState {
    DaemonClock clock;
    std::string rootFolder;
    std::unique_ptr<CConfiguration> serverConfig;
    Platform::CPresence presence;
    bool isSending = false;  // the presence is ours
    std::optional<std::int64_t> expiry;
    CDispatchChecker checker;

    std::vector<std::string> accounts;
    std::map<std::string, std::unique_ptr<CConfiguration>, CLessNoCase> configs;
    std::map<std::string, std::unique_ptr<CDispatcher>, CLessNoCase> dispatchers;  // before their configurations go
    std::set<const CDispatcher*> ended;                                            // their walks, in this pass
    CDispatchTotals formerTotals;                                                  // of dispatchers that are gone

    mutable std::recursive_mutex sentLock;  // the sink may ask for the count
    std::uint32_t sentCount = 0;
    ISendEvents* sink = nullptr;

    mutable std::mutex progressLock;
    std::condition_variable progressMade;
    std::atomic<std::uint64_t> progress = 0;  // changes under the lock

    void DropAccount(std::string_view folder);
    CDispatchRound Round(CDispatcher::Walk walk);
};

void CSendDaemon::CState::DropAccount(std::string_view folder) {
    const auto dispatcher = dispatchers.find(folder);
    if (dispatcher != dispatchers.end()) {
        if (dispatcher->second) {
            dispatcher->second->CancelSenders();
            const CDispatchTotals totals = dispatcher->second->GetTotals();
            formerTotals.sent += totals.sent;
            formerTotals.failed += totals.failed;
            formerTotals.parked += totals.parked;
            formerTotals.expired += totals.expired;
            formerTotals.deferred += totals.deferred;
            ended.erase(dispatcher->second.get());
        }
        dispatchers.erase(dispatcher);
    }
    const auto config = configs.find(folder);
    if (config != configs.end()) configs.erase(config);
}

CSendDaemon::CSendDaemon(DaemonClock clock) : m_state(std::make_unique<CState>()) {
    m_state->clock = clock ? std::move(clock) : DaemonClock(Platform::SecondsSince1970);
}

CSendDaemon::~CSendDaemon() {
    m_state->dispatchers.clear();
}

bool CSendDaemon::Initialize(std::string_view rootFolder, CConfiguration*& serverConfig) {
    if (m_state->serverConfig) {
        SetLastErrorText("Sending daemon already initialized.");
        return false;
    }
    m_state->rootFolder = WithoutSeparator(rootFolder);
    m_state->checker.SetFolder(m_state->rootFolder);
    m_state->serverConfig = std::make_unique<CConfiguration>(JoinPath(m_state->rootFolder, ServerConfigFileName));
    serverConfig = m_state->serverConfig.get();
    return true;
}

bool CSendDaemon::LoadChecker() {
    return m_state->checker.Load();
}
CDispatchChecker& CSendDaemon::GetChecker() {
    return m_state->checker;
}

void CSendDaemon::SetExpiry(std::optional<std::int64_t> seconds) {
    m_state->expiry = seconds;
    for (const auto& [folder, dispatcher] : m_state->dispatchers)
        dispatcher->SetExpiry(seconds);
}

void CSendDaemon::SetEventSink(ISendEvents* sink) {
    const std::lock_guard guard(m_state->sentLock);
    m_state->sink = sink;
}

bool CSendDaemon::ClaimSending() {
    if (m_state->isSending) return true;
    if (!m_state->serverConfig) return FailInternally(__LINE__, InternalErrorKind::Inconsistent);
    if (!EnsureFolder(m_state->rootFolder)) return false;
    switch (m_state->presence.Acquire(GetPresenceName(m_state->rootFolder))) {
        case Platform::CPresence::Result::Acquired:
            m_state->isSending = true;
            return true;
        case Platform::CPresence::Result::AlreadyHeld:
            SetLastErrorFormat("Another program is already sending from the folder \"%s\".",
                               m_state->rootFolder.c_str());
            return false;
        default:
            SetLastErrorFromSystem();
            return false;
    }
}

bool CSendDaemon::IsSendingElsewhere() const {
    return !m_state->isSending && IsSendingFrom(m_state->rootFolder);
}

bool CSendDaemon::FindAccountByRootFolder(std::string_view rootFolder, std::size_t& index) {
    for (std::size_t i = 0; i < m_state->accounts.size(); ++i) {
        const std::string& account = m_state->accounts[i];
        if (account.empty() || !EnsureFolder(account) || !SamePath(account, rootFolder)) continue;
        index = i;
        return true;
    }
    return false;
}

bool CSendDaemon::CreateAccountConfig(std::string_view rootFolder, std::unique_ptr<CConfiguration>& config) {
    Log(LogLevelTrace, "CreateAccountConfig ()");
    std::size_t index = 0;
    if (!FindAccountByRootFolder(rootFolder, index)) {
        return FailInternally(__LINE__, InternalErrorKind::InvalidArguments);
    }
    Log(LogLevelTrace, "FindAccountByRootFolder () successful.");
    const std::string path = GetAccountConfigPath(rootFolder);
    Log(LogLevelTrace, "Config file path: " + path);
    config = std::make_unique<CConfiguration>(path);
    Log(LogLevelTrace, "Created new configuration.");
    return true;
}

bool CSendDaemon::CreateDispatcher(std::string_view rootFolder, CConfiguration* config,
                                   std::unique_ptr<CDispatcher>& dispatcher) {
    Log(LogLevelTrace, "CreateDispatcher (\"" + std::string(rootFolder) + "\"");
    if (config == nullptr) return FailInternally(__LINE__, InternalErrorKind::InvalidArguments);
    dispatcher = std::make_unique<CDispatcher>(m_state->clock);
    Log(LogLevelTrace, "Created new dispatcher");
    dispatcher->SetExpiry(m_state->expiry);
    return dispatcher->Initialize(rootFolder, config, this);
}

bool CSendDaemon::AddAccount(std::string_view rootFolder) {
    std::string root = WithoutSeparator(rootFolder);
    if (root.empty()) return FailInternally(__LINE__, InternalErrorKind::InvalidArguments);
    if (!EnsureFolder(root) || !ClaimSending()) return false;
    std::size_t index = 0;
    const bool isNew = !FindAccountByRootFolder(root, index);
    if (!isNew) root = m_state->accounts[index];  // under which it is registered, however it is written now
    m_state->DropAccount(root);
    if (isNew) m_state->accounts.push_back(root);

    std::unique_ptr<CConfiguration> config;
    std::unique_ptr<CDispatcher> dispatcher;
    ClearLastErrorText();
    if (CreateAccountConfig(root, config) && CreateDispatcher(root, config.get(), dispatcher)) {
        m_state->configs[root] = std::move(config);
        m_state->dispatchers[root] = std::move(dispatcher);
        return true;
    }
    const std::string reason = GetLastErrorText();
    dispatcher.reset();
    if (isNew) m_state->accounts.pop_back();
    SetLastErrorFormat("Error creating dispatcher for account \"%s\": %s", root.c_str(),
                       reason.empty() ? "Unknown error" : reason.c_str());
    return false;
}

bool CSendDaemon::RemoveAccount(std::string_view rootFolder) {
    const std::string root = WithoutSeparator(rootFolder);
    const auto removed = std::erase_if(m_state->accounts, [&](const auto& each) { return SamePath(each, root); });
    m_state->DropAccount(root);
    if (removed == 0) SetLastErrorFormat("There is no account \"%s\".", root.c_str());
    return removed > 0;
}

std::vector<std::string> CSendDaemon::GetAccounts() const {
    return m_state->accounts;
}

CConfiguration* CSendDaemon::GetAccountConfig(std::string_view rootFolder) {
    const auto found = m_state->configs.find(WithoutSeparator(rootFolder));
    return found == m_state->configs.end() ? nullptr : found->second.get();
}

CDispatcher* CSendDaemon::GetDispatcher(std::string_view rootFolder) {
    const auto found = m_state->dispatchers.find(WithoutSeparator(rootFolder));
    return found == m_state->dispatchers.end() ? nullptr : found->second.get();
}

bool CSendDaemon::SetAccountValue(std::string_view rootFolder, std::string_view key, std::string_view value) {
    const auto found = m_state->configs.find(WithoutSeparator(rootFolder));
    if (found == m_state->configs.end()) return FailInternally(__LINE__, InternalErrorKind::InvalidArguments);
    if (!found->second) return FailInternally(__LINE__, InternalErrorKind::Inconsistent);
    return found->second->SetValue(key, value);
}

bool CSendDaemon::DispatchAll() {
    bool isAny = false;
    for (const auto& [folder, dispatcher] : m_state->dispatchers) {
        if (!dispatcher) {
            Log(LogLevelFailure, InternalErrorText(SourceName, __LINE__));
        } else if (dispatcher->Dispatch()) {
            isAny = true;
        }
    }
    SetLastErrorText("Nothing to dispatch");
    return isAny;
}

CDispatchRound CSendDaemon::CState::Round(CDispatcher::Walk walk) {
    CDispatchRound round;
    for (const auto& [folder, dispatcher] : dispatchers) {
        if (walk == CDispatcher::Walk::OnePass && ended.contains(dispatcher.get())) continue;
        bool endOfQueue = false;
        switch (dispatcher->Step(walk, endOfQueue)) {
            case DispatchStep::HandedOn:
                ++round.handedOn;
                break;
            case DispatchStep::AllBusy:
                ++round.allBusy;
                break;
            case DispatchStep::BackedOff:
                ++round.backedOff;
                break;
            case DispatchStep::Failed:
            case DispatchStep::NotParked:
                ++round.failed;
                round.reason = GetLastErrorText();
                break;
            default:
                break;
        }
        if (endOfQueue) ended.insert(dispatcher.get());
    }
    round.isPassOver = ended.size() >= dispatchers.size();
    if (round.isPassOver && walk == CDispatcher::Walk::Endless) ended.clear();
    return round;
}

CDispatchRound CSendDaemon::DispatchRound() {
    return m_state->Round(CDispatcher::Walk::Endless);
}

void CSendDaemon::StartPass() {
    m_state->ended.clear();
    for (const auto& [folder, dispatcher] : m_state->dispatchers)
        dispatcher->RestartWalk();
}

CDispatchRound CSendDaemon::DispatchPassRound() {
    return m_state->Round(CDispatcher::Walk::OnePass);
}

bool CSendDaemon::IsAnySending() {
    for (const auto& [folder, dispatcher] : m_state->dispatchers) {
        PumpMessages();
        if (dispatcher->IsBusy()) return true;
    }
    return false;
}

bool CSendDaemon::GetSentCount(std::uint32_t& count) const {
    const std::lock_guard guard(m_state->sentLock);
    count = m_state->sentCount;
    return true;
}

CDispatchTotals CSendDaemon::GetTotals() const {
    CDispatchTotals sum = m_state->formerTotals;
    for (const auto& [folder, dispatcher] : m_state->dispatchers) {
        const CDispatchTotals totals = dispatcher->GetTotals();
        sum.sent += totals.sent;
        sum.failed += totals.failed;
        sum.parked += totals.parked;
        sum.expired += totals.expired;
        sum.deferred += totals.deferred;
    }
    return sum;
}

std::vector<CBackedOffAccount> CSendDaemon::GetBackedOff() const {
    std::vector<CBackedOffAccount> found;
    for (const auto& [folder, dispatcher] : m_state->dispatchers) {
        const CBackOffNotice notice = dispatcher->GetBackOff();
        if (notice.until == 0) continue;
        found.push_back({.rootFolder = folder, .notice = notice, .waiting = CountAccountMessages(folder).waiting});
    }
    return found;
}

void CSendDaemon::CancelSenders() {
    for (const auto& [folder, dispatcher] : m_state->dispatchers)
        dispatcher->CancelSenders();
}

std::uint64_t CSendDaemon::GetProgress() const {
    return m_state->progress;
}

void CSendDaemon::WaitForProgress(std::uint64_t seen, std::chrono::milliseconds limit) {
    for (int looks = 0; looks < LooksBeforeSleep && m_state->progress == seen; ++looks)
        std::this_thread::yield();
    std::unique_lock guard(m_state->progressLock);
    m_state->progressMade.wait_for(guard, limit, [&] { return m_state->progress != seen; });
}

bool CSendDaemon::CanSendMessage(const CConfiguration& config, const std::string& messageFile) {
    const std::string host = config.GetText("HostName");
    if (host.empty()) return true;
    if (!m_state->checker.LoadIfChanged()) Log(LogLevelFailure, DescribeLastError());
    if (m_state->checker.CanSend(host, m_state->clock())) return true;
    std::string subject;
    std::string recipient;
    if (ReadMessageTitle(messageFile, subject, recipient)) {
        LogFormat(LogLevelNotice, "Message \"%s\" to %s will be sent later. Server limit reached.", subject.c_str(),
                  recipient.c_str());
    } else {
        LogFormat(LogLevelNotice,
                  "Message \"%s\" be sent later. Server limit reached. (Note: problem loading the message.)",
                  messageFile.c_str());
    }
    return false;
}

void CSendDaemon::OnMessageSent(const std::string& messageFile, const std::string& returnPath,
                                const std::string& recipients) {
    const std::lock_guard guard(m_state->sentLock);
    ++m_state->sentCount;
    if (m_state->sink != nullptr) m_state->sink->OnMessageSent(messageFile, returnPath, recipients);
}

void CSendDaemon::OnMessageFailed() {}  // the dispatcher has filed it

void CSendDaemon::OnSenderIdle() {
    {
        const std::lock_guard guard(m_state->progressLock);
        ++m_state->progress;
    }
    m_state->progressMade.notify_all();
}

bool IsSendingFrom(const std::string& rootFolder) {
    return Platform::CPresence::IsHeld(GetPresenceName(rootFolder));
}

}  // namespace SendDaemon
