// notificationlistener.h - the front end's ear for short notifications.
//
// A notification is two 32-bit words in two mailslot messages of four bytes,
// little-endian.  Anything else in the mailslot ends the listening.
//
// Errors   false, with the reason in LastSystemError().
// Threads  Start() and Stop() from one; the callback comes on the listener's.

#ifndef LISTHAVEN_SENDDAEMON_NOTIFICATIONLISTENER_H
#define LISTHAVEN_SENDDAEMON_NOTIFICATIONLISTENER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <thread>

namespace SendDaemon {

using NotificationCallback = std::function<void(std::uint32_t first, std::uint32_t second)>;

class CNotificationListener {
public:
    CNotificationListener() = default;
    CNotificationListener(const CNotificationListener&) = delete;
    CNotificationListener& operator=(const CNotificationListener&) = delete;
    ~CNotificationListener();  // stops

    // Returns when the mailslot is there, or false when it cannot be made.
    bool Start(NotificationCallback callback);
    void Stop();  // waits for the thread; at most about a second
    bool IsListening() const noexcept { return m_listening; }

private:
    void Listen(const NotificationCallback& callback, std::promise<bool> started);

    std::thread m_thread;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_listening = false;
};

bool SendNotification(std::uint32_t first, std::uint32_t second);  // false when nobody listens

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_NOTIFICATIONLISTENER_H
