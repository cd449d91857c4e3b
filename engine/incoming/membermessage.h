// membermessage.h - a rule's message to send, as a broadcast to members.
//
// What the message at hand gives to it (Original-*) is put in now, as a literal;
// the members' own fields stay references for their copies.
//
// Errors   CLhvException.
// Threads  As datafields.h.
// Order    The data fields of the message and its list are set before.

#ifndef LISTHAVEN_ENGINE_INCOMING_MEMBERMESSAGE_H
#define LISTHAVEN_ENGINE_INCOMING_MEMBERMESSAGE_H

#include "engine/broadcast.h"
#include "mime/mimemessage.h"

// It must have a root.
CMimeMessage MakeMessageForMembers(const CMimeMessage& message, const BroadcastList& list);

#endif  // LISTHAVEN_ENGINE_INCOMING_MEMBERMESSAGE_H
