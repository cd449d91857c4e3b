#include "engine/rules/rulebuilder.h"

#include <algorithm>

#include "engine/messagetemplate.h"
#include "engine/rules/rulestore.h"
#include "engine/rules/standardtexts.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr const char* DisplayNameReference = "$(List-Display-Name)";
constexpr const char* ListReference = "$(List-Email)";
constexpr const char* CommandReference = "$(Command-Email)";
constexpr const char* AuthorizedReference = "$(Authorized-Email)";
constexpr const char* PostReference = "$(Post-Email)";

std::string SubjectOf(const CMimeMessage& message) {
    return message.GetRoot() ? message.GetRoot()->GetField("Subject") : std::string();
}

void SetReply(RuleFields& rule, const CMimeMessage& message) {
    rule.reply = static_cast<bool>(message.GetRoot());
    rule.replyMessage = message;
}

}  // namespace

void CRuleBuilder::Reset() {
    m_rules.clear();
    m_removeMatched = false;
    m_addToDigest = true;
    m_tagSubject = false;
    m_usage.clear();
    m_displayName.clear();
    m_listAddress.clear();
    m_commandAddress.clear();
}

// "Help", "Help (1)", "Help (2)".
std::string CRuleBuilder::UniqueName(std::string_view defaultName) const {
    const auto isTaken = [this](std::string_view name) {
        return std::any_of(m_rules.begin(), m_rules.end(),
                           [name](const CMessageRule& rule) { return EqualNoCase(rule.Get().name, name); });
    };
    std::string name(defaultName);
    for (int i = 1; isTaken(name); ++i)
        name = FormatText("%s (%i)", std::string(defaultName).c_str(), i);
    return name;
}

CMessageRule& CRuleBuilder::Begin(std::string_view defaultName) {
    CMessageRule rule;
    rule.Edit().name = UniqueName(defaultName);
    rule.Edit().stopProcessing = true;
    rule.Edit().removeFromServer = m_removeMatched;
    return m_rules.emplace_back(std::move(rule));
}

void CRuleBuilder::SetCommand(RuleFields& rule, std::string_view address, std::string_view command,
                              const CMimeMessage& reply) {
    rule.checkSubject = !command.empty();
    if (rule.checkSubject) {
        rule.subjectWords.emplace_back(command);
        rule.subjectOptions.all = true;
        rule.subjectOptions.only = true;
    }
    SetReply(rule, reply);
    rule.checkTo = true;
    rule.toAddresses.emplace_back(address);
}

void CRuleBuilder::AddUsage(const char* format, std::string_view address, std::string_view command,
                            std::string_view subject) {
    m_usage +=
        FormatText(format, std::string(address).c_str(), std::string(command).c_str(), std::string(subject).c_str());
}

std::string CRuleBuilder::ListSender() const {
    return FormatText("%s <%s>", m_displayName.c_str(), m_listAddress.c_str());
}

// The reply is marked to be signed, which makes the reply to it a confirmation.
void CRuleBuilder::AddSubscribeStep1(const CMimeMessage& confirmationRequest, std::string_view command) {
    CMimeMessage request = confirmationRequest.Clone();
    if (request.GetRoot()) request.GetRoot()->SetField(ControlHeader::ShouldSign, "YES");
    SetCommand(Begin("Subscribe [Step 1]").Edit(), m_commandAddress, command, request);
    AddUsage("To subscribe, send a message to %s containing \"%s\" in subject and reply to the confirmation message.\n",
             m_commandAddress, command);
}

void CRuleBuilder::AddSubscribeStep2(const CMimeMessage& confirmationRequest, const CMimeMessage& welcome) {
    RuleFields& rule = Begin("Subscribe [Step2]").Edit();
    SetReply(rule, welcome);
    rule.checkTo = true;
    rule.toAddresses.push_back(m_commandAddress);
    rule.checkSubject = true;
    rule.subjectWords.push_back(SubjectOf(confirmationRequest));
    rule.subjectOptions.all = true;
    rule.replyToSigned = true;
    rule.addSender = true;
}

void CRuleBuilder::AddUnsubscribe(const CMimeMessage& goodbye, std::string_view command) {
    RuleFields& rule = Begin("Unsubscribe").Edit();
    SetCommand(rule, m_commandAddress, command, goodbye);
    rule.removeSender = true;
    AddUsage("To unsubscribe, send a message to %s containing \"%s\" in subject.\n", m_commandAddress, command);
}

void CRuleBuilder::AddDigestOn(const CMimeMessage& reply, std::string_view command) {
    RuleFields& rule = Begin("Digest mode on").Edit();
    SetCommand(rule, m_commandAddress, command, reply);
    rule.changeDigestMode = true;
    rule.digestMode = DigestModeOn;
    AddUsage("To turn on digest mode, send a message to %s containing \"%s\" in subject.\n", m_commandAddress, command);
}

void CRuleBuilder::AddDigestOff(const CMimeMessage& reply, std::string_view command) {
    RuleFields& rule = Begin("Digest mode off").Edit();
    SetCommand(rule, m_commandAddress, command, reply);
    rule.changeDigestMode = true;
    rule.digestMode = DigestModeOff;
    AddUsage("To turn digest mode off, send a message to %s containing \"%s\" in subject.\n", m_commandAddress,
             command);
}

void CRuleBuilder::AddHelp(const CMimeMessage& help, std::string_view command) {
    SetCommand(Begin("Help").Edit(), m_commandAddress, command, help);
    AddUsage("To get help, send a message to %s containing \"%s\" in subject.\n", m_commandAddress, command);
}

// To the members who want each message; the others get the digest.
void CRuleBuilder::SetForward(RuleFields& rule, const CMimeMessage& invalidFormatReply) {
    rule.checkTo = true;
    rule.checkFrom = true;
    rule.forward = true;
    rule.forwardMembers = {true, true, false};
    rule.fromOverride.text = ListSender();
    rule.replyToOverride = {true, ListSender()};
    rule.toOverride.text = ListSender();
    rule.addToDigest = m_addToDigest;
    rule.subjectTag = m_tagSubject;
    rule.subjectTagText = "[$(List-Name)]";
    rule.invalidFormatReply = invalidFormatReply;
}

void CRuleBuilder::AddBroadcast(const CMimeMessage& invalidFormatReply) {
    RuleFields& rule = Begin("Broadcast list message").Edit();
    SetForward(rule, invalidFormatReply);
    rule.toAddresses.push_back(m_listAddress);
    rule.fromOptions.members = {true, true, true};
    rule.toOverride.on = true;
    AddUsage(
        "To send a message to all subscribers, send it to %s (NOTE: you must be a subscriber to be able to that).\n",
        m_listAddress, {});
}

void CRuleBuilder::AddAuthorizedBroadcast(const CMimeMessage& invalidFormatReply) {
    RuleFields& rule = Begin("Authorized broadcast").Edit();
    SetForward(rule, invalidFormatReply);
    rule.toAddresses.emplace_back(PostReference);
    rule.fromAddresses.emplace_back(AuthorizedReference);
    rule.fromOverride.on = true;
}

void CRuleBuilder::AddAutoresponse(const CMimeMessage& response, std::string_view keyword) {
    const std::string subject = SubjectOf(response);
    SetCommand(Begin(subject).Edit(), m_listAddress, keyword, response);
    AddUsage("Send a message to %s with \"%s\" in subject to receive message \"%s\".\n", m_listAddress, keyword,
             subject);
}

void CRuleBuilder::AddBounceMessages(const CMimeMessage& reply) {
    RuleFields& rule = Begin("Bounce messages").Edit();
    rule.checkTo = true;
    rule.toAddresses.push_back(m_listAddress);
    SetReply(rule, reply);
}

void CRuleBuilder::AddBounceCommandMessages(const CMimeMessage& reply) {
    RuleFields& rule = Begin("Bounce command messages").Edit();
    rule.checkTo = true;
    rule.toAddresses.push_back(m_commandAddress);
    SetReply(rule, reply);
}

void CRuleBuilder::AddHandleBounces(int mode) {
    if (mode != IgnoreBounces && mode != RemoveBouncing && mode != RemoveHardBouncing) {
        ThrowInternalError("Shared/Engine/rulebuilder", __LINE__, InternalErrorKind::InvalidArguments);
    }
    RuleFields& rule = Begin("Handle bounces").Edit();
    rule.checkBounce = true;
    rule.bounceKind = mode == RemoveBouncing ? RuleBounceKind::Any : RuleBounceKind::Hard;
    rule.removeSender = mode != IgnoreBounces;
}

void CRuleBuilder::AddRemoveFromServer() {
    Begin("Remove from server").Edit().removeFromServer = true;
}

void CRuleBuilder::WriteTo(CRuleStore& store) {
    store.Append(m_rules);
}

void BuildStandardRules(CRuleBuilder& builder, ListKind kind, bool leavesCopies, bool removesMatched) {
    const CMimeMessage request = MakeStandardMessage(StandardText::ConfirmationRequest);
    builder.Reset();
    builder.SetDisplayName(DisplayNameReference);
    builder.SetListAddress(ListReference);
    builder.SetCommandAddress(CommandReference);
    builder.SetRemoveMatched(!leavesCopies || removesMatched);
    builder.SetTagSubject(kind == ListKind::Discussion);
    builder.AddHandleBounces(CRuleBuilder::RemoveHardBouncing);
    if (kind == ListKind::Autoresponder) {
        builder.AddAutoresponse(MakeStandardMessage(StandardText::SampleAnswer), {});
    } else {
        builder.AddSubscribeStep1(request);
        builder.AddSubscribeStep2(request, MakeStandardMessage(StandardText::Welcome));
        builder.AddUnsubscribe(MakeStandardMessage(StandardText::Goodbye));
    }
    if (kind == ListKind::Discussion) {
        builder.AddDigestOn(MakeStandardMessage(StandardText::DigestOn));
        builder.AddDigestOff(MakeStandardMessage(StandardText::DigestOff));
        builder.AddHelp(MakeStandardMessage(StandardText::Help));
        builder.AddBroadcast(MakeStandardMessage(StandardText::InvalidFormat));
        builder.AddBounceMessages(MakeStandardMessage(StandardText::MembersOnly));
    }
    if (kind == ListKind::Announcement) {
        builder.AddHelp(MakeStandardMessage(StandardText::Help));
        builder.AddAuthorizedBroadcast(MakeStandardMessage(StandardText::InvalidFormat));
        builder.AddBounceCommandMessages(MakeStandardMessage(StandardText::OwnerOnly));
    }
    if (!leavesCopies) builder.AddRemoveFromServer();
}
