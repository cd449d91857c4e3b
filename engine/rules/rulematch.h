// rulematch.h - whether a rule applies to a message, and why.
//
// The From condition asks for the sender alone (incomingmessage.h), so that a
// second address in the line opens no door; the To condition for everybody the
// message is addressed to.
//
// Errors   CLhvException from the view.  A regular expression that is none, or
//          that would run away, does not match and gets a log line.
// Threads  One at a time in the process: data fields are shared.

#ifndef LISTHAVEN_ENGINE_RULES_RULEMATCH_H
#define LISTHAVEN_ENGINE_RULES_RULEMATCH_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/broadcast.h"
#include "engine/member.h"
#include "engine/rules/accesslist.h"
#include "engine/rules/incomingmessage.h"
#include "engine/rules/messagerule.h"

// Whether a post with that text was there within the reply interval, or a day.
enum class PostedBefore : std::uint8_t {
    No,
    Posted,
    Held,  // and one more of them waits for the moderator
};

// What rules ask of a list.
class IListView {
public:
    virtual ~IListView() = default;
    virtual const BroadcastList& GetList() const = 0;
    virtual bool IsModerated() const = 0;
    virtual bool FindMember(std::string_view address, CMember& member) = 0;  // with what was changed a moment ago
    virtual Access CheckAccess(std::string_view address) = 0;
    // The subject holds a token for this list and this sender that is not too old.
    virtual bool IsReplyToSigned(const CIncomingMessage& message) = 0;
    // Likewise, for this sender or for one of those the message is addressed to.
    virtual bool IsSigned(const CIncomingMessage& message) = 0;
    // That rule has answered the address within the interval.
    virtual bool WasAnswered(std::uint32_t ruleId, std::string_view address) = 0;
    // key: of sender and text (incoming/postedtext.h).
    virtual PostedBefore WasPosted(std::string_view key) = 0;
};

struct CConditionResult {
    std::string condition;  // "To", "From", "Subject", "Body", "Bounce", "Signed", "Reply to signed"
    bool holds = false;
    std::string why;  // for people
};

struct CRuleResult {
    bool applies = false;
    std::vector<CConditionResult> conditions;  // the enabled ones, all of them
};

bool MatchesBounceKind(RuleBounceKind kind, BounceClass bounceClass) noexcept;

// The data fields of list and message must be set (originalfields.h).
CRuleResult MatchRule(const RuleFields& rule, const CIncomingMessage& message, IListView& list);

#endif  // LISTHAVEN_ENGINE_RULES_RULEMATCH_H
