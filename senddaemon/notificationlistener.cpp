#include "senddaemon/notificationlistener.h"

#include <array>
#include <chrono>
#include <string>

#include "app/productname.h"
#include "platform/mailslot.h"

namespace SendDaemon {

namespace {

constexpr std::size_t WordSize = 4;
constexpr std::chrono::milliseconds IdleWait{100};
// How long the second word may take after the first.
constexpr std::chrono::milliseconds PairWait{1000};

std::string PackWord(std::uint32_t word) {
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(word >> shift & 0xFF);
    return bytes;
}

bool ReadWord(Platform::CMailslot& slot, std::uint32_t& word) {
    std::string message;
    if (!slot.WaitFor(PairWait) || !slot.Read(message) || message.size() != WordSize) return false;
    word = 0;
    for (std::size_t i = WordSize; i-- > 0;)
        word = word << 8 | static_cast<unsigned char>(message[i]);
    return true;
}

}  // namespace

CNotificationListener::~CNotificationListener() {
    Stop();
}

bool CNotificationListener::Start(NotificationCallback callback) {
    Stop();
    m_stop = false;
    std::promise<bool> started;
    std::future<bool> isListening = started.get_future();
    m_thread = std::thread([this, callback = std::move(callback), promise = std::move(started)]() mutable {
        Listen(callback, std::move(promise));
    });
    if (isListening.get()) return true;
    m_thread.join();
    return false;
}

void CNotificationListener::Stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
}

void CNotificationListener::Listen(const NotificationCallback& callback, std::promise<bool> started) {
    Platform::CMailslot slot;
    const bool isMade = slot.Create(NotificationMailslotName);
    m_listening = isMade;
    started.set_value(isMade);
    if (!isMade) return;
    while (!m_stop) {
        if (!slot.WaitFor(IdleWait)) continue;
        std::uint32_t first = 0;
        std::uint32_t second = 0;
        if (!ReadWord(slot, first) || !ReadWord(slot, second)) break;
        callback(first, second);
    }
    m_listening = false;
}

bool SendNotification(std::uint32_t first, std::uint32_t second) {
    return Platform::WriteToMailslot(NotificationMailslotName, PackWord(first)) &&
           Platform::WriteToMailslot(NotificationMailslotName, PackWord(second));
}

}  // namespace SendDaemon
