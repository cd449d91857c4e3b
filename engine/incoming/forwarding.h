// forwarding.h - from an incoming message to the one that members get.
//
// Only what the operator wrote (tag, header, footer, overrides) and known data
// fields are expanded in the copies; a reference in the post that is no field
// of a copy stays as it stands.  Original-* in the operator's texts is what the
// post says, literally.
//
// A signed or encrypted post is kept byte for byte, its header and footer beside
// it; options that change the text take the signature off.
//
// Errors   false, with the reason.
// Threads  One at a time in the process: data fields are shared.

#ifndef LISTHAVEN_ENGINE_INCOMING_FORWARDING_H
#define LISTHAVEN_ENGINE_INCOMING_FORWARDING_H

#include <cstdint>
#include <string>
#include <string_view>

#include "engine/broadcast.h"
#include "engine/incoming/subjectline.h"
#include "engine/rules/incomingmessage.h"
#include "engine/rules/messagerule.h"

// The message with control headers for the overrides, without trace and
// authentication fields, "Precedence: list" and List- fields (RFC 2369, 2919)
// added, the envelope sender set so that bounces come back to the list.  With
// bit 8 of the list's loop protection a new identifier at the end of the subject.
// invalid: why its format is none that can be forwarded; "" for other failures.
bool MakeForwardMessage(const RuleFields& rule, const CIncomingMessage& original, const BroadcastList& list,
                        CMimeMessage& forwarded, std::string& invalid);

// One copy of a forward message for an address that need not be a member's; text: a queue file.
CopyResult MakeForwardCopy(const CMimeMessage& forwarded, std::string_view address, const BroadcastList& list,
                           std::int64_t now, std::string& text);

// The message as it is kept for the digest: cleaned, by the rule's options for
// content, without expansion (CR LF).
bool MakeDigestEntry(const RuleFields& rule, const CIncomingMessage& original, const BroadcastList& list,
                     std::string& text, std::string& invalid);

#endif  // LISTHAVEN_ENGINE_INCOMING_FORWARDING_H
