#include "engine/incoming/forwarding.h"

#include "engine/addressline.h"
#include "engine/datafields.h"
#include "engine/incoming/jointexts.h"
#include "engine/incoming/listheaders.h"
#include "engine/incoming/messageids.h"
#include "engine/incoming/messageparts.h"
#include "engine/incoming/originalfields.h"
#include "engine/incoming/postreferences.h"
#include "engine/messagefields.h"
#include "engine/messagetemplate.h"
#include "engine/utf8text.h"
#include "senddaemon/wireheader.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t UniqueSubjects = 8;   // bit of the loop protection
constexpr std::size_t LongestSubject = 900;  // bytes

void RemoveAll(CMimeHeader& header, const char* name) {
    while (header.HasField(name))
        header.RemoveField(name);
}

ContentOptions OptionsOf(const RuleFields& rule) {
    return {rule.plainText, rule.stripAttachments, rule.wirelessTrim};
}

// The message read anew, what is signed kept as it is, unless it has to be taken apart anyway.
CMimeMessage LoadContent(const CIncomingMessage& original, const ContentOptions& options) {
    const auto sealed = options.TakesApart() ? CMimeSource::Sealed::Split : CMimeSource::Sealed::Kept;
    CMimeMessage message;
    if (LoadIncoming(original, sealed, message)) return message;
    return original.message.Clone();
}

bool PrepareContent(const RuleFields& rule, const CIncomingMessage& original, CMimeMessage& message,
                    std::string& invalid) {
    invalid.clear();
    if (original.tooLarge != 0) {
        invalid = "The message is larger than this list takes.";
    } else {
        message = LoadContent(original, OptionsOf(rule));
        if (message.GetRoot()) RemoveForeignFields(message.GetRoot()->GetHeader());
        if (HasUsableFormat(message, invalid)) ApplyContentOptions(message, OptionsOf(rule), invalid);
    }
    if (invalid.empty()) return true;
    SetLastErrorText(invalid);
    return false;
}

void StoreAddressesApart(CMimeHeader& header, const char* name) {
    const std::string_view stored = header.FindStored(name);
    if (!IsOneWord(stored)) return;
    std::string line;
    for (const CMailbox& mailbox : MailboxesInUtf8(stored))
        line.append(line.empty() ? "" : ", ").append(StoredMailbox(mailbox));
    if (!line.empty()) SetStoredLine(header, name, line);
}

// A post without an address in its From is from who sent it, or from the list.
void CompleteFrom(CMimeHeader& header, const CIncomingMessage& original) {
    for (const char* name : {"From", "Reply-To"})
        StoreAddressesApart(header, name);
    if (!ParseMailboxes(header.FindStored("From")).empty()) return;
    RemoveAll(header, "From");
    if (original.sender.address.empty()) return;
    const CMailbox sender{HeaderLineInUtf8(original.sender.displayName), OneLine(original.sender.address)};
    SetStoredLine(header, "From", StoredMailbox(sender));
}

void SetReferences(CMimeHeader& header) {
    // Each copy gets an identifier of its own; what readers thread by is the post's.
    const std::string references = ReferencesTo(header);
    const std::string answered = FirstMessageId(header.FindStored("In-Reply-To"));
    RemoveAll(header, "References");
    RemoveAll(header, "In-Reply-To");
    RemoveAll(header, "Message-ID");
    header.SetField("In-Reply-To", answered);
    header.SetField("References", references);
}

// Without the identifiers and tokens that this system put there.
void CleanSubject(CMimeHeader& header) {
    const std::string subject = HeaderFieldInUtf8(header, "Subject");
    const std::string plain = PlainSubject(subject);
    if (plain != subject) SetStoredLine(header, "Subject", StoredSubject(plain));
}

void SetSubject(CMimeHeader& header, const RuleFields& rule, const BroadcastList& list) {
    const bool hasId = (list.loopProtection & UniqueSubjects) != 0;
    CleanSubject(header);
    if (!rule.subjectTag && !rule.subjectOverride.on && !hasId) return;
    const std::string own = HeaderFieldInUtf8(header, "Subject");
    std::string subject(CutUtf8(own, LongestSubject));
    if (rule.subjectOverride.on) subject = WithListFields(rule.subjectOverride.text);
    if (rule.subjectTag) subject = TagSubject(subject, WithListFields(rule.subjectTagText));
    if (hasId) subject = WithSubjectId(subject);
    if (rule.subjectOverride.on) {
        header.SetField(ControlHeader::SubjectOverride, subject);
    } else {
        SetStoredLine(header, "Subject", StoredSubject(subject));
    }
}

void SetOverrides(CMimeHeader& header, const RuleFields& rule) {
    const struct {
        const RuleOverride& source;
        const char* header;
    } overrides[] = {{rule.fromOverride, ControlHeader::FromOverride},
                     {rule.replyToOverride, ControlHeader::ReplyToOverride},
                     {rule.toOverride, ControlHeader::ToOverride},
                     {rule.senderOverride, ControlHeader::SenderOverride}};
    for (const auto& one : overrides) {
        if (one.source.on && !Trim(one.source.text).empty())
            header.SetField(one.header, OverrideAddress(one.source.text));
    }
    if (rule.sign) header.SetField(ControlHeader::ShouldSign, "YES");
}

// What the operator's header and footer say in placeholders is a field too.
JoinedText ReadTemplate(bool isWanted, const CMimeMessage& message) {
    if (!isWanted || !message.GetRoot()) return {};
    CMimeMessage own = message.Clone();
    ExpandPlaceholders(own);
    JoinedText text = ReadJoinedText(own);
    text.plain = WithOriginalFields(text.plain, false);
    text.html = WithOriginalFields(text.html, true);
    return text;
}

// Words are stored under one character set, whatever they are in.  What goes out
// within a digest is not looked at again by then.
void UseTrueCharsets(CMimeHeader& header) {
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        const CMimeField field = header.GetStoredField(i);
        const bool isAddress = SendDaemon::IsWireAddressField(field.name);
        if ((!isAddress && !EqualNoCase(field.name, "Subject")) || field.value.find("=?") == std::string::npos)
            continue;
        const std::string value = SendDaemon::UnfoldWireValue(field.value);
        const std::size_t column = field.name.size() + 2;
        SendDaemon::CWireHeaderRules rules{.hasSmtpUtf8 = true};
        header.SetStoredField(i, CrLfToLf(isAddress ? SendDaemon::WireAddresses(value, column, rules)
                                                    : SendDaemon::WireText(value, column)));
    }
}

}  // namespace

bool MakeForwardMessage(const RuleFields& rule, const CIncomingMessage& original, const BroadcastList& list,
                        CMimeMessage& forwarded, std::string& invalid) {
    try {
        if (!PrepareContent(rule, original, forwarded, invalid)) return false;
        const CDataFieldScope scope;
        SetIncomingFields(original, list);
        const CPostReferences references(list.number);
        CMimeHeader& posted = forwarded.GetRoot()->GetHeader();
        for (const char* name : {"CC", "Mime-Version", "X-Mailer"})
            RemoveAll(posted, name);
        CompleteFrom(posted, original);
        SetReferences(posted);
        references.ProtectTexts(forwarded);
        references.ProtectHeader(posted);
        JoinTexts(forwarded, ReadTemplate(rule.addHeader, rule.header), ReadTemplate(rule.addFooter, rule.footer));

        CMimeHeader& header = forwarded.GetRoot()->GetHeader();  // joining may have put a new root on top
        SetSubject(header, rule, list);
        SetOverrides(header, rule);
        SetEnvelopeSender(header, rule.returnPathOverride.on ? WithListFields(rule.returnPathOverride.text) : "", list);
        AddListFields(header, list, rule.fromOptions.members.subscribers);
        AddLoopMarks(header, list);
        forwarded.RefreshAttachments();
        return true;
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}

CopyResult MakeForwardCopy(const CMimeMessage& forwarded, std::string_view address, const BroadcastList& list,
                           std::int64_t now, std::string& text) {
    const CDataFieldScope scope;
    SetListFields(list);
    std::string line(address);
    ExpandDataFields(&line, false);
    const std::vector<CMailbox> mailboxes = ParseMailboxes(OneLine(line));
    CMember member;
    member.address = mailboxes.empty() ? line : mailboxes.front().address;
    if (!mailboxes.empty()) member.name = mailboxes.front().displayName;
    CBroadcastMaker maker(CopyWay::WholeTree);
    if (!maker.Open(forwarded, list, {})) return CopyResult::Failed;
    return maker.Make(member, now, text);
}

bool MakeDigestEntry(const RuleFields& rule, const CIncomingMessage& original, const BroadcastList& list,
                     std::string& text, std::string& invalid) {
    (void)list;
    try {
        CMimeMessage message;
        if (!PrepareContent(rule, original, message, invalid)) return false;
        CMimeHeader& header = message.GetRoot()->GetHeader();
        for (const char* name : {"X-Loop", "X-ZQ-Loop"})
            RemoveAll(header, name);
        CompleteFrom(header, original);
        CleanSubject(header);
        UseTrueCharsets(header);
        text = message.GetDiskText();
        return true;
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}
