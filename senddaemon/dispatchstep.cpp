// One step of a dispatcher: which message, which sender, and the hand-over.

#include <algorithm>
#include <chrono>
#include <utility>

#include "app/pumpmessages.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/directmessagesender.h"
#include "senddaemon/dispatcherstate.h"
#include "senddaemon/senderfactory.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

void CDispatcher::CState::RefreshSettings() {
    if (config == nullptr) return;
    const std::int32_t connections = config->GetNumber("MaxConnections");
    settings.maxSenders = connections > 0 ? std::min(connections, MaxSenders) : 1;
    settings.sendMethod = config->GetText("SendMethod");
    settings.hostName = config->GetText("HostName");
    settings.isDirect = settings.sendMethod == CDirectMessageSender::MethodName;
    settings.retriesTemporary = config->GetNumber("RetryTemporary") > 0;
    settings.isBeingUnregistered = !config->GetText("BeingUnregistered").empty();
}

// Slots that are too many go when their senders are idle.
void CDispatcher::CState::AdjustSlots() {
    const auto wanted = static_cast<std::size_t>(settings.maxSenders);
    while (senders.size() > wanted && (!senders.back() || !senders.back()->IsBusy()))
        senders.pop_back();
    if (senders.size() < wanted) senders.resize(wanted);
}

// A sender that has reported back is busy for a moment longer.
bool CDispatcher::CState::AreAllBusy() const {
    {
        const std::lock_guard guard(lock);
        if (inProgress >= settings.maxSenders) return true;
    }
    return std::all_of(senders.begin(), senders.end(),
                       [](const auto& sender) { return sender != nullptr && sender->IsBusy(); });
}

DispatchStep CDispatcher::CState::Step(bool onePass, bool& endOfQueue, std::string& reason) {
    RefreshSettings();
    AdjustSlots();
    if (AreAllBusy()) return DispatchStep::AllBusy;
    if (settings.isBeingUnregistered) {
        reason = FormatText("The account \"%s\" is being unregistered.", account.GetRootFolder().c_str());
        endOfQueue = true;
        return DispatchStep::Unregistered;
    }
    if (!IsLogReady()) {
        reason = GetLastErrorText();
        endOfQueue = true;
        return DispatchStep::Failed;
    }
    if (Rests(reason)) {
        endOfQueue = true;
        return IsAnyWaiting() ? DispatchStep::BackedOff : DispatchStep::NothingWaiting;
    }
    if (!FreeParked() || !FreeDeferred()) Log(LogLevelFailure, DescribeLastError());
    if (onePass && isPassOver) {
        endOfQueue = true;
        return DispatchStep::NothingWaiting;
    }
    const DispatchStep result = DispatchCurrent();
    reason = GetLastErrorText();
    if (Advance()) return result;
    endOfQueue = true;
    isPassOver = onePass;
    if (onePass) return result;
    iterator.Reset();
    if (result == DispatchStep::HandedOn || result == DispatchStep::NotParked) return result;
    const DispatchStep second = DispatchCurrent();
    if (second != DispatchStep::NothingWaiting) reason = GetLastErrorText();
    Advance();
    return second == DispatchStep::NothingWaiting ? result : second;
}

bool CDispatcher::CState::IsAnyWaiting() {
    std::string path;
    return iterator.GetCurrent(path) || iterator.Reset();
}

// A batch that the walk has drained goes, if nobody has put anything in since.
bool CDispatcher::CState::Advance() {
    const std::string batch = iterator.GetBatchPath();
    const bool isThere = iterator.Next();
    if (!batch.empty() && batch != iterator.GetBatchPath()) Platform::RemoveEmptyFolder(batch);
    return isThere;
}

DispatchStep CDispatcher::CState::DispatchCurrent() {
    std::string path;
    // One that has disappeared is noticed when it is to be moved.
    if (!iterator.PeekCurrent(path)) return DispatchStep::NothingWaiting;
    if (IsExpired(path, expiry)) return Expire(path) ? DispatchStep::HandedOn : DispatchStep::Failed;
    if (config == nullptr) {
        LogFormat(LogLevelFailure, "The account \"%s\" has no configuration.", account.GetRootFolder().c_str());
        return DispatchStep::Failed;
    }
    if (events != nullptr && !events->CanSendMessage(*config, path)) return Park(path);
    LogFormat(LogLevelTrace, "Dispatching message %s", path.c_str());
    CMessageSender* sender = ChooseSender();
    return sender != nullptr ? Claim(path, *sender) : DispatchStep::Failed;
}

// The idle sender that has delivered last: its connection is the likeliest to
// be open still.
CMessageSender* CDispatcher::CState::ChooseSender() {
    CMessageSender* chosen = nullptr;
    double chosenSeconds = 0;
    std::unique_ptr<CMessageSender>* free = nullptr;
    std::unique_ptr<CMessageSender>* ofOtherKind = nullptr;
    for (auto& sender : senders) {
        if (!sender) {
            if (free == nullptr) free = &sender;
            continue;
        }
        if (sender->IsBusy()) continue;
        if (sender->GetMethodName() != settings.sendMethod) {
            if (ofOtherKind == nullptr) ofOtherKind = &sender;
            continue;
        }
        const double seconds = sender->GetLastDelivery();
        if (chosen == nullptr || seconds < chosenSeconds) {
            chosen = sender.get();
            chosenSeconds = seconds;
        }
    }
    if (chosen != nullptr) return chosen;
    if (free == nullptr) free = ofOtherKind;
    if (free == nullptr) {
        SetLastErrorText("No available senders.");
        return nullptr;
    }
    std::unique_ptr<CMessageSender> created = CreateSender(settings.sendMethod);
    if (created == nullptr) return nullptr;
    *free = std::move(created);
    return free->get();
}

DispatchStep CDispatcher::CState::Claim(const std::string& path, CMessageSender& sender) {
    CBatchFolder* queue = account.GetFolder(AccountFolder::Claimed);
    std::string claimed;
    if (queue == nullptr) return DispatchStep::Failed;
    if (!queue->AddMessage(path, CBatchFolder::Transfer::Move, CBatchFolder::Times::Keep, {}, claimed)) {
        return Platform::FileIsThere(path) ? DispatchStep::Failed : DispatchStep::NothingWaiting;
    }
    return SendClaimed(claimed, sender);
}

DispatchStep CDispatcher::CState::SendClaimed(const std::string& claimed, CMessageSender& sender) {
    Log(LogLevelTrace, "CDispatcher::SendMessage");
    CDelivery delivery;
    if (!ReadMessageInfo(claimed, delivery.info)) {
        Log(LogLevelTrace, "Failed to send the message!");
        FileUnusable(claimed, delivery.info);
        if (events != nullptr) events->OnMessageFailed();
        return DispatchStep::HandedOn;
    }
    Log(LogLevelTrace, "Got message info!");
    delivery.recipients = SplitRecipients(delivery.info.recipients);
    delivery.isRelayed = !settings.isDirect;
    delivery.destinations = GetDestinations(delivery.recipients);
    std::int64_t until = 0;
    if (!BeginProbes(delivery, until)) return Postpone(claimed, delivery, until);
    const std::string returnPath = delivery.info.returnPath;
    const std::string recipients = Join(delivery.recipients, ",");
    {
        const std::lock_guard guard(lock);
        ++inProgress;
        inFlight[claimed] = std::move(delivery);
    }
    if (sender.Send(*config, returnPath, recipients, claimed, senderEvents)) return DispatchStep::HandedOn;
    const std::string reason = GetLastErrorText();
    EndJob(claimed);
    MoveTo(AccountFolder::Waiting, claimed, CBatchFolder::Times::Keep);
    SetLastErrorText(reason);
    return DispatchStep::Failed;
}

void CDispatcher::CState::CancelSenders() {
    std::unique_lock guard(lock);
    isCancelling = true;
    while (inProgress > 0) {
        guard.unlock();
        for (const auto& sender : senders) {
            if (sender && sender->IsBusy()) sender->Stop();
        }
        PumpMessages();
        guard.lock();
        jobEnded.wait_for(guard, std::chrono::milliseconds(50), [this] { return inProgress == 0; });
    }
    guard.unlock();
    // Each takes leave of its server, all at the same time.
    for (const auto& sender : senders) {
        if (sender) sender->End();
    }
    senders.clear();  // waits for their threads
    AppendUnsaid();
    guard.lock();
    isCancelling = false;
}

}  // namespace SendDaemon
