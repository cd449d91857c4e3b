// planperson.h - whom the actions of a rule are about.
//
// Errors   CLhvException from the store of custom fields.
// Threads  One at a time in the process: data fields are shared.

#ifndef LISTHAVEN_ENGINE_INCOMING_PLANPERSON_H
#define LISTHAVEN_ENGINE_INCOMING_PLANPERSON_H

#include <string>

#include "engine/member.h"
#include "engine/rules/rulematch.h"

struct CPerson {
    CMember member;          // the sender, or whom a web form names; with what the parse fields found
    bool hasParsed = false;  // they found something
    std::string remark;      // for people; "" when there is nothing to say
};

// The From condition lists addresses and admits no members: whoever forges one
// of them must know it first.
bool ListsItsSenders(const RuleFields& rule) noexcept;

CPerson FindPerson(const RuleFields& rule, const CIncomingMessage& message, IListView& list);

std::string DescribeMembers(const RuleMembers& members);  // "regular members"

#endif  // LISTHAVEN_ENGINE_INCOMING_PLANPERSON_H
