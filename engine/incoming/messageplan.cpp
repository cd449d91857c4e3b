#include "engine/incoming/messageplan.h"

#include <algorithm>
#include <functional>

#include "engine/datafields.h"
#include "engine/incoming/planperson.h"
#include "engine/incoming/planview.h"
#include "engine/incoming/postedtext.h"
#include "engine/incoming/subjectline.h"
#include "engine/rules/addressmatch.h"
#include "utility/text.h"

namespace {

constexpr std::string_view SignatureStart = "[LHV-";

std::string Quoted(std::string_view text) {
    return "\"" + OneLine(text.substr(0, 200)) + "\"";
}

std::string Expanded(std::string text) {
    ExpandDataFields(&text, false);
    return text;
}

bool WantsSignature(const CMimeMessage& message) {
    return message.GetRoot() && message.GetRoot()->GetField("X-Lhv-Should-Sign") == "YES";
}

bool HasMembers(const RuleMembers& members) noexcept {
    return members.subscribers && (members.regular || members.digestOnly);
}

// Neither a post nor a command.
bool IsReplyToCommands(const CIncomingMessage& message, const BroadcastList& list) {
    if (WithoutReplyMarks(message.subject).size() == Trim(message.subject).size()) return false;
    return std::none_of(message.to.begin(), message.to.end(), [&](const CMailbox& to) {
        return EqualNoCase(to.address, list.address) || EqualNoCase(to.address, list.postAddress);
    });
}

// Nothing but the signature keeps the rule from applying, or the subject as well,
// since the confirmation is another list's.
bool FailsSignature(const CRuleResult& result, const CIncomingMessage& message, const BroadcastList& list) {
    bool isSignature = false;
    for (const CConditionResult& condition : result.conditions) {
        if (condition.holds) continue;
        const bool isSubject = condition.condition == "Subject" && IsReplyToCommands(message, list);
        if (!isSubject && condition.condition != "Reply to signed") return false;
        isSignature = isSignature || !isSubject;
    }
    return isSignature && FindNoCase(message.signedSubject, SignatureStart) != std::string::npos;
}

// One walk over the rules.
class CPlanner {
public:
    CPlanner(std::span<const CMessageRule> rules, const CIncomingMessage& message, IListView& list, CMessagePlan& plan)
        : m_rules(rules), m_message(message), m_view(list), m_plan(plan), m_whyAutomatic(WhyAutomatic(message)) {}

    void Walk() {
        for (std::size_t i = 0; i < m_rules.size(); ++i) {
            if (m_rules[i].Get().enabled && !Visit(i)) return;
        }
    }

private:
    enum class Post { Nothing, Refused, Wanted };

    bool Visit(std::size_t index);  // false ends the walk
    bool EndsEarly(const RuleFields& rule, const CPerson& person);
    bool EndsAsRepeat(const RuleFields& rule);
    Post WhatIsPosted(const RuleFields& rule) const;
    void Perform(const RuleFields& rule, const CPerson& person);
    void ChangeMember(const RuleFields& rule, const CPerson& person);
    void AddMember(const CPerson& person);
    void RemoveMembers(const RuleFields& rule, const CPerson& person);
    void ChangeModes(const RuleFields& rule, const CPerson& person);
    bool VisitConcerned(const RuleFields& rule, const CPerson& person,
                        const std::function<bool(std::string_view address)>& visit) const;
    void Answer(const RuleFields& rule, const CPerson& person);
    void PostMessage(const RuleFields& rule, const CPerson& person);
    void SendFixedMessage(const RuleFields& rule);

    std::string Describe() const;
    void Done(std::string text) { m_step->done.push_back(std::move(text)); }
    void Note(std::string text) { m_plan.notes.push_back(std::move(text)); }
    void RefuseAutomatic(std::string_view what);
    void RemoveFromServer(const RuleFields& rule);
    CAction& Act(ActionKind kind, std::string_view address = {});

    std::span<const CMessageRule> m_rules;
    const CIncomingMessage& m_message;
    CPlanView m_view;
    CMessagePlan& m_plan;
    const std::string m_whyAutomatic;
    CRuleStep* m_step = nullptr;
    bool m_hasNotedAutomatic = false;
};

// The message "Hello" from anna@example.org
std::string CPlanner::Describe() const {
    const std::string& sender = m_message.sender.address;
    return "The message " + Quoted(m_message.subject) + " from " + (sender.empty() ? "nobody" : OneLine(sender));
}

CAction& CPlanner::Act(ActionKind kind, std::string_view address) {
    CAction action;
    action.kind = kind;
    action.rule = m_step->rule;
    action.address = address;
    return m_plan.actions.emplace_back(std::move(action));
}

void CPlanner::RefuseAutomatic(std::string_view what) {
    Done(std::string(what) + ": not for an automatic message (" + m_whyAutomatic + ")");
    if (m_hasNotedAutomatic) return;
    m_hasNotedAutomatic = true;
    Note(Describe() + " is automatic (" + m_whyAutomatic + "). The rule " + Quoted(m_rules[m_step->rule].Get().name) +
         " neither answers nor posts it.");
}

void CPlanner::RemoveFromServer(const RuleFields& rule) {
    if (!rule.removeFromServer) return;
    m_plan.removeFromServer = true;
    Done("removes the message from the server");
}

bool CPlanner::Visit(std::size_t index) {
    const RuleFields& rule = m_rules[index].Get();
    m_plan.steps.push_back({index, MatchRule(rule, m_message, m_view), {}});
    m_step = &m_plan.steps.back();
    if (!m_step->result.applies) {
        if (!FailsSignature(m_step->result, m_message, m_view.GetList())) return true;
        Done("the signature is changed, foreign or too old: the message is ignored");
        Note(Describe() + " has a signature that is changed, foreign or too old. Ignoring the message.");
        RemoveFromServer(rule);
        return false;
    }
    m_plan.matched = true;
    RemoveFromServer(rule);
    const CPerson person = FindPerson(rule, m_message, m_view);
    if (EndsEarly(rule, person)) return false;
    Perform(rule, person);
    if (rule.stopProcessing) Done("stops: no further rule is applied");
    return !rule.stopProcessing;
}

// A sender who is denied, or a message that waits for the moderator.
bool CPlanner::EndsEarly(const RuleFields& rule, const CPerson& person) {
    const Post post = WhatIsPosted(rule);
    const bool concernsAccess =
        rule.addSender || post != Post::Nothing || (rule.reply && WantsSignature(rule.replyMessage));
    for (const std::string& address : {m_message.sender.address, person.member.address}) {
        if (!concernsAccess || address.empty() || m_view.CheckAccess(address) != Access::Denied) continue;
        Done("does nothing: the access list denies " + OneLine(address));
        Note(Describe() + " is ignored: the access list denies " + OneLine(address) + ".");
        return true;
    }
    if (post != Post::Wanted) return false;
    if (!m_view.IsModerated() || m_message.isAccepted) return EndsAsRepeat(rule);
    m_plan.actions.clear();
    Act(ActionKind::Hold);
    m_plan.isHeld = true;
    Done("holds the message for the moderator; nothing else is done before he accepts it");
    return true;
}

// Nobody says the same twice a day, but an automatic reply that bears no mark:
// passed on, it would come back to its program for ever.
bool CPlanner::EndsAsRepeat(const RuleFields& rule) {
    const std::string& sender = m_message.sender.address;
    const bool isForMembers = rule.addToDigest || (rule.forward && HasMembers(rule.forwardMembers));
    CMember member;
    if (!isForMembers || !m_view.FindMember(sender, member)) return false;
    m_plan.postedText = KeyOfPostedText(m_message);
    if (m_plan.postedText.empty() || m_message.isAccepted) return false;
    const PostedBefore before = m_view.WasPosted(m_plan.postedText);
    if (before == PostedBefore::No) return false;
    m_plan.isRepeat = true;
    const bool isFirst = before == PostedBefore::Posted;
    if (isFirst) {
        m_plan.actions.clear();
        Act(ActionKind::Hold);
        m_plan.isHeld = true;
    }
    Done(isFirst ? "holds the message for the moderator: its text is that of an earlier post"
                 : "does nothing: its text is that of an earlier post, and one like it waits for the moderator");
    Note(Describe() +
         " has the same text as a message he posted a short time ago; it may be an automatic reply. It is " +
         (isFirst ? "held for the moderator." : "not posted; one like it is held for the moderator already."));
    return true;
}

CPlanner::Post CPlanner::WhatIsPosted(const RuleFields& rule) const {
    const bool forwards = rule.forward && (!rule.forwardAddresses.empty() || HasMembers(rule.forwardMembers));
    if (!forwards && !rule.addToDigest) return Post::Nothing;
    if (m_whyAutomatic.empty()) return Post::Wanted;
    const bool isGenerated = m_message.bounce.kind == NoticeKind::Ordinary && m_message.automatic != Automatic::Reply;
    return isGenerated && ListsItsSenders(rule) ? Post::Wanted : Post::Refused;
}

void CPlanner::Perform(const RuleFields& rule, const CPerson& person) {
    const std::size_t before = m_step->done.size();
    ChangeMember(rule, person);
    Answer(rule, person);
    PostMessage(rule, person);
    SendFixedMessage(rule);
    if (m_step->done.size() == before) Done("does nothing else with the message");
}

void CPlanner::ChangeMember(const RuleFields& rule, const CPerson& person) {
    if (!person.remark.empty()) Done(person.remark);
    if (rule.removeSender) RemoveMembers(rule, person);
    if (!m_whyAutomatic.empty()) {
        if (rule.addSender) RefuseAutomatic("adds nobody");
        if (rule.changeDigestMode && m_message.bounce.IsBounce())
            ChangeModes(rule, person);
        else if (rule.changeDigestMode)
            RefuseAutomatic("changes no mode");
        return;
    }
    CMember member;
    const std::string shown = OneLine(person.member.address);
    if (rule.addSender) {
        AddMember(person);
    } else if (person.hasParsed && !rule.removeSender) {
        if (m_view.FindMember(person.member.address, member)) {
            Act(ActionKind::UpdateMember, person.member.address).member = person.member;
            m_view.Put(person.member);
            Done("changes the data of " + shown);
        } else {
            Done("changes no data: " + shown + " is no member");
        }
    }
    if (rule.changeDigestMode) ChangeModes(rule, person);
}

// A bounce concerns the members who bounced, any other message its sender.
// visit says whether the address is a member's; true when one was.
bool CPlanner::VisitConcerned(const RuleFields& rule, const CPerson& person,
                              const std::function<bool(std::string_view address)>& visit) const {
    if (!m_message.bounce.IsBounce()) return visit(person.member.address);
    bool isAnyone = false;
    for (const CBouncedRecipient& recipient : m_message.bounce.recipients) {
        if (rule.checkBounce && !MatchesBounceKind(rule.bounceKind, recipient.bounceClass)) continue;
        isAnyone = visit(recipient.address) || visit(recipient.original) || isAnyone;
    }
    return isAnyone;
}

void CPlanner::ChangeModes(const RuleFields& rule, const CPerson& person) {
    const DeliveryMode mode = rule.digestMode == DigestModeOn ? DeliveryMode::Digest : DeliveryMode::Regular;
    const bool isBounce = m_message.bounce.IsBounce();
    const auto change = [&](std::string_view address) {
        CMember member;
        if (address.empty() || !m_view.FindMember(address, member)) return false;
        if (isBounce && member.mode == mode) return true;  // a notice can name him many times
        member.mode = mode;
        Act(ActionKind::SetMode, member.address).member = member;
        m_view.PutWhole(member);
        Done("sets the mode of " + OneLine(member.address) + " to " + std::string(DeliveryModeName(mode)));
        return true;
    };
    if (VisitConcerned(rule, person, change)) return;
    if (isBounce) return Done("changes no mode: no bounced address is a member's");
    const std::string why = "changes no mode: " + OneLine(person.member.address) + " is no member";
    Done(why);
    Note(Describe() + " " + why + ".");
}

void CPlanner::AddMember(const CPerson& person) {
    CMember member = person.member;
    std::string reason;
    if (IsOneOf(OwnAddresses(m_view.GetList()), member.address)) reason = "The address is the list's own.";
    if (!reason.empty() || !PrepareMember(member, reason)) {
        Done("adds nobody: " + reason);
        Note(Describe() + " adds nobody: " + reason);
        return;
    }
    CMember before;
    const bool isMember = m_view.FindMember(member.address, before);
    Act(ActionKind::AddMember, member.address).member = member;
    m_view.Put(member);
    if (!isMember)
        Done("adds " + member.address + " to the members");
    else
        Done(member.address + " is a member already" + (before.IsInactive() ? ", and is active again" : ""));
}

void CPlanner::RemoveMembers(const RuleFields& rule, const CPerson& person) {
    const auto remove = [&](std::string_view address) {
        CMember member;
        if (address.empty() || !m_view.FindMember(address, member)) return false;
        Act(ActionKind::RemoveMember, member.address);
        m_view.Remove(member.address);
        Done("removes " + OneLine(member.address) + " from the members");
        return true;
    };
    if (VisitConcerned(rule, person, remove)) return;
    Done(m_message.bounce.IsBounce() ? "removes nobody: no bounced address is a member's"
                                     : "removes nobody: " + OneLine(person.member.address) + " is no member");
}

void CPlanner::Answer(const RuleFields& rule, const CPerson& person) {
    if (!rule.reply) return;
    if (!rule.replyMessage.GetRoot()) {
        Done("does not answer: the rule has no reply message");
        return;
    }
    if (m_message.sender.address.empty()) {
        Done("does not answer: the sender's address is empty");
        Note("Failed to create reply to the message " + Quoted(m_message.subject) +
             " because sender's address is empty (may be a delivery notification).");
        return;
    }
    if (!m_whyAutomatic.empty()) {
        RefuseAutomatic("does not answer");
        return;
    }
    CMember member;
    if (rule.changeDigestMode && !m_view.FindMember(person.member.address, member)) {
        Done("does not answer: the answer would say that the mode was changed");
        return;
    }
    const std::string shown = OneLine(person.member.address);
    std::string why = WhyNotAnswered(m_message, m_view.GetList());
    if (why.empty() && !IsPlausibleAddress(person.member.address)) why = "no answer can reach \"" + shown + "\"";
    if (why.empty() && IsOneOf(OwnAddresses(m_view.GetList()), person.member.address))
        why = shown + " is the list's own address";
    if (!why.empty()) {
        Done("does not answer: " + why);
        Note(Describe() + " is not answered: " + why + ".");
        return;
    }
    if (m_view.WasAnswered(m_rules[m_step->rule].GetId(), person.member.address)) {
        Done("does not answer: this rule has answered " + shown + " within the reply interval");
        Note(Describe() + " is not answered: the rule " + Quoted(rule.name) + " has answered " + shown + " before.");
        return;
    }
    Act(ActionKind::Reply, person.member.address);
    Done("answers " + shown + " with " + Quoted(Expanded(rule.replyMessage.GetRoot()->GetField("Subject"))) +
         (WantsSignature(rule.replyMessage) ? ", signed" : ""));
}

void CPlanner::PostMessage(const RuleFields& rule, const CPerson& person) {
    const Post post = WhatIsPosted(rule);
    if (post == Post::Nothing) return;
    if (post == Post::Refused) {
        RefuseAutomatic("does not post");
        return;
    }
    std::string answered;
    if (rule.invalidFormatReply.GetRoot() && WhyNotAnswered(m_message, m_view.GetList()).empty() &&
        !m_view.WasAnswered(m_rules[m_step->rule].GetId(), m_message.sender.address))
        answered = person.member.address;
    if (rule.forward && (!rule.forwardAddresses.empty() || HasMembers(rule.forwardMembers))) {
        Act(ActionKind::Forward, answered);
        std::string to = Expanded(Join(rule.forwardAddresses, ", "));
        if (HasMembers(rule.forwardMembers))
            to += (to.empty() ? "the " : " and the ") + DescribeMembers(rule.forwardMembers);
        Done("forwards the message to " + to);
    }
    if (rule.addToDigest) {
        Act(ActionKind::AddToDigest, answered);
        Done("adds the message to the digest");
    }
}

// For a bounce only to fixed addresses, by a rule for bounces: these messages
// have no sender to whom a further bounce could go.
void CPlanner::SendFixedMessage(const RuleFields& rule) {
    if (!rule.sendMessage) return;
    if (!rule.messageToSend.GetRoot()) {
        Done("sends nothing: the rule has no message to send");
        return;
    }
    const bool mayNotify = m_message.bounce.IsBounce() && rule.checkBounce && !HasMembers(rule.sendToMembers);
    if (!m_whyAutomatic.empty() && !mayNotify) {
        RefuseAutomatic("sends no message");
        return;
    }
    std::string to = Expanded(Join(rule.sendToAddresses, ", "));
    if (HasMembers(rule.sendToMembers)) to += (to.empty() ? "the " : " and the ") + DescribeMembers(rule.sendToMembers);
    if (to.empty()) {
        Done("sends nothing: the rule names no recipient");
        return;
    }
    Act(ActionKind::SendMessage);
    Done("sends " + Quoted(Expanded(rule.messageToSend.GetRoot()->GetField("Subject"))) + " to " + to);
}

void PlanLoop(const CIncomingMessage& message, const LoopOptions& loops, const BroadcastList& list,
              CMessagePlan& plan) {
    plan.isLoop = true;
    plan.notes.push_back("The message " + Quoted(message.subject) +
                         " seems to be causing a loop. Ignoring the message.");
    if (loops.redirect && !loops.redirectAddress.empty()) {
        const std::string address(Trim(loops.redirectAddress));
        const std::vector<std::string> own = OwnAddresses(list);
        const std::vector<CMailbox> resent = ParseMailboxes(message.message.GetRoot()->GetField("Resent-From"));
        if (IsOneOf(own, address) || (!resent.empty() && IsOneOf(own, resent.front().address))) {
            plan.notes.push_back("The message was redirected before, or would come back. It is not redirected.");
        } else {
            CAction action;
            action.kind = ActionKind::RedirectLoop;
            action.address = address;
            plan.actions.push_back(std::move(action));
            plan.notes.push_back("Redirecting the message to " + OneLine(address) + ".");
        }
    }
    if (!loops.remove) return;
    plan.removeFromServer = true;
    plan.notes.push_back("Marking the message that is causing the loop for removal from the POP3 server.");
}

}  // namespace

CMessagePlan PlanMessage(std::span<const CMessageRule> rules, const CIncomingMessage& message, const LoopOptions& loops,
                         IListView& list) {
    CMessagePlan plan;
    if (IsLoop(message, loops.bits, list.GetList()))
        PlanLoop(message, loops, list.GetList(), plan);
    else
        CPlanner(rules, message, list, plan).Walk();
    return plan;
}
