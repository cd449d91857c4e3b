// bouncedmember.h - a whole member as the value of a header field.

#ifndef LISTHAVEN_ENGINE_INCOMING_BOUNCEDMEMBER_H
#define LISTHAVEN_ENGINE_INCOMING_BOUNCEDMEMBER_H

#include <string>
#include <string_view>

#include "engine/member.h"

// Base64 in folded lines (LF): letters only, whatever the member holds.
std::string EncodeBouncedMember(const CMember& member);

// False when the value is none, or is cut.
bool DecodeBouncedMember(std::string_view value, CMember& member);

#endif  // LISTHAVEN_ENGINE_INCOMING_BOUNCEDMEMBER_H
