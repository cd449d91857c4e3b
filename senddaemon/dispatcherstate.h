// dispatcherstate.h - the inside of a dispatcher: choosing, claiming, filing.
//
// Threads  What stands under "lock" is shared with the senders' threads; the
//          rest belongs to the thread that dispatches.

#ifndef LISTHAVEN_SENDDAEMON_DISPATCHERSTATE_H
#define LISTHAVEN_SENDDAEMON_DISPATCHERSTATE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "senddaemon/accountfolders.h"
#include "senddaemon/backoff.h"
#include "senddaemon/configuration.h"
#include "senddaemon/deliverylog.h"
#include "senddaemon/deliveryoutcome.h"
#include "senddaemon/dispatcher.h"
#include "senddaemon/messageinfo.h"
#include "senddaemon/messageiterator.h"
#include "senddaemon/messagesender.h"
#include "senddaemon/queuename.h"

namespace SendDaemon {

// What a dispatcher looks up for every message.
struct CDispatchSettings {
    std::int32_t maxSenders = 1;
    std::string sendMethod;
    std::string hostName;
    bool isDirect = false;  // each recipient's domain is a destination, else the host is the only one
    bool retriesTemporary = false;
    bool isBeingUnregistered = false;
};

// A message that a sender has.  Written by the dispatching thread before it is
// handed over, then by the sender's.
struct CDelivery {
    CMessageInfo info;
    std::vector<std::string> recipients;               // each once
    bool isRelayed = true;                             // to the host that is the only destination
    std::vector<std::string> destinations;             // for the back-off
    std::vector<std::string> probed;                   // of those
    std::map<std::string, CRecipientReport> outcomes;  // by recipient
};

// How the recipients of a message fared.
struct CSettlement {
    std::vector<CRecipientReport> accepted;
    std::vector<CRecipientReport> refused;
    std::vector<CRecipientReport> deferred;
    std::vector<std::string> untried;  // of a cancelled delivery

    std::size_t CountKinds() const;
};

// Finds due messages a part of a folder at a time, so that no step takes long.
struct CPeriodicWalk {
    static constexpr int MessagesPerStep = 500;

    CMessageIterator iterator;
    bool isWalking = false;
    std::optional<std::int64_t> begun;  // when it last began

    bool Begin(const std::string& folder, std::int64_t now);  // false when it cannot be walked
    std::vector<std::string> Collect(const std::function<bool(const std::string& path)>& isDue);
    void StartAnew() { *this = {}; }
};

struct CDispatcher::CState {
    static constexpr std::int32_t MaxSenders = 1000;
    enum class Moved : std::uint8_t { No, NotFlushed, Yes };

    DaemonClock clock;
    IMessageSender_SendMessageEvents* senderEvents = nullptr;
    CConfiguration* config = nullptr;
    IDispatcher_SendMessageEvents* events = nullptr;
    CAccount account;
    CMessageIterator iterator;
    bool isPassOver = false;
    std::vector<std::unique_ptr<CMessageSender>> senders;  // one slot per connection, empty ones null
    std::optional<std::int64_t> expiry;

    CDispatchSettings settings;
    CPeriodicWalk parkedWalk;
    CPeriodicWalk deferredWalk;

    mutable std::mutex lock;
    std::condition_variable jobEnded;
    std::int32_t inProgress = 0;
    std::map<std::string, CDelivery> inFlight;  // by message file
    CBackOff backOff;
    CDispatchTotals totals;
    bool isCancelling = false;

    CDeliveryLog deliveryLog;
    bool isLogOpen = false;
    std::mutex unwrittenLock;
    std::vector<CDeliveryLine> unsaid;     // "sent" lines that go with the next write
    std::vector<CDeliveryLine> unwritten;  // lines that the log did not take
    std::atomic<bool> isAnyUnwritten = false;

    // dispatchstep.cpp
    DispatchStep Step(bool onePass, bool& endOfQueue, std::string& reason);  // reason: unless a message was handed on
    DispatchStep DispatchCurrent();
    DispatchStep Claim(const std::string& path, CMessageSender& sender);
    DispatchStep SendClaimed(const std::string& claimed, CMessageSender& sender);
    CMessageSender* ChooseSender();
    bool AreAllBusy() const;
    bool Advance();
    void RefreshSettings();
    void AdjustSlots();
    void CancelSenders();

    // filing.cpp
    // name "": it stays
    Moved MoveTo(AccountFolder folder, const std::string& path, CBatchFolder::Times times, std::string_view name = {});
    CQueueName NameWithTime(const std::string& path) const;
    DispatchStep Park(const std::string& path);
    bool IsExpired(const std::string& path, std::optional<std::int64_t> limit) const;
    bool Expire(const std::string& path);
    bool FreeParked();
    bool FreeAll();  // of those held back or deferred, who are due

    // settling.cpp
    void RecordReport(const std::string& messageFile, const CDeliveryReport& report);
    void EndDelivery(const std::string& messageFile, bool isSent);
    void FileUnusable(const std::string& messageFile, const CMessageInfo& info);
    void EndJob(const std::string& messageFile);
    bool KeepRecipients(const std::string& path, std::span<const std::string> recipients);
    bool FileSent(const std::string& messageFile, const CMessageInfo& info, std::span<const CRecipientReport> accepted);
    void AppendOutcomes(const CMessageInfo& info, std::span<const CRecipientReport> outcomes, DeliveryStatus status,
                        CDeliveryLog::Flush flush);
    void AppendForAll(const CMessageInfo& info, DeliveryStatus status, const std::string& text);
    void AppendSent(const CMessageInfo& info, std::span<const CRecipientReport> accepted);
    void AppendLines(std::vector<CDeliveryLine> lines, CDeliveryLog::Flush flush);
    void AppendUnsaid();     // what waits for another line
    bool AppendUnwritten();  // false when the log still takes none
    void TellUnwritten();    // the event log, for want of the other
    bool IsLogReady();       // false: nothing may go out, the reason is in the last-error text

    // deferral.cpp
    bool Defer(const std::string& path, const CMessageInfo& info, std::span<const CRecipientReport> deferred);
    bool FreeDeferred();
    bool IsAnyWaiting();
    bool Rests(std::string& reason);                             // the host, so that nothing is to be dispatched
    bool BeginProbes(CDelivery& delivery, std::int64_t& until);  // false: all destinations rest
    DispatchStep Postpone(const std::string& path, const CDelivery& delivery, std::int64_t until);
    void UpdateBackOff(const CDelivery& delivery, const CDeliveryReport& report);
    std::vector<std::string> GetDestinations(std::span<const std::string> recipients) const;

    // restart.cpp
    bool UndoClaims();

private:
    struct CClaim;
    struct CRestart;

    CDelivery* FindDelivery(const std::string& messageFile);
    void FillInUnreported(CDelivery& delivery, bool isSent, const std::string& reason);
    CSettlement Sort(const CDelivery& delivery) const;
    void TellSent(const std::string& messageFile, const CDelivery& delivery, const CSettlement& outcome);
    bool Settle(const std::string& messageFile, const CDelivery& delivery, const CSettlement& outcome);
    bool KeepRest(const std::string& messageFile, const CSettlement& outcome);
    bool FileRest(const std::string& messageFile, const CMessageInfo& info, const CSettlement& outcome);
    bool RemoveSent(const std::string& messageFile);
    bool KeepsSent() const;
    bool UndoClaim(CClaim& claim);
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DISPATCHERSTATE_H
