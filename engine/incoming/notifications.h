// notifications.h - delivery status notifications that arrive in the mailbox:
// what the setting [Service] DeliveryNotifications says of them.
//
// Threads  One at a time.

#ifndef LISTHAVEN_ENGINE_INCOMING_NOTIFICATIONS_H
#define LISTHAVEN_ENGINE_INCOMING_NOTIFICATIONS_H

#include <cstdint>
#include <string_view>

#include "engine/bounces/bounceclassifier.h"

class CCycleTransaction;
struct CIncomingMessage;

// The numbers are those of the setting.
enum class NotificationTreatment : std::int32_t { Leave = 0, Process = 1, Delete = 2 };

NotificationTreatment ReadNotificationTreatment();

// Failed, delayed or delivered; a complaint or a vacation reply is none.
bool IsDeliveryNotification(NoticeKind kind) noexcept;

// By the setting; Process for whatever is no notification or did not come from
// a mailbox, such as what the sending has learned.
NotificationTreatment TreatmentOf(const CIncomingMessage& message, NotificationTreatment setting) noexcept;

// Finish() of the fetch does not delete it; MarkForRemoval() is the opposite.
void KeepOnServer(CCycleTransaction& transaction, std::string_view serverId);

#endif  // LISTHAVEN_ENGINE_INCOMING_NOTIFICATIONS_H
