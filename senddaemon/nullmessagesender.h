// nullmessagesender.h - the sender that delivers into a folder.
//
// Copies each message into the account's "TargetFolder" and then waits
// "NullSenderWait" milliseconds (300 when the key is missing), so that a
// delivery takes its time as a real one does.

#ifndef LISTHAVEN_SENDDAEMON_NULLMESSAGESENDER_H
#define LISTHAVEN_SENDDAEMON_NULLMESSAGESENDER_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>

#include "senddaemon/messagesender.h"

namespace SendDaemon {

class CNullMessageSender : public CMessageSender {
public:
    static constexpr std::string_view MethodName = "NullMessageSender";

    ~CNullMessageSender() override;

    bool DoSend(const CConfiguration& config, const std::string& returnPath, const std::string& recipients,
                const std::string& messageFile) override;
    bool Stop() override;  // ends the wait, not the thread
    std::string_view GetMethodName() const override { return MethodName; }

private:
    void Wait(const CConfiguration& config);

    std::mutex m_cancelLock;
    std::condition_variable m_cancelled;
    bool m_cancel = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_NULLMESSAGESENDER_H
