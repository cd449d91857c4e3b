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

// What becomes of the parts of a name: the setting CapitalizeNames.
enum class NameCase { AsWritten, Capitalized };
NameCase ReadNameCase();

// From, To, Reply-To, Subject and CC as the message has them, the names and
// addresses in From and To, the date, and four random numbers.
void SetMessageFields(const CMimeMessage& message);

// The parts of SetMessageFields().
void SetHeaderFields(const CMimeMessage& message);
void SetSenderFields(std::string_view fromLine, NameCase nameCase);
void SetRecipientFields(std::string_view toLine, NameCase nameCase);
void SetRandomFields();

void SetListFields(const BroadcastList& list);

// In place of SetRecipientFields() for a member: the parts of the name as the
// member has them, rather than as they would be taken out of a To line.
void SetMemberFields(const CMember& member, NameCase nameCase);

// Every defined slot among the wanted ones.
void SetCustomFields(const CCustomFields& fields, const CMember& member, SlotMask wanted = AllSlots);

// First, middle and last name joined; the name column when all are empty.
std::string MemberFullName(const CMember& member);

#endif  // LISTHAVEN_ENGINE_MESSAGEFIELDS_H
