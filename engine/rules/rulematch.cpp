#include "engine/rules/rulematch.h"

#include "engine/rules/addressmatch.h"
#include "engine/rules/wordmatch.h"
#include "utility/text.h"

namespace {

std::string_view KindName(RuleBounceKind kind) noexcept {
    switch (kind) {
        case RuleBounceKind::Soft:
            return "soft";
        case RuleBounceKind::Hard:
            return "hard";
        case RuleBounceKind::Blocked:
            return "blocked";
        case RuleBounceKind::Any:
            return "any";
    }
    return "";
}

bool MatchBounce(RuleBounceKind kind, const CBounceReport& bounce, std::string& why) {
    if (!bounce.IsBounce()) {
        why = "it is no bounce";
        return false;
    }
    for (const CBouncedRecipient& recipient : bounce.recipients) {
        if (!MatchesBounceKind(kind, recipient.bounceClass)) continue;
        why = "a " + std::string(BounceClassName(recipient.bounceClass)) + " bounce of " +
              (recipient.address.empty() ? "an address that it does not name" : OneLine(recipient.address));
        if (!recipient.evidence.empty()) why += " (" + OneLine(recipient.evidence) + ")";
        return true;
    }
    why = "it is a " + std::string(BounceClassName(bounce.GetClass())) + " bounce, the rule is for " +
          std::string(KindName(kind)) + " ones";
    return false;
}

bool MatchSigned(bool isReply, const CIncomingMessage& message, IListView& list, std::string& why) {
    if (isReply ? list.IsReplyToSigned(message) : list.IsSigned(message)) {
        why = "its subject holds a valid signature";
        return true;
    }
    why = FindNoCase(message.signedSubject, "[LHV-") == std::string::npos
              ? "its subject holds no signature"
              : "the signature in its subject is not this list's for the sender, or too old";
    return false;
}

class CMatching {
public:
    explicit CMatching(CRuleResult& result) : m_result(result) { m_result.applies = true; }

    // check fills in the explanation and tells whether the condition holds.
    template <class Check>
    void Condition(bool isEnabled, std::string_view name, const Check& check) {
        if (!isEnabled) return;
        CConditionResult condition;
        condition.condition = name;
        condition.holds = check(condition.why);
        m_result.applies = m_result.applies && condition.holds;
        m_result.conditions.push_back(std::move(condition));
    }

private:
    CRuleResult& m_result;
};

}  // namespace

bool MatchesBounceKind(RuleBounceKind kind, BounceClass bounceClass) noexcept {
    switch (kind) {
        case RuleBounceKind::Any:
            return bounceClass != BounceClass::None;
        case RuleBounceKind::Soft:
            return bounceClass == BounceClass::Soft;
        case RuleBounceKind::Hard:
            return bounceClass == BounceClass::Hard;
        case RuleBounceKind::Blocked:
            return bounceClass == BounceClass::Blocked;
    }
    return false;
}

CRuleResult MatchRule(const RuleFields& rule, const CIncomingMessage& message, IListView& list) {
    CRuleResult result;
    CMatching matching(result);
    matching.Condition(rule.checkBounce, "Bounce",
                       [&](std::string& why) { return MatchBounce(rule.bounceKind, message.bounce, why); });
    matching.Condition(rule.checkTo, "To", [&](std::string& why) {
        return MatchAddresses(rule.toAddresses, rule.toOptions, message.to, AllowedSenders::NoMembers, list, why);
    });
    matching.Condition(rule.checkFrom, "From", [&](std::string& why) {
        const std::span<const CMailbox> sender(&message.sender, message.sender.address.empty() ? 0 : 1);
        return MatchAddresses(rule.fromAddresses, rule.fromOptions, sender, AllowedSenders::CountAsMembers, list, why);
    });
    matching.Condition(rule.checkSubject, "Subject", [&](std::string& why) {
        return MatchWords(rule.subjectWords, rule.subjectOptions, message.subject, why);
    });
    matching.Condition(rule.checkBody, "Body", [&](std::string& why) {
        return MatchWords(rule.bodyWords, rule.bodyOptions, message.GetBodyText(), why);
    });
    matching.Condition(rule.replyToSigned, "Reply to signed",
                       [&](std::string& why) { return MatchSigned(true, message, list, why); });
    matching.Condition(rule.signedMessage, "Signed",
                       [&](std::string& why) { return MatchSigned(false, message, list, why); });
    return result;
}
