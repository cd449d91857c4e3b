// rulefieldnames.h - every field of a rule with its key and where it is stored.
//
// A walk calls visit(key, place, field) for each field of one type; the fields
// of a const rule are const.  The keys are those of the commands and of JSON.

#ifndef LISTHAVEN_ENGINE_RULES_RULEFIELDNAMES_H
#define LISTHAVEN_ENGINE_RULES_RULEFIELDNAMES_H

#include "engine/rulecolumns.h"
#include "engine/rules/messagerule.h"

// In the order in which they are removed.
enum class RuleFile : std::uint8_t {
    SubjectWords,
    BodyWords,
    ToAddresses,
    FromAddresses,
    ForwardAddresses,
    Reply,
    InvalidFormatReply,
    Footer,
    Header,
    MessageToSend,
    SendToAddresses,
    ParseFields,
    Count
};

template <class Fields, class Visit>
void VisitRuleFlags(Fields& rule, const Visit& visit) {
    visit("enabled", RuleColumn::Enabled, rule.enabled);

    visit("checkFrom", RuleColumn::CheckFrom, rule.checkFrom);
    visit("fromRegex", RuleColumn::FromRegex, rule.fromOptions.regex);
    visit("fromSubscribers", RuleColumn::FromSubscribers, rule.fromOptions.members.subscribers);
    visit("fromRegular", RuleColumn::FromRegular, rule.fromOptions.members.regular);
    visit("fromDigestOnly", RuleColumn::FromDigestOnly, rule.fromOptions.members.digestOnly);
    visit("checkTo", RuleColumn::CheckTo, rule.checkTo);
    visit("toRegex", RuleColumn::ToRegex, rule.toOptions.regex);
    visit("toSubscribers", RuleColumn::ToSubscribers, rule.toOptions.members.subscribers);
    visit("toRegular", RuleColumn::ToRegular, rule.toOptions.members.regular);
    visit("toDigestOnly", RuleColumn::ToDigestOnly, rule.toOptions.members.digestOnly);
    visit("checkSubject", RuleColumn::CheckSubject, rule.checkSubject);
    visit("subjectAll", RuleColumn::SubjectAll, rule.subjectOptions.all);
    visit("subjectOnly", RuleColumn::SubjectOnly, rule.subjectOptions.only);
    visit("subjectRegex", RuleColumn::SubjectRegex, rule.subjectOptions.regex);
    visit("checkBody", RuleColumn::CheckBody, rule.checkBody);
    visit("bodyAll", RuleColumn::BodyAll, rule.bodyOptions.all);
    visit("bodyOnly", RuleColumn::BodyOnly, rule.bodyOptions.only);
    visit("bodyRegex", RuleColumn::BodyRegex, rule.bodyOptions.regex);
    visit("replyToSigned", RuleColumn::ReplyToSigned, rule.replyToSigned);
    visit("signedMessage", RuleColumn::SignedMessage, rule.signedMessage);
    visit("checkBounce", RuleColumn::CheckBounce, rule.checkBounce);

    visit("stopProcessing", RuleColumn::StopProcessing, rule.stopProcessing);
    visit("removeFromServer", RuleColumn::RemoveFromServer, rule.removeFromServer);
    visit("addSender", RuleColumn::AddSender, rule.addSender);
    visit("removeSender", RuleColumn::RemoveSender, rule.removeSender);
    visit("changeDigestMode", RuleColumn::ChangeDigestMode, rule.changeDigestMode);
    visit("addToDigest", RuleColumn::AddToDigest, rule.addToDigest);
    visit("reply", RuleColumn::Reply, rule.reply);
    visit("sendMessage", RuleColumn::SendMessage, rule.sendMessage);
    visit("sendToSubscribers", RuleColumn::SendToSubscribers, rule.sendToMembers.subscribers);
    visit("sendToRegular", RuleColumn::SendToRegular, rule.sendToMembers.regular);
    visit("sendToDigestOnly", RuleColumn::SendToDigestOnly, rule.sendToMembers.digestOnly);

    visit("forward", RuleColumn::Forward, rule.forward);
    visit("forwardSubscribers", RuleColumn::ForwardSubscribers, rule.forwardMembers.subscribers);
    visit("forwardRegular", RuleColumn::ForwardRegular, rule.forwardMembers.regular);
    visit("forwardDigestOnly", RuleColumn::ForwardDigestOnly, rule.forwardMembers.digestOnly);
    visit("overrideFrom", RuleColumn::OverrideFrom, rule.fromOverride.on);
    visit("overrideReplyTo", RuleColumn::OverrideReplyTo, rule.replyToOverride.on);
    visit("overrideTo", RuleColumn::OverrideTo, rule.toOverride.on);
    visit("overrideSubject", RuleColumn::OverrideSubject, rule.subjectOverride.on);
    visit("overrideReturnPath", RuleColumn::OverrideReturnPath, rule.returnPathOverride.on);
    visit("overrideSender", RuleColumn::OverrideSender, rule.senderOverride.on);
    visit("sign", RuleColumn::Sign, rule.sign);
    visit("plainText", RuleColumn::PlainText, rule.plainText);
    visit("stripAttachments", RuleColumn::StripAttachments, rule.stripAttachments);
    visit("wirelessTrim", RuleColumn::WirelessTrim, rule.wirelessTrim);
    visit("addHeader", RuleColumn::AddHeader, rule.addHeader);
    visit("addFooter", RuleColumn::AddFooter, rule.addFooter);
    visit("tagSubject", RuleColumn::TagSubject, rule.subjectTag);
}

template <class Fields, class Visit>
void VisitRuleTexts(Fields& rule, const Visit& visit) {
    visit("name", RuleColumn::Name, rule.name);
    visit("fromOverride", RuleColumn::FromOverride, rule.fromOverride.text);
    visit("replyToOverride", RuleColumn::ReplyToOverride, rule.replyToOverride.text);
    visit("toOverride", RuleColumn::ToOverride, rule.toOverride.text);
    visit("subjectOverride", RuleColumn::SubjectOverride, rule.subjectOverride.text);
    visit("returnPathOverride", RuleColumn::ReturnPathOverride, rule.returnPathOverride.text);
    visit("senderOverride", RuleColumn::SenderOverride, rule.senderOverride.text);
    visit("subjectTag", RuleColumn::SubjectTag, rule.subjectTagText);
}

template <class Fields, class Visit>
void VisitRuleLists(Fields& rule, const Visit& visit) {
    visit("fromAddresses", RuleFile::FromAddresses, rule.fromAddresses);
    visit("toAddresses", RuleFile::ToAddresses, rule.toAddresses);
    visit("subjectWords", RuleFile::SubjectWords, rule.subjectWords);
    visit("bodyWords", RuleFile::BodyWords, rule.bodyWords);
    visit("forwardAddresses", RuleFile::ForwardAddresses, rule.forwardAddresses);
    visit("sendToAddresses", RuleFile::SendToAddresses, rule.sendToAddresses);
}

template <class Fields, class Visit>
void VisitRuleMessages(Fields& rule, const Visit& visit) {
    visit("replyMessage", RuleFile::Reply, rule.replyMessage);
    visit("invalidFormatReply", RuleFile::InvalidFormatReply, rule.invalidFormatReply);
    visit("footer", RuleFile::Footer, rule.footer);
    visit("header", RuleFile::Header, rule.header);
    visit("messageToSend", RuleFile::MessageToSend, rule.messageToSend);
}

#endif  // LISTHAVEN_ENGINE_RULES_RULEFIELDNAMES_H
