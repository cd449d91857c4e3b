// senderfactory.h - makes senders by the name of their kind.
//
// Threads  Any.

#ifndef LISTHAVEN_SENDDAEMON_SENDERFACTORY_H
#define LISTHAVEN_SENDDAEMON_SENDERFACTORY_H

#include <functional>
#include <memory>
#include <string_view>

#include "senddaemon/messagesender.h"

namespace SendDaemon {

using SenderCreator = std::function<std::unique_ptr<CMessageSender>()>;

void RegisterSenderKind(std::string_view name, SenderCreator creator);  // replaces one of that name

// nullptr with a last-error text for a kind that nobody registered.
std::unique_ptr<CMessageSender> CreateSender(std::string_view name);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_SENDERFACTORY_H
