#include "engine/daemonhost.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "app/settings.h"
#include "engine/broadcastjob.h"
#include "engine/catalogue.h"
#include "engine/eventlog.h"
#include "engine/listaccount.h"
#include "platform/clock.h"
#include "platform/filestatus.h"
#include "senddaemon/configuration.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/dispatchcheck.h"
#include "senddaemon/senddaemon.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

namespace {

constexpr std::chrono::seconds RetryInterval{60};
constexpr std::uint32_t ClaimInterval = 100;  // milliseconds
constexpr int ClaimFaults = 10;               // in all, before they count

class CEventLogHandler : public SendDaemon::IMessageHandler {
public:
    void OnWarning(const std::string& text) override { Log(LogWarning, "%s", text.c_str()); }
    void OnError(const std::string& text) override { Log(LogError, "%s", text.c_str()); }
    void OnFatal(const std::string& text) override { Log(LogFatal, "%s", text.c_str()); }
    void OnInformation(const std::string& text) override { Log(LogInfo, "%s", text.c_str()); }
    void OnTrace(const std::string& text) override {
        if (IsTraced()) Log(LogDebug, "%s", text.c_str());
    }

private:
    // A message has some ten lines of trace: whether they are wanted is looked
    // up every 100 milliseconds.  The daemon calls one at a time.
    bool IsTraced() {
        constexpr std::uint32_t Interval = 100;
        const std::uint32_t now = Platform::ClockMilliseconds();
        if (m_isLookedUp && now - m_lookedUp < Interval) return m_isTraced;
        m_isLookedUp = true;
        m_lookedUp = now;
        m_isTraced = IsLogged(LogDebug);
        return m_isTraced;
    }

    bool m_isLookedUp = false;
    std::uint32_t m_lookedUp = 0;
    bool m_isTraced = false;
};

// Changes whenever the file does.  "" for one that is missing, or so young that
// another change could leave it the same times.
std::string FileStamp(const std::string& path) {
    constexpr std::int64_t ClockTick = 50'000'000;  // nanoseconds, generously
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(path, status)) return {};
    if (Platform::NanosecondsSince1970() - status.times.modified <= ClockTick) return {};
    return std::to_string(status.identity) + " " + std::to_string(status.size) + " " +
           std::to_string(status.times.modified);
}

}  // namespace

struct CDaemonHost::CState {
    std::shared_ptr<SendDaemon::IMessageHandler> formerHandler;
    SendDaemon::CSendDaemon daemon;
    std::map<std::uint32_t, std::string> accounts;  // list number: root folder
    std::map<std::uint32_t, std::string> names;
    std::string catalogueStamp;
    std::string failure;
    std::chrono::steady_clock::time_point nextTry;  // after a failure
    bool isPrepared = false;

    bool Prepare();
    void AddLists();
    void Fail(std::string reason);
    void RemoveLists(const std::map<std::uint32_t, std::string>& wanted);
};

CDaemonHost::CDaemonHost() : m_state(std::make_unique<CState>()) {
    m_state->formerHandler = SendDaemon::SetMessageHandler(std::make_shared<CEventLogHandler>());
}

CDaemonHost::~CDaemonHost() {
    const auto former = m_state->formerHandler;
    m_state.reset();  // the last messages still go into the event log
    SendDaemon::SetMessageHandler(former);
}

SendDaemon::CSendDaemon& CDaemonHost::GetDaemon() {
    return m_state->daemon;
}

std::vector<CListProgress> CDaemonHost::GetProgress() const {
    std::vector<CListProgress> progress;
    for (const auto& [number, root] : m_state->accounts) {
        const SendDaemon::CDispatcher* dispatcher = m_state->daemon.GetDispatcher(root);
        if (dispatcher != nullptr) progress.push_back({number, m_state->names[number], dispatcher->GetTotals()});
    }
    return progress;
}

bool CDaemonHost::Start() {
    return m_state->Prepare() && m_state->daemon.ClaimSending() && Begin();
}

bool CDaemonHost::StartWhenFree(const std::function<bool()>& stop) {
    if (!m_state->Prepare()) return false;
    bool isSaid = false;
    for (int faults = 0; !m_state->daemon.ClaimSending(); Platform::SleepMilliseconds(ClaimInterval)) {
        const std::string reason = DescribeLastError();
        ClearLastErrorText();
        if (stop()) return false;
        // Whoever had it may have ended between the two questions: then the next try finds out.
        const bool isElsewhere = m_state->daemon.IsSendingElsewhere();
        if (!isElsewhere && ++faults > ClaimFaults) {
            SetLastErrorText(reason);
            return false;
        }
        if (isElsewhere && !std::exchange(isSaid, true)) Log(LogInfo, "Another program is sending; it is waited for.");
    }
    return Begin();
}

bool CDaemonHost::CState::Prepare() {
    if (isPrepared) return true;
    const std::string root = GetSendDaemonFolder();
    SendDaemon::CConfiguration* serverConfig = nullptr;
    return isPrepared = EnsureFolder(root) && daemon.Initialize(root, serverConfig);
}

bool CDaemonHost::Begin() {
    if (!m_state->daemon.LoadChecker()) Log(LogError, "The delivery limits: %s", DescribeLastError().c_str());
    FollowCatalogue();
    return true;
}

void CDaemonHost::FollowCatalogue() {
    m_state->daemon.SetExpiry(ReadExpiry());
    if (!m_state->daemon.GetChecker().LoadIfChanged())
        Log(LogError, "The delivery limits: %s", DescribeLastError().c_str());
    try {
        const std::string stamp = FileStamp(GetCatalogue().GetFolder() + "LISTS.CST");
        const bool isTryDue = !m_state->failure.empty() && std::chrono::steady_clock::now() >= m_state->nextTry;
        if (stamp == m_state->catalogueStamp && !stamp.empty() && !isTryDue) return;
        m_state->failure.clear();
        m_state->AddLists();
        m_state->catalogueStamp = stamp;
    } catch (const std::exception& exception) {
        m_state->Fail(FormatText("The lists cannot be read: %s", exception.what()));
    }
}

const std::string& CDaemonHost::GetFailure() const {
    return m_state->failure;
}

void CDaemonHost::CState::Fail(std::string reason) {
    Log(LogError, "%s", reason.c_str());
    failure = std::move(reason);
    nextTry = std::chrono::steady_clock::now() + RetryInterval;
}

// An account that is there already gets the list's settings of now; it is not
// added anew, since that would cancel what it is sending.
void CDaemonHost::CState::AddLists() {
    std::map<std::uint32_t, std::string> wanted;
    for (const std::int32_t index : GetCatalogue().GetLists()) {
        if (!GetCatalogue().GetFlag(index, ListColumn::Enabled)) continue;
        const std::uint32_t number = GetCatalogue().GetListNumber(index);
        wanted[number] = GetAccountRoot(number);
        names[number] = GetCatalogue().GetName(index);
    }
    RemoveLists(wanted);
    for (const auto& [number, root] : wanted) {
        SendDaemon::CListSettings settings;
        const bool known = accounts.contains(number);
        const bool isSetUp =
            known ? ReadListSettings(number, settings) && SendDaemon::ConfigureAccount(daemon, root, settings, nullptr)
                  : SetUpAccount(daemon, number, nullptr);
        if (isSetUp)
            accounts[number] = root;
        else
            Fail(FormatText("The account of list %u cannot be set up: %s", number, DescribeLastError().c_str()));
    }
}

void CDaemonHost::CState::RemoveLists(const std::map<std::uint32_t, std::string>& wanted) {
    for (auto account = accounts.begin(); account != accounts.end();) {
        if (wanted.contains(account->first)) {
            ++account;
            continue;
        }
        daemon.RemoveAccount(account->second);
        account = accounts.erase(account);
    }
}

bool IsSomebodySending() {
    return SendDaemon::IsSendingFrom(GetSendDaemonFolder());
}

void ResumeBroadcasts(const std::function<bool()>& stopRequested) {
    std::vector<BroadcastInfo> ran;
    try {
        if (!CBroadcastJobs().ResumeAll(stopRequested, {}, ran))
            Log(LogError, "A broadcast could not be resumed: %s", DescribeLastError().c_str());
    } catch (const std::exception& exception) {
        Log(LogError, "A broadcast could not be resumed: %s", exception.what());
    }
    for (const BroadcastInfo& info : ran)
        Log(LogInfo, "Broadcast %s was resumed and is now %s.", info.id.c_str(),
            std::string(BroadcastStateName(info.state)).c_str());
}

void RunNewBroadcasts(const std::function<bool()>& stopRequested) {
    CBroadcastJobs jobs;
    std::vector<BroadcastInfo> found;
    if (!jobs.List(found)) Log(LogError, "The broadcasts cannot be listed: %s", DescribeLastError().c_str());
    for (BroadcastInfo& info : found) {
        if (info.state != BroadcastState::Interrupted || info.hasBegun) continue;
        if (stopRequested && stopRequested()) return;
        jobs.Run(info.id, stopRequested, {}, info);  // logs what fails; another program may be quicker
    }
}

void KeepLogWithinLimit() {
    if (ReadSetting("Service", "LimitLogSize", 1) == 0) return;
    const auto limit = static_cast<std::uint64_t>(std::max(1, ReadSetting("Service", "MaxLogSize", 1024))) * 1024;
    if (GetLogSize() > limit) TrimLog(limit);
}

std::optional<std::int64_t> ReadExpiry() {
    if (ReadSetting("Service", "ExpireOutgoingMessages", 0) == 0) return std::nullopt;
    constexpr std::int64_t UnitSeconds[] = {60, 3600, 86400};
    const int unit = std::clamp(ReadSetting("Service", "ExpireOutgoingUnit", 2), 0, 2);
    return std::max(0, ReadSetting("Service", "ExpireOutgoingAfter", 7)) * UnitSeconds[unit];
}
