#include "senddaemon/nullmessagesender.h"

#include <chrono>

#include "senddaemon/configuration.h"
#include "senddaemon/messagefile.h"
#include "utility/formattext.h"

namespace SendDaemon {

namespace {
constexpr std::int32_t DefaultWait = 300;  // milliseconds
}

CNullMessageSender::~CNullMessageSender() {
    CNullMessageSender::Stop();
    Shutdown();
}

bool CNullMessageSender::Stop() {
    const std::lock_guard guard(m_cancelLock);
    m_cancel = true;
    m_cancelled.notify_all();
    return true;
}

bool CNullMessageSender::DoSend(const CConfiguration& config, const std::string& /*returnPath*/,
                                const std::string& /*recipients*/, const std::string& messageFile) {
    {
        const std::lock_guard guard(m_cancelLock);
        m_cancel = false;
    }
    LogTrace(FormatText("*** Sending message: %s using null message sender.", messageFile.c_str()));
    std::string folder;
    std::string copy;
    const bool isSent =
        config.GetFileName("TargetFolder", folder) && CopyMessageToFolder(messageFile, folder, {}, copy);
    if (isSent) {
        LogTrace(FormatText("*** Message %s sent successfully using null message sender.", messageFile.c_str()));
    }
    Wait(config);
    return isSent;
}

void CNullMessageSender::Wait(const CConfiguration& config) {
    const bool isSet = !config.GetText("NullSenderWait").empty();
    const std::chrono::milliseconds limit(isSet ? config.GetNumber("NullSenderWait") : DefaultWait);
    if (limit.count() <= 0) return;
    std::unique_lock guard(m_cancelLock);
    m_cancelled.wait_for(guard, limit, [this] { return m_cancel; });
}

}  // namespace SendDaemon
