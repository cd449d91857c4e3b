// dispatcher.h - sends the queue of one account.
//
// Each step takes the next waiting message, asks whether it may go now, claims
// it by moving it into .Queue, and hands it to an idle sender; what the sender
// reports moves it to .Sent (or deletes it), to .Errors, or to .Deferred, from
// where it comes back when it is due.  Messages that a limit holds back wait in
// .Blocked for an hour, those that are too old go to .Expired.  What becomes of
// each recipient is in the delivery log (deliverylog.h).
//
// Errors   false, with the reason in the last-error text.
// Threads  One thread dispatches; the sender events arrive on the senders' own.
// Crash    No recipient is lost.  Of the messages that were claimed when the
//          program died the next one sends to those whom no server had taken it
//          for; so only between a server's answer and the flushed line in the
//          delivery log can a message be doubled.

#ifndef LISTHAVEN_SENDDAEMON_DISPATCHER_H
#define LISTHAVEN_SENDDAEMON_DISPATCHER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "senddaemon/sendevents.h"
#include "senddaemon/subject.h"

namespace SendDaemon {

using DaemonClock = std::function<std::int64_t()>;  // seconds since 1970

struct CDispatchTotals {
    // Messages; one that fared differently for several recipients counts in each.
    std::uint64_t sent = 0;
    std::uint64_t failed = 0;
    std::uint64_t parked = 0;  // each time a message is held back
    std::uint64_t expired = 0;
    std::uint64_t deferred = 0;  // each time it failed for now

    std::uint64_t CountAll() const noexcept { return sent + failed + parked + expired + deferred; }
};

// What one step did.
enum class DispatchStep : std::uint8_t {
    HandedOn,  // a message left the waiting queue
    AllBusy,   // no sender is free; nothing was tried
    NothingWaiting,
    Unregistered,  // the account is being removed
    Failed,        // the message stays where it is
    NotParked,     // it was to be held back, and stays where it is
    BackedOff,     // messages wait, and the host takes none now
};

// A host that is left alone for a while since it took no messages.
struct CBackOffNotice {
    std::string host;
    std::string reason;
    std::int64_t until = 0;  // seconds since 1970; 0: none
};

class CDispatcher : public CObserver, public IMessageSender_SendMessageEvents {
public:
    static constexpr std::int64_t ParkedSeconds = 3600;
    static constexpr std::int64_t CheckSeconds = 60;  // between two looks at those parked or deferred

    explicit CDispatcher(DaemonClock clock = {});  // {}: the system's
    CDispatcher(const CDispatcher&) = delete;
    CDispatcher& operator=(const CDispatcher&) = delete;
    ~CDispatcher() override;  // cancels what is being sent, and waits for it

    // Frees the parked messages that are due and undoes the claim folder: no
    // other dispatcher may run on this account.  config and events (nullptr:
    // none) must outlive this.
    bool Initialize(std::string_view rootFolder, CConfiguration* config, IDispatcher_SendMessageEvents* events);

    // Seconds after which a waiting message is too old; none: never.
    void SetExpiry(std::optional<std::int64_t> seconds);

    bool Dispatch();  // true when a message was handed on, or nothing needed doing

    // The same with more to say.  endOfQueue is set when the walk came to the
    // end of the queue; with Walk::OnePass it then stays there.
    enum class Walk : std::uint8_t { Endless, OnePass };
    DispatchStep Step(Walk walk, bool& endOfQueue);
    void RestartWalk();

    bool IsBusy() const;
    void CancelSenders();  // and waits until nothing is being sent
    CDispatchTotals GetTotals() const;
    CBackOffNotice GetBackOff() const;  // of the host through which all messages go

    void OnMessageSent(const std::string& messageFile) override;
    void OnMessageFailed(const std::string& messageFile) override;
    void OnRecipientsSettled(const std::string& messageFile, const CDeliveryReport& report) override;
    void OnSenderIdle() override;
    void OnSubjectChanged(const CSubjectEvent& event) override;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DISPATCHER_H
