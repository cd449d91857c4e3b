// notifications.h - what the server tells the front end in two words.
//
// The first word is the kind, the second what it is about.  A front end that
// does not know a kind passes it over.

#ifndef LISTHAVEN_APP_NOTIFICATIONS_H
#define LISTHAVEN_APP_NOTIFICATIONS_H

#include <cstdint>

enum class Notification : std::uint32_t {
    MailProcessed = 1,  // number of the list
    MessageHeld = 2,    // number of the list: messages wait for its moderator
};

#endif  // LISTHAVEN_APP_NOTIFICATIONS_H
