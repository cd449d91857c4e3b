// sendevents.h - how senders, dispatchers and the daemon report upwards.
//
// Threads  Called on the sender's own thread, but CanSendMessage() on the
//          thread that dispatches.

#ifndef LISTHAVEN_SENDDAEMON_SENDEVENTS_H
#define LISTHAVEN_SENDDAEMON_SENDEVENTS_H

#include <string>

namespace SendDaemon {

class CConfiguration;
struct CDeliveryReport;

// From a sender to its dispatcher.
class IMessageSender_SendMessageEvents {
public:
    virtual ~IMessageSender_SendMessageEvents() = default;
    virtual void OnMessageSent(const std::string& messageFile) = 0;
    virtual void OnMessageFailed(const std::string& messageFile) = 0;
    // During the delivery, once per transaction with a server: when it returns,
    // what a server took is known after a crash.
    virtual void OnRecipientsSettled(const std::string& /*messageFile*/, const CDeliveryReport& /*report*/) {}
    virtual void OnSenderIdle() {}  // after either: the sender takes the next message
};

// From a dispatcher to the daemon.
class IDispatcher_SendMessageEvents {
public:
    virtual ~IDispatcher_SendMessageEvents() = default;
    virtual bool CanSendMessage(const CConfiguration& config, const std::string& messageFile) = 0;
    virtual void OnMessageSent(const std::string& messageFile, const std::string& returnPath,
                               const std::string& recipients) = 0;
    virtual void OnMessageFailed() = 0;
    virtual void OnSenderIdle() {}
};

// From the daemon to the program.  recipients are bare addresses joined by ",".
class ISendEvents {
public:
    virtual ~ISendEvents() = default;
    virtual void OnMessageSent(const std::string& messageFile, const std::string& returnPath,
                               const std::string& recipients) = 0;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_SENDEVENTS_H
