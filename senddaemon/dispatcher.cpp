#include "senddaemon/dispatcher.h"

#include <algorithm>
#include <utility>

#include "app/settings.h"
#include "platform/filestatus.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/dispatcherstate.h"
#include "utility/lasterror.h"

namespace SendDaemon {

namespace {

constexpr int DefaultDeliveryLogSize = 65536;  // KB
constexpr int DefaultDeliveryLogFiles = 9;

std::uint64_t GetDeliveryLogLimit() {
    return static_cast<std::uint64_t>(std::max(0, ReadSetting("Service", "DeliveryLogSize", DefaultDeliveryLogSize))) *
           1024;
}

std::uint32_t GetDeliveryLogFiles() {
    return static_cast<std::uint32_t>(std::max(0, ReadSetting("Service", "DeliveryLogFiles", DefaultDeliveryLogFiles)));
}

}  // namespace

CDispatcher::CDispatcher(DaemonClock clock) : m_state(std::make_unique<CState>()) {
    m_state->clock = clock ? std::move(clock) : DaemonClock(Platform::SecondsSince1970);
    m_state->senderEvents = this;
}

CDispatcher::~CDispatcher() {
    CancelSenders();
    m_state->TellUnwritten();
    if (m_state->config != nullptr) m_state->config->Detach(*this);
}

bool CDispatcher::Initialize(std::string_view rootFolder, CConfiguration* config,
                             IDispatcher_SendMessageEvents* events) {
    CancelSenders();
    const std::string root(rootFolder);
    LogFormat(LogLevelTrace, "CDispatcher::Initialize (\"%s\")", root.c_str());
    if (m_state->config != nullptr) m_state->config->Detach(*this);
    m_state->config = config;
    if (config != nullptr) config->Attach(*this);
    if (!m_state->account.SetUp(root)) return false;
    Log(LogLevelTrace, "Initialized account");
    m_state->isLogOpen = false;
    m_state->deliveryLog.SetUp(m_state->account.GetRootFolder(), GetDeliveryLogLimit(), GetDeliveryLogFiles());
    if (!m_state->FreeAll() || !m_state->UndoClaims()) return false;
    Log(LogLevelTrace, "Queue folder undone");
    if (!m_state->iterator.Start(m_state->account.GetRootFolder())) return false;
    Log(LogLevelTrace, "Message iterator initialized");
    m_state->events = events;
    m_state->RefreshSettings();
    LogFormat(LogLevelTrace, "InitializeSenders()  MaxSenders = %i", m_state->settings.maxSenders);
    if (m_state->settings.maxSenders < 1) return false;
    m_state->AdjustSlots();
    Log(LogLevelTrace, "Successfully initialized senders");
    return true;
}

void CDispatcher::SetExpiry(std::optional<std::int64_t> seconds) {
    const std::lock_guard guard(m_state->lock);
    m_state->expiry = seconds;
}

bool CDispatcher::Dispatch() {
    bool endOfQueue = false;
    switch (Step(Walk::Endless, endOfQueue)) {
        case DispatchStep::HandedOn:
        case DispatchStep::NotParked:
        case DispatchStep::AllBusy:
            return true;
        default:
            return false;
    }
}

DispatchStep CDispatcher::Step(Walk walk, bool& endOfQueue) {
    endOfQueue = false;
    std::string reason;
    const DispatchStep result = m_state->Step(walk == Walk::OnePass, endOfQueue, reason);
    if (result == DispatchStep::NothingWaiting || result == DispatchStep::Failed ||
        result == DispatchStep::Unregistered || result == DispatchStep::BackedOff) {
        for (const auto& sender : m_state->senders) {
            if (sender) sender->OnIdle();
        }
        m_state->AppendUnsaid();
        SetLastErrorText(reason);
    }
    return result;
}

void CDispatcher::RestartWalk() {
    m_state->iterator.Reset();
    m_state->isPassOver = false;
}

bool CDispatcher::IsBusy() const {
    const std::lock_guard guard(m_state->lock);
    return m_state->inProgress > 0;
}

void CDispatcher::CancelSenders() {
    m_state->CancelSenders();
}

CDispatchTotals CDispatcher::GetTotals() const {
    const std::lock_guard guard(m_state->lock);
    return m_state->totals;
}

CBackOffNotice CDispatcher::GetBackOff() const {
    const std::lock_guard guard(m_state->lock);
    const std::string& host = m_state->settings.hostName;
    const std::int64_t until = m_state->backOff.GetEnd(host);
    if (m_state->settings.isDirect || until == 0) return {};
    return {.host = host, .reason = m_state->backOff.GetReason(host), .until = until};
}

void CDispatcher::OnMessageSent(const std::string& messageFile) {
    Log(LogLevelTrace, "Successfully sent message!");
    m_state->EndDelivery(messageFile, true);
    m_state->EndJob(messageFile);
}

void CDispatcher::OnMessageFailed(const std::string& messageFile) {
    Log(LogLevelTrace, "Failed to send the message!");
    m_state->EndDelivery(messageFile, false);
    if (m_state->events != nullptr) m_state->events->OnMessageFailed();
    m_state->EndJob(messageFile);
}

void CDispatcher::OnRecipientsSettled(const std::string& messageFile, const CDeliveryReport& report) {
    m_state->RecordReport(messageFile, report);
}

void CDispatcher::OnSenderIdle() {
    if (m_state->events != nullptr) m_state->events->OnSenderIdle();
}

// Whoever waits for a free sender looks again: there may be more connections.
void CDispatcher::OnSubjectChanged(const CSubjectEvent& /*event*/) {
    OnSenderIdle();
}

}  // namespace SendDaemon
