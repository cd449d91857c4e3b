// dispatcherstate.h - the inside of a dispatcher: choosing, claiming, filing.
//
// Threads  What stands under "lock" is shared with the senders' threads; the
//          rest belongs to the thread that dispatches.

#ifndef LISTHAVEN_SENDDAEMON_DISPATCHERSTATE_H
#define LISTHAVEN_SENDDAEMON_DISPATCHERSTATE_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/dispatcher.h"
#include "senddaemon/messageinfo.h"
#include "senddaemon/messageiterator.h"
#include "senddaemon/messagesender.h"

namespace SendDaemon {

// What a dispatcher looks up for every message.
struct CDispatchSettings {
    std::int32_t maxSenders = 1;
    std::string sendMethod;
    bool isBeingUnregistered = false;
};

struct CDispatcher::CState {
    static constexpr std::int32_t MaxSenders = 1000;
    static constexpr int ParkedPerStep = 500;  // messages looked at

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

    CMessageIterator parkedIterator;
    bool isWalkingParked = false;
    std::optional<std::int64_t> parkedCheck;  // when it last began

    mutable std::mutex lock;
    std::condition_variable jobEnded;
    std::int32_t inProgress = 0;
    std::map<std::string, CMessageInfo> inFlight;  // by message file
    CDispatchTotals totals;
    bool isCancelling = false;

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
    bool MoveTo(AccountFolder folder, const std::string& path, CBatchFolder::Times times);
    DispatchStep Park(const std::string& path);
    bool IsExpired(const std::string& path) const;
    bool Expire(const std::string& path);
    void FileSent(const std::string& messageFile);
    void FileUnsent(const std::string& messageFile);
    void EndJob(const std::string& messageFile);
    bool FreeParked();  // looks at ParkedPerStep of them
    bool FreeAllParked();
    bool UndoClaims();

private:
    void RemoveSent(const std::string& messageFile);
    CMessageInfo GetInfo(const std::string& messageFile) const;
    bool IsDue(const std::string& path) const;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DISPATCHERSTATE_H
