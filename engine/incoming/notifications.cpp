#include "engine/incoming/notifications.h"

#include <string>

#include "app/settings.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/fetchmarks.h"
#include "engine/rules/incomingmessage.h"

NotificationTreatment ReadNotificationTreatment() {
    constexpr auto Default = static_cast<int>(NotificationTreatment::Process);
    switch (ReadSetting("Service", "DeliveryNotifications", Default)) {
        case static_cast<int>(NotificationTreatment::Leave):
            return NotificationTreatment::Leave;
        case static_cast<int>(NotificationTreatment::Delete):
            return NotificationTreatment::Delete;
        default:
            return NotificationTreatment::Process;
    }
}

bool IsDeliveryNotification(NoticeKind kind) noexcept {
    return kind == NoticeKind::Bounce || kind == NoticeKind::Delay || kind == NoticeKind::Success;
}

NotificationTreatment TreatmentOf(const CIncomingMessage& message, NotificationTreatment setting) noexcept {
    const bool isConcerned =
        IsDeliveryNotification(message.bounce.kind) && !message.serverId.empty() && !message.isAccepted;
    return isConcerned ? setting : NotificationTreatment::Process;
}

void KeepOnServer(CCycleTransaction& transaction, std::string_view serverId) {
    std::string value;
    if (serverId.empty() || !transaction.GetMark(MarkKind::ServerMessage, serverId, value)) return;
    CServerMark mark = CServerMark::Parse(value);
    if (mark.state != CServerMark::State::Delete) return;
    mark.state = CServerMark::State::Keep;
    transaction.SetMark(MarkKind::ServerMessage, serverId, mark.Encode());
}
