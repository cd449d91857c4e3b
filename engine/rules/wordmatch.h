// wordmatch.h - the words and phrases of a rule in a subject or a body.
//
// Words are compared without regard to the case of A-Z, whole, runs of white
// space as one blank; "sub" is not in "subscribe".  Expressions are searched
// for in the text as it is, without regard to case.  Data fields in words are
// expanded, in expressions to what matches their value literally.  Words that
// are empty do not count; a list without words never matches.
//
// A subject that consists of the words alone has no "Re:" before them: a reply
// to a command's confirmation is no second command.
//
// Errors   A bad or runaway expression is not found (boundedregex.h).
// Threads  One at a time in the process: data fields are shared.

#ifndef LISTHAVEN_ENGINE_RULES_WORDMATCH_H
#define LISTHAVEN_ENGINE_RULES_WORDMATCH_H

#include <string>
#include <string_view>
#include <vector>

#include "engine/rules/messagerule.h"

// why: one sentence for people, in either case.
bool MatchWords(const std::vector<std::string>& words, const RuleWordOptions& options, std::string_view text,
                std::string& why);

// The data fields of an expression: a value stands for itself.
std::string ExpandExpression(const std::string& expression);

#endif  // LISTHAVEN_ENGINE_RULES_WORDMATCH_H
