#include "engine/incoming/answers.h"

#include <utility>

#include "engine/addressline.h"
#include "engine/datafields.h"
#include "engine/eventlog.h"
#include "engine/expandmessage.h"
#include "engine/finalize.h"
#include "engine/incoming/messageids.h"
#include "engine/incoming/originalfields.h"
#include "engine/incoming/subjectline.h"
#include "engine/messagefields.h"
#include "engine/messagetemplate.h"
#include "engine/textcharset.h"
#include "engine/utf8text.h"
#include "mime/mimeentity.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

// The subject of the answered message without "Re:", which the answer has already.
constexpr std::string_view ReplySubject = "$Reply-Subject";
constexpr std::string_view OriginalSubject = "$(Original-Subject)";
constexpr std::size_t LongestName = 200;  // bytes of a stranger's name in a To line

enum class Answer { Reply, Message };

void RemoveAll(CMimeHeader& header, const char* name) {
    while (header.HasField(name))
        header.RemoveField(name);
}

void SetOnly(CMimeHeader& header, const char* name, std::string_view value) {
    RemoveAll(header, name);
    header.SetField(name, value);
}

// Could be expanded or decoded in the header.
bool HoldsMarks(std::string_view text) noexcept {
    return text.find("$(") != std::string_view::npos || text.find("=?") != std::string_view::npos;
}

bool IsUsable(const CMailbox& mailbox, std::string_view subject) {
    std::string reason;
    if (IsPlausibleAddress(mailbox.address, &reason) && !HoldsMarks(mailbox.address)) return true;
    Log(LogError, "No message is sent to \"%s\" about the message \"%s\": this is not an address. %s",
        OneLine(mailbox.address.substr(0, LongestName)).c_str(), OneLine(subject).c_str(), reason.c_str());
    return false;
}

bool IsOwnAddress(const BroadcastList& list, std::string_view address) {
    for (const std::string* own : {&list.address, &list.commandAddress, &list.postAddress}) {
        if (!own->empty() && EqualNoCase(*own, address)) return true;
    }
    return false;
}

void CompleteSubject(CMimeHeader& header, Answer answer) {
    std::string subject(Trim(header.GetField("Subject")));
    if (subject.empty()) {
        subject = answer == Answer::Reply ? "Re: $(Original-Subject)" : std::string(OriginalSubject);
    }
    const std::string_view rest = WithoutReplyMarks(subject);
    if (rest.size() != subject.size() && StartsWithNoCase(rest, OriginalSubject)) {
        const std::string tail(rest.substr(OriginalSubject.size()));
        subject = "Re: $(" + std::string(ReplySubject) + ")" + tail;
        const std::string original = GetDataField("Original-Subject");
        const std::string_view plain = WithoutReplyMarks(original);
        SetLiteralDataField(ReplySubject, plain.empty() ? "your message" : plain);
    }
    SetStoredLine(header, "Subject", StoredSubject(subject));
}

// The message's own lines and its body, without what is meant for this system.
std::string WholeText(const CIncomingMessage& original) {
    std::string raw;
    if (!original.ReadBytes(raw)) return LfToCrLf(original.message.GetText());
    raw = CrLfToLf(raw);
    std::size_t end = raw.starts_with("\n") ? 0 : raw.find("\n\n");
    end = end == std::string::npos ? raw.size() : end + (end == 0 ? 1 : 2);
    CMimeHeader header;
    header.Parse(std::string_view(raw).substr(0, end));
    for (std::size_t i = header.GetFieldCount(); i-- > 0;) {
        const std::string& name = header.GetStoredField(i).name;
        const bool isLoopMark = EqualNoCase(name, "X-ZQ-Loop");
        if (StartsWithNoCase(name, "X-Lhv-") || (StartsWithNoCase(name, "X-Zq-") && !isLoopMark))
            header.RemoveFieldAt(i);
    }
    return LfToCrLf(header.GetText() + "\n" + raw.substr(end));
}

}  // namespace

struct CAnswerMaker::CState {
    BroadcastList list;
    CFinalizer finalizer;

    explicit CState(BroadcastList theList) : list(std::move(theList)), finalizer(list.guid) {}

    bool SetFrom(CMimeHeader& header) const;
    CopyResult Make(const CMimeMessage& message, CMailbox to, const CIncomingMessage& original, Answer answer,
                    std::int64_t now, std::string& text);
};

CAnswerMaker::CAnswerMaker(BroadcastList list) : m_state(std::make_unique<CState>(std::move(list))) {}
CAnswerMaker::~CAnswerMaker() = default;

bool CAnswerMaker::CState::SetFrom(CMimeHeader& header) const {
    if (header.HasField(ControlHeader::FromOverride) || !Trim(header.GetField("From")).empty()) return true;
    const std::string& address = list.commandAddress.empty() ? list.address : list.commandAddress;
    if (address.empty()) {
        SetLastErrorText("The answer has no From line, and the list no address that could stand there.");
        return false;
    }
    SetStoredLine(header, "From", StoredMailbox({HoldsMarks(list.name) ? "" : list.name, address}));
    return true;
}

CopyResult CAnswerMaker::CState::Make(const CMimeMessage& message, CMailbox to, const CIncomingMessage& original,
                                      Answer answer, std::int64_t now, std::string& text) {
    CMimeMessage copy = message.Clone();
    CMimeHeader& header = copy.GetRoot()->GetHeader();
    RemoveAll(header, ControlHeader::RecipientOverride);
    if (HoldsMarks(to.displayName)) to.displayName.clear();
    to.displayName = CutUtf8(to.displayName, LongestName);
    RemoveAll(header, "To");
    SetStoredLine(header, "To", StoredMailbox(to));
    if (!SetFrom(header)) return CopyResult::Failed;
    CompleteSubject(header, answer);
    ExpandPlaceholders(copy);
    UseUtf8ForDataFields(copy);
    SetOnly(header, "Auto-Submitted", answer == Answer::Reply ? "auto-replied" : "auto-generated");
    SetOnly(header, "Precedence", "bulk");
    RemoveAll(header, "In-Reply-To");
    RemoveAll(header, "References");
    if (answer == Answer::Reply && original.message.GetRoot()) {
        const CMimeHeader& asked = original.message.GetRoot()->GetHeader();
        header.SetField("In-Reply-To", FirstMessageId(asked.FindStored("Message-ID")));
        header.SetField("References", ReferencesTo(asked));
    }
    if (header.GetField(ControlHeader::ReturnPathOverride).empty())
        SetOnly(header, ControlHeader::ReturnPathOverride, "<>");
    SetMessageFields(copy);
    switch (finalizer.Prepare(copy, now)) {
        case FinalizeResult::Written:
            break;
        case FinalizeResult::Blocked:
            return CopyResult::Blocked;
        case FinalizeResult::Failed:
            return CopyResult::Failed;
    }
    text = copy.GetDiskText();
    return CopyResult::Made;
}

CopyResult CAnswerMaker::MakeReply(const CMimeMessage& reply, const CIncomingMessage& original, std::int64_t now,
                                   std::string& text) {
    if (!reply.GetRoot()) {
        SetLastErrorText("The rule has no message to reply with.");
        return CopyResult::Failed;
    }
    if (original.sender.address.empty()) {
        Log(LogWarning,
            "Failed to create reply to the message \"%s\" because sender's address is empty (may be a delivery "
            "notification).",
            original.subject.c_str());
        return CopyResult::Skipped;
    }
    const CMailbox sender{HeaderLineInUtf8(original.sender.displayName), original.sender.address};
    if (!IsUsable(sender, original.subject)) return CopyResult::Skipped;
    const CDataFieldScope scope;
    SetIncomingFields(original, m_state->list);
    return m_state->Make(reply, sender, original, Answer::Reply, now, text);
}

CopyResult CAnswerMaker::MakeMessageTo(const CMimeMessage& message, std::string_view address,
                                       const CIncomingMessage& original, std::int64_t now, std::string& text) {
    if (!message.GetRoot()) {
        SetLastErrorText("The rule has no message to send.");
        return CopyResult::Failed;
    }
    const CDataFieldScope scope;
    SetIncomingFields(original, m_state->list);
    std::string line(address);
    ExpandDataFields(&line, false);
    const std::vector<CMailbox> mailboxes = ParseMailboxes(OneLine(line));
    const CMailbox to = mailboxes.empty() ? CMailbox{{}, line} : mailboxes.front();
    if (!IsUsable(to, original.subject)) return CopyResult::Skipped;
    return m_state->Make(message, to, original, Answer::Message, now, text);
}

CopyResult CAnswerMaker::MakeRedirected(const CIncomingMessage& original, std::string_view address, std::int64_t now,
                                        std::string& text) {
    (void)now;
    const std::vector<CMailbox> mailboxes = ParseMailboxes(OneLine(address));
    const CMailbox to = mailboxes.empty() ? CMailbox{{}, std::string(address)} : mailboxes.front();
    if (!IsUsable(to, original.subject)) return CopyResult::Skipped;
    if (IsOwnAddress(m_state->list, to.address)) {
        Log(LogError, "The message \"%s\" is not redirected to %s: that is the list itself.", original.subject.c_str(),
            to.address.c_str());
        return CopyResult::Skipped;
    }
    if (m_state->finalizer.IsBlocked(to.address, original.subject)) return CopyResult::Blocked;
    text.assign(ControlHeader::RecipientOverride).append(": ").append(to.address).append("\r\n");
    text.append(ControlHeader::ReturnPathOverride).append(": <>\r\n");
    const std::string& own =
        m_state->list.commandAddress.empty() ? m_state->list.address : m_state->list.commandAddress;
    if (!own.empty()) text.append("Resent-From: ").append(OneLine(own)).append("\r\n");
    text.append(WholeText(original));
    return CopyResult::Made;
}
