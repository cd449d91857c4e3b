// jsonnotice.h - notices as JSON, as sending services write them to a mailbox:
// "notificationType" Bounce, Complaint or Delivery, with the recipients.

#ifndef LISTHAVEN_ENGINE_BOUNCES_JSONNOTICE_H
#define LISTHAVEN_ENGINE_BOUNCES_JSONNOTICE_H

#include <string_view>

#include "engine/bounces/bounceclassifier.h"

// False when the text is no such notice.
bool ReadJsonNotice(std::string_view text, CBounceReport& report);

#endif  // LISTHAVEN_ENGINE_BOUNCES_JSONNOTICE_H
