// messagefields.h - sets the groups of standard data fields.
//
// Threads  As datafields.h.

#ifndef LISTHAVEN_ENGINE_MESSAGEFIELDS_H
#define LISTHAVEN_ENGINE_MESSAGEFIELDS_H

#include <string>
#include <string_view>

#include "engine/member.h"
#include "engine/memberstore.h"

class CCustomFields;
class CMimeMessage;
struct BroadcastList;

// From, To, Reply-To, Subject and CC as the message has them, the names and
// addresses in From and To, the date, and four random numbers.
void SetMessageFields(const CMimeMessage& message);

// The parts of SetMessageFields().
void SetHeaderFields(const CMimeMessage& message);
void SetSenderFields(std::string_view fromLine);
void SetRecipientFields(std::string_view toLine);
void SetRandomFields();

void SetListFields(const BroadcastList& list);

// The parts of the name as the member has them, rather than as they would be
// taken out of a To line.  A member without parts is left to SetRecipientFields().
void SetMemberFields(const CMember& member);

// Every defined slot among the wanted ones.
void SetCustomFields(const CCustomFields& fields, const CMember& member, SlotMask wanted = AllSlots);

// First, middle and last name joined; the name column when all are empty.
std::string MemberFullName(const CMember& member);

#endif  // LISTHAVEN_ENGINE_MESSAGEFIELDS_H
