// originalfields.h - the data fields of an incoming message and its list.
//
// What strangers wrote is set as a literal: a reference in it is shown as it
// stands and never looked up.
//
// Threads  As datafields.h.

#ifndef LISTHAVEN_ENGINE_INCOMING_ORIGINALFIELDS_H
#define LISTHAVEN_ENGINE_INCOMING_ORIGINALFIELDS_H

#include <string>
#include <string_view>

#include "engine/broadcast.h"
#include "engine/rules/incomingmessage.h"

inline constexpr std::size_t LongestOriginalHeader = 65536;  // bytes of $(Original-Header); more is cut off

// List-*, Command-Email and so on, and Original-*.  Also "Email" and "Name" of
// the sender, and "Date" of the message.  All in UTF-8.
void SetIncomingFields(const CIncomingMessage& message, const BroadcastList& list);

// Original-* alone, for a message of which no more than its header is known.
void SetOriginalFields(const CMimeHeader& header, std::string_view headerText, const CMailbox& sender);

// "<!To-Name!>", "<!List-Name!>", "<!Original-Header!>" of stored texts become
// the references "$(To-Name)" and so on, which give their values when the
// message is expanded.  Those that are no field stay.
void ExpandPlaceholders(CMimeMessage& message);

#endif  // LISTHAVEN_ENGINE_INCOMING_ORIGINALFIELDS_H
