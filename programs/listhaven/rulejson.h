// rulejson.h - a rule as JSON and back, and its fields by their keys.
//
// Every field has its key (engine/rules/rulefieldnames.h); "bounceKind",
// "digestMode" and "parseFields" come beside those.  Messages are texts with LF
// line ends, or {"base64": ...} when they are not UTF-8.
//
// Errors   CCommandFailure: a key or a value that is none.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_RULEJSON_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_RULEJSON_H

#include <boost/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "engine/customfields.h"
#include "engine/rules/messagerule.h"

boost::json::object RuleAsJson(const RuleFields& rule, const CCustomFields& fields);

// What is missing has its default.  "number", "id" and "fault", as they are
// printed, say nothing of a new rule.
RuleFields RuleFromJson(const boost::json::value& document, const CCustomFields& fields);

// value: yes or no for flags; lists are separated by line ends or else, unless
// they are regular expressions, by commas; messages and parse fields (JSON) are
// the text of a file.  "@FILE" is what the file holds.
void SetRuleField(RuleFields& rule, std::string_view key, const std::string& value, const CCustomFields& fields);

struct RuleFieldText {
    std::string key;
    std::string value;
};
std::vector<RuleFieldText> RuleAsTexts(const RuleFields& rule, const CCustomFields& fields);  // of what is not default

std::string_view BounceKindName(RuleBounceKind kind) noexcept;

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_RULEJSON_H
