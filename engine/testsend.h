// testsend.h - one personalised copy of a message, sent at once to one address.
//
// The copy is made as a broadcast makes it, from the member's data if the
// address is a member's, and goes out by the list's send method.  It passes by
// the queue and the delivery limits, so it may be sent while a daemon runs, and
// has its lines in the list's delivery.log.
//
// Errors   false, with the reason in the last-error text, or CLhvException from
//          the stores.
// Threads  One at a time in the process (broadcast.h).

#ifndef LISTHAVEN_ENGINE_TESTSEND_H
#define LISTHAVEN_ENGINE_TESTSEND_H

#include <cstdint>
#include <functional>
#include <string_view>

#include "senddaemon/deliveryoutcome.h"

class CMimeMessage;

// True when the server took it.  stop is asked while it is under way.
bool SendTestCopy(std::uint32_t listNumber, std::string_view address, const CMimeMessage& message,
                  const std::function<bool()>& stop, SendDaemon::CRecipientReport& report);

#endif  // LISTHAVEN_ENGINE_TESTSEND_H
