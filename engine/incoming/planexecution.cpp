#include "engine/incoming/planexecution.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "engine/catalogue.h"
#include "engine/datafields.h"
#include "engine/eventlog.h"
#include "engine/incoming/digests.h"
#include "engine/incoming/forwarding.h"
#include "engine/incoming/memberchanges.h"
#include "engine/incoming/membermessage.h"
#include "engine/incoming/moderation.h"
#include "engine/incoming/toolargereply.h"
#include "engine/listaccount.h"
#include "engine/messagetemplate.h"
#include "mime/mailbox.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

[[noreturn]] void ThrowLastError() {
    throw CLhvException(DescribeLastError());
}

// Each address once; what is no address gets a log line.
std::vector<std::string> ExpandAddresses(const std::vector<std::string>& entries) {
    std::vector<std::string> addresses;
    for (std::string entry : entries) {
        ExpandDataFields(&entry, false);
        for (CMailbox& mailbox : ParseMailboxes(entry)) {
            std::string reason;
            if (!IsPlausibleAddress(mailbox.address, &reason)) {
                Log(LogWarning, "\"%s\" gets nothing: %s", mailbox.address.c_str(), reason.c_str());
                continue;
            }
            const auto isIt = [&](const std::string& other) { return EqualNoCase(other, mailbox.address); };
            if (std::none_of(addresses.begin(), addresses.end(), isIt)) addresses.push_back(std::move(mailbox.address));
        }
    }
    return addresses;
}

bool ModesOf(const RuleMembers& members, BroadcastModes& modes) {
    modes.regular = members.subscribers && members.regular;
    modes.both = modes.regular;
    modes.digest = members.subscribers && members.digestOnly;
    return modes.regular || modes.digest;
}

std::string OfRule(const RuleFields& rule) {
    return " (rule \"" + rule.name + "\")";
}

}  // namespace

struct CPlanExecution::CStep {
    const CAction& action;
    const CMessageRule* rule;  // none for what the list does by itself
    const CIncomingMessage& message;
    CMessageEffects& effects;

    const RuleFields& Rule() const {
        if (rule == nullptr) throw CLhvException("An action without a rule was planned.");
        return rule->Get();
    }
};

CPlanExecution::CPlanExecution(CListView& view)
    : m_view(view), m_answers(view.GetList()), m_queue(GetAccountRoot(view.GetList().number)) {
    CCatalogue& catalogue = GetCatalogue();
    const std::int32_t index = catalogue.FindByNumber(view.GetList().number);
    m_removeMatched =
        catalogue.GetFlag(index, ListColumn::LeaveCopies) && catalogue.GetFlag(index, ListColumn::RemoveMatched);
}

void CPlanExecution::Execute(const CMessagePlan& plan, std::span<const CMessageRule> rules,
                             const CIncomingMessage& message, CMessageEffects& effects) {
    m_removed.clear();
    m_isAnsweredInvalid = false;
    m_whyInvalid.clear();
    effects.notes = plan.notes;
    effects.postedText = plan.postedText;
    effects.isRepeat = plan.isRepeat;
    for (const CAction& action : plan.actions) {
        const CMessageRule* rule = action.rule < rules.size() ? &rules[action.rule] : nullptr;
        Perform({action, rule, message, effects});
    }
    if (message.bounce.IsBounce() && !plan.isLoop && !plan.isHeld)
        AddBounceEffects(message, m_removed, m_view, effects);
    effects.totals.loops = plan.isLoop || (plan.isRepeat && !plan.isHeld) ? 1 : 0;
    effects.removeFromServer = plan.removeFromServer || (plan.matched && m_removeMatched);
}

void CPlanExecution::Perform(const CStep& step) {
    switch (step.action.kind) {
        case ActionKind::Reply:
            return Answer(step, step.Rule().replyMessage);
        case ActionKind::AddMember:
        case ActionKind::RemoveMember:
        case ActionKind::SetMode:
        case ActionKind::UpdateMember:
            return ChangeMember(step);
        case ActionKind::Forward:
            return Forward(step);
        case ActionKind::SendMessage:
            return Send(step);
        case ActionKind::AddToDigest:
            return Collect(step);
        case ActionKind::Hold:
            return Hold(step);
        case ActionKind::RedirectLoop:
            return Redirect(step);
    }
}

// False when there is nothing to send; the reason was logged by who made it.
bool CPlanExecution::Enqueue(const CStep& step, CopyResult result, std::string text) {
    if (result == CopyResult::Failed) ThrowLastError();
    if (result != CopyResult::Made) return false;
    step.effects.messages.push_back({m_queue, std::move(text)});
    return true;
}

void CPlanExecution::Answer(const CStep& step, const CMimeMessage& reply) {
    const RuleFields& rule = step.Rule();
    if (!reply.GetRoot()) {
        Log(LogWarning, "The rule \"%s\" has no message to answer with.", rule.name.c_str());
        return;
    }
    std::string text;
    CopyResult result;
    if (EqualNoCase(step.action.address, step.message.sender.address)) {
        result = m_answers.MakeReply(reply, step.message, m_view.GetTime(), text);
    } else {
        CIncomingMessage original = step.message;  // a form names another address than the one it came from
        CMember member;
        m_view.FindMember(step.action.address, member);
        original.sender = {member.name, step.action.address};
        result = m_answers.MakeReply(reply, original, m_view.GetTime(), text);
    }
    if (!Enqueue(step, result, std::move(text))) return;
    step.effects.answers.push_back({step.rule->GetId(), step.action.address});
    ++step.effects.totals.replies;
    step.effects.Say("answered" + OfRule(rule));
}

void CPlanExecution::AnswerInvalid(const CStep& step, const std::string& reason) {
    const RuleFields& rule = step.Rule();
    if (reason != m_whyInvalid)
        step.effects.Say("not passed on" + OfRule(rule) + ": " + reason.substr(0, reason.find_last_not_of('.') + 1));
    m_whyInvalid = reason;
    if (m_isAnsweredInvalid || step.action.address.empty() || !rule.invalidFormatReply.GetRoot()) return;
    m_isAnsweredInvalid = true;
    if (!m_view.WasAnswered(step.rule->GetId(), step.action.address)) Answer(step, rule.invalidFormatReply);
}

void CPlanExecution::ChangeMember(const CStep& step) {
    const CAction& action = step.action;
    CCycleTotals& totals = step.effects.totals;
    std::string what;
    CMember removed;
    MemberChange change = MemberChange::None;
    switch (action.kind) {
        case ActionKind::AddMember:
            change = AddSubscriber(m_view, m_blocked, action.member, what);
            break;
        case ActionKind::RemoveMember:
            change = RemoveSubscriber(m_view, action.address, removed, what);
            break;
        case ActionKind::SetMode:
            change = SetSubscriberMode(m_view, action.address, action.member.mode, what);
            break;
        default:
            change = UpdateSubscriber(m_view, action.member, what);
    }
    if (change == MemberChange::Added) ++totals.added;
    if (change == MemberChange::Removed) {
        ++totals.removed;
        if (step.message.bounce.IsBounce()) m_removed.insert_or_assign(LowerAscii(removed.address), removed);
    }
    if (!what.empty()) step.effects.Say(what + OfRule(step.Rule()));
}

void CPlanExecution::Forward(const CStep& step) {
    const RuleFields& rule = step.Rule();
    CMimeMessage forwarded;
    std::string invalid;
    if (!MakeForwardMessage(rule, step.message, m_view.GetList(), forwarded, invalid)) {
        if (invalid.empty()) ThrowLastError();
        return AnswerInvalid(step, invalid);
    }
    for (const std::string& address : ExpandAddresses(rule.forwardAddresses)) {
        std::string text;
        const CopyResult result = MakeForwardCopy(forwarded, address, m_view.GetList(), m_view.GetTime(), text);
        if (Enqueue(step, result, std::move(text))) step.effects.Say("forwarded to " + address + OfRule(rule));
    }
    Post(step, forwarded, rule.forwardMembers);
}

// A job that cannot be created would be found out only when the changes are
// carried out: hence the look at the sender here.
void CPlanExecution::Post(const CStep& step, const CMimeMessage& message, const RuleMembers& members) {
    CMessageEffects::CPost post;
    if (!ModesOf(members, post.modes)) return;
    if (!CanSendFrom(message, m_view.GetList())) throw CLhvException("The list has no address to send from.");
    post.text = message.GetDiskText();
    step.effects.posts.push_back(std::move(post));
    ++step.effects.totals.posted;
    step.effects.Say("posted" + OfRule(step.Rule()));
}

void CPlanExecution::Send(const CStep& step) {
    const RuleFields& rule = step.Rule();
    if (!rule.messageToSend.GetRoot()) {
        Log(LogWarning, "The rule \"%s\" has no message to send.", rule.name.c_str());
        return;
    }
    for (const std::string& address : ExpandAddresses(rule.sendToAddresses)) {
        std::string text;
        const CopyResult result =
            m_answers.MakeMessageTo(rule.messageToSend, address, step.message, m_view.GetTime(), text);
        if (Enqueue(step, result, std::move(text))) step.effects.Say("a message goes to " + address + OfRule(rule));
    }
    if (BroadcastModes modes; !ModesOf(rule.sendToMembers, modes)) return;
    Post(step, MakeMessageForMembers(rule.messageToSend, m_view.GetList()), rule.sendToMembers);
}

void CPlanExecution::Collect(const CStep& step) {
    std::string text;
    std::string invalid;
    if (!MakeDigestEntry(step.Rule(), step.message, m_view.GetList(), text, invalid)) {
        if (invalid.empty()) ThrowLastError();
        return AnswerInvalid(step, invalid);
    }
    step.effects.messages.push_back({GetDigestEntryFolder(m_view.GetList().number), std::move(text), true});
    ++step.effects.totals.digested;
    step.effects.Say("kept for the digest" + OfRule(step.Rule()));
}

void CPlanExecution::Hold(const CStep& step) {
    const std::uint32_t list = m_view.GetList().number;
    step.effects.copies.push_back(
        {GetPendingFolder(list), std::string(ControlHeader::Inbox) + ": " + InboxHeaderOf(list) + "\n"});
    ++step.effects.totals.held;
    step.effects.Say("waits for the moderator");
}

void CPlanExecution::Redirect(const CStep& step) {
    std::string text;
    const CopyResult result = m_answers.MakeRedirected(step.message, step.action.address, m_view.GetTime(), text);
    if (Enqueue(step, result, std::move(text))) step.effects.Say("redirected to " + step.action.address);
}

void CPlanExecution::AnswerTooLarge(const CIncomingMessage& message, std::int64_t loopBits, CMessageEffects& effects) {
    constexpr std::uint32_t NoRule = 0;
    const std::string& sender = message.sender.address;
    effects.Say("too large, " + std::to_string(message.tooLarge) + " bytes");
    std::string whyNot = WhyNotAnswered(message, m_view.GetList());
    if (IsLoop(message, loopBits, m_view.GetList())) whyNot = "it seems to be causing a loop";
    if (m_view.CheckAccess(sender) == Access::Denied) whyNot = "the sender is on the access list as denied";
    if (whyNot.empty() && m_view.WasAnswered(NoRule, sender)) whyNot = "the sender has been answered already";
    if (!whyNot.empty()) return effects.Say("not answered: " + whyNot);
    std::string text;
    const CopyResult result = m_answers.MakeReply(LoadTooLargeReply(), message, m_view.GetTime(), text);
    if (result == CopyResult::Failed) ThrowLastError();
    if (result != CopyResult::Made) return;
    effects.messages.push_back({m_queue, std::move(text)});
    effects.answers.push_back({NoRule, sender});
    ++effects.totals.replies;
    effects.Say("answered");
}
