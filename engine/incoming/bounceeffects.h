// bounceeffects.h - what a bounce does to the members that it names, and what is
// kept of it.
//
// Errors   CLhvException from the stores.
// Threads  One at a time.

#ifndef LISTHAVEN_ENGINE_INCOMING_BOUNCEEFFECTS_H
#define LISTHAVEN_ENGINE_INCOMING_BOUNCEEFFECTS_H

#include <map>
#include <string>

#include "engine/incoming/messageeffects.h"
#include "engine/rules/incomingmessage.h"

using RemovedMembers = std::map<std::string, CMember, std::less<>>;  // by address in lower case: as they were

// Behind the actions of the rules.  Counts it at each member that is named and
// that no rule has removed, and keeps it in the bounces folder: once for each
// member, or once when it names none.
void AddBounceEffects(const CIncomingMessage& message, const RemovedMembers& removed, CListView& view,
                      CMessageEffects& effects);

#endif  // LISTHAVEN_ENGINE_INCOMING_BOUNCEEFFECTS_H
