#include "engine/bounces/noticekind.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <string_view>

#include "engine/bounces/bounceaddress.h"
#include "engine/bounces/clausewords.h"
#include "engine/bounces/noticewords.h"
#include "engine/bounces/statuscode.h"
#include "mime/mailbox.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MaxWords = 16 * 1024;
constexpr std::size_t MaxOpening = 3000;  // a notice comes to the point within this many characters

bool HasAny(std::string_view text, std::span<const std::string_view> words) noexcept {
    return std::any_of(words.begin(), words.end(),
                       [text](std::string_view word) { return text.find(word) != std::string_view::npos; });
}

std::string WordsOf(const CNoticeParts& parts) {
    return NormalizeReply(std::string_view(parts.text).substr(0, MaxWords));
}

std::string SubjectOf(const CNoticeParts& parts) {
    return NormalizeReply(std::string_view(parts.subject).substr(0, 1000));
}

enum class Speaker : std::uint8_t {
    Person,
    Machine,  // answers nobody reads: no-reply
    System,   // of mail
};

bool HasSystemName(std::string_view stored) {
    const std::string value = LowerAscii(CMimeHeader::Unfold(stored));
    constexpr std::array<std::string_view, 18> Names = {
        "mailer-daemon",      "mailer daemon",   "postmaster",         "mail delivery", "mail deliver system",
        "delivery subsystem", "delivery system", "mail administrator", "mail system",   "system administrator",
        "mail server",        "mailserver",      "mail daemon",        "mail router",   "mail transport",
        "mail gateway",       "non-delivery",    "ndr administrator"};
    return HasAny(value, Names);
}

bool IsMachineAddress(std::string_view address) {
    std::string local = LowerAscii(address.substr(0, address.find('@')));
    std::erase_if(local, [](char c) { return c == '-' || c == '_' || c == '.'; });
    constexpr std::array<std::string_view, 15> Names = {
        "noreply",     "donotreply", "nreply",    "mailer",        "bounces",   "smtp",       "system",   "root",
        "mailgateway", "sysadmin",   "smtpadmin", "administrator", "mailadmin", "mailmaster", "mailerror"};
    return std::any_of(Names.begin(), Names.end(), [&](std::string_view name) { return local == name; });
}

bool HasNullReturnPath(const CNoticeParts& parts) {
    if (!parts.header.HasField("Return-Path")) return false;
    const std::string_view value = Trim(parts.header.FindStored("Return-Path"));
    return value.empty() || value == "<>" || FindNoCase(value, "mailer-daemon") != std::string_view::npos;
}

Speaker SpeakerOf(const CNoticeParts& parts) {
    const std::string_view from = parts.header.FindStored("From");
    const auto mailboxes = ParseMailboxes(CMimeHeader::Unfold(from));
    const std::string address = mailboxes.empty() ? std::string(Trim(from)) : mailboxes.front().address;
    const bool isEmpty = parts.header.HasField("From") && (address.empty() || address == "<>");
    if (isEmpty || IsSystemAddress(address) || HasSystemName(from)) return Speaker::System;
    if (parts.header.HasField("X-Failed-Recipients")) return Speaker::System;
    return IsMachineAddress(address) ? Speaker::Machine : Speaker::Person;
}

bool SaysAutomaticReply(const CNoticeParts& parts) {
    const CMimeHeader& header = parts.header;
    return StartsWithNoCase(Trim(header.FindStored("Auto-Submitted")), "auto-replied") ||
           header.HasField("X-Autoreply") || header.HasField("X-Autorespond") || header.HasField("X-Autoresponder") ||
           header.HasField("X-Auto-Reply-From") ||
           StartsWithNoCase(Trim(header.FindStored("Precedence")), "auto_reply");
}

struct CNoticeWords {
    explicit CNoticeWords(const CNoticeParts& parts)
        : subject(SubjectOf(parts)), all(WordsOf(parts)), opening(std::string_view(all).substr(0, MaxOpening)) {
        isAnswer = subject.starts_with("re:") || subject.starts_with("fw:") || subject.starts_with("fwd:");
        hasSubject = !isAnswer && HasWords(subject, NoticeWords::FailureSubject);
    }
    CNoticeWords(const CNoticeWords&) = delete;
    CNoticeWords& operator=(const CNoticeWords&) = delete;

    std::string subject;
    std::string all;
    std::string_view opening;
    bool isAnswer = false;
    bool hasSubject = false;  // that a system gives to a bounce
};

NoticeKind KindOfPerson(const CNoticeParts& parts, const CNoticeWords& words) {
    const bool isReply = SaysAutomaticReply(parts);
    if ((isReply || HasNullReturnPath(parts)) && HasWords(words.opening, NoticeWords::Challenge))
        return NoticeKind::Challenge;
    if (isReply || HasWords(words.subject, NoticeWords::Vacation)) return NoticeKind::Vacation;
    if (HasNullReturnPath(parts) && HasWords(words.opening, NoticeWords::Vacation)) return NoticeKind::Vacation;
    return NoticeKind::Ordinary;
}

// Whether there is a message that the failure could be one of: many things are delivered.
bool IsOfMail(const CNoticeParts& parts) {
    return parts.hasReturned || !parts.reportType.empty() || !FindFailedAddresses(parts, {}).empty();
}

// Whether this is a machine's, so that its words may be believed.
bool Speaks(const CNoticeParts& parts, const CNoticeWords& words, Speaker speaker) {
    if (speaker == Speaker::System || parts.reportType == "delivery-status") return true;
    if (HasNullReturnPath(parts) && words.hasSubject && !SaysAutomaticReply(parts)) return IsOfMail(parts);
    return speaker == Speaker::Machine && (parts.hasReturned || !parts.reportType.empty());
}

// A postmaster is a person too: without one of these it may be he who writes.
bool IsCertainlyAutomatic(const CNoticeParts& parts, const CNoticeWords& words) {
    const std::string_view automatic = Trim(parts.header.FindStored("Auto-Submitted"));
    return HasNullReturnPath(parts) || StartsWithNoCase(automatic, "auto-") || words.hasSubject || parts.hasReturned ||
           !parts.reportType.empty() || FindNoCase(parts.header.FindStored("From"), "daemon") != std::string_view::npos;
}

// A server refused the address for good.
bool IsPermanent(const CNoticeParts& parts, std::string_view words) {
    if (FindReplyCodes(std::string_view(parts.text).substr(0, MaxOpening)).reply < 500) return false;
    const CReplyMeaning meaning = MeaningOfReply(words);
    return meaning.bounceClass == BounceClass::Hard && meaning.weight == ReplyWeight::Clear;
}

bool SaysFailure(const CNoticeParts& parts, const CNoticeWords& words) {
    const bool hasWords = HasWords(words.opening, NoticeWords::FailureText);
    const int reply = FindReplyCodes(std::string_view(parts.text).substr(0, MaxWords)).reply;
    const bool hasReply = reply >= 400;
    const CReplyMeaning meaning = MeaningOfReply(words.all);
    const ReplyWeight weight = meaning.weight;
    if (!IsCertainlyAutomatic(parts, words))
        return hasWords && hasReply && weight == ReplyWeight::Clear && parts.text.find("\n> ") == std::string::npos;
    if (hasWords || words.hasSubject) return true;
    // A daemon that names an address and a reason, whatever its words for a failure are.
    const std::string_view from = parts.header.FindStored("From");
    const bool isDaemon = FindNoCase(from, "mailer-daemon") != std::string_view::npos ||
                          FindNoCase(from, "mail delivery") != std::string_view::npos;
    // What passes by itself is as likely the reason of a delay.
    const bool hasReason = (weight >= ReplyWeight::Likely && meaning.bounceClass != BounceClass::Soft) || reply >= 500;
    if (isDaemon && HasNullReturnPath(parts) && hasReason && !words.isAnswer) return IsOfMail(parts);
    if (hasReply) return weight >= ReplyWeight::Likely;
    if (isDaemon && HasNullReturnPath(parts) && ClausesDenyDelivery(words.opening)) return IsOfMail(parts);
    return weight == ReplyWeight::Clear && (parts.hasReturned || !parts.reportType.empty());
}

// What a filter has kept back, to whoever it kept it from.
bool IsSummary(const CNoticeParts& parts, const CNoticeWords& words) {
    constexpr std::array<std::string_view, 4> Summaries = {"digest", "summary", "statistics", "report"};
    constexpr std::array<std::string_view, 3> Kept = {"quarantine", "spam", "junk"};
    const bool isReturn = words.hasSubject || words.isAnswer || parts.hasReturned || !parts.reportType.empty();
    return !isReturn && HasAny(words.subject, Summaries) && HasAny(words.subject, Kept);
}

// Nothing has failed: it arrived, or somebody is asked whether he is one.
NoticeKind HarmlessKind(const CNoticeParts& parts, const CNoticeWords& words) {
    if (FindReplyCodes(std::string_view(parts.text).substr(0, MaxOpening)).reply >= 400) return NoticeKind::Ordinary;
    // Notices of success may go on to say what a failure would look like.
    constexpr std::array<std::string_view, 4> Certain = {
        "was successfully", "were successfully", "successful delivery not", "delivery report that you requested"};
    if (HasAny(words.opening, Certain) && words.opening.find("fatal error") == std::string_view::npos)
        return NoticeKind::Success;
    if (HasWords(words.opening, NoticeWords::FailureText)) return NoticeKind::Ordinary;
    if (HasWords(words.opening, NoticeWords::Success)) return NoticeKind::Success;
    if (!words.hasSubject && HasWords(words.opening, NoticeWords::Challenge)) return NoticeKind::Challenge;
    return NoticeKind::Ordinary;
}

}  // namespace

bool IsFromPerson(const CNoticeParts& parts) {
    return SpeakerOf(parts) == Speaker::Person;
}

bool CameThroughList(const CNoticeParts& parts) {
    return parts.header.HasField("List-Id") || parts.header.HasField("List-Post");
}

bool AnnouncesRetry(const CNoticeParts& parts) {
    const std::string words = WordsOf(parts);
    const std::string_view opening = std::string_view(words).substr(0, MaxOpening);
    if (HasWords(opening, NoticeWords::Warning)) return true;
    if (HasWords(opening, NoticeWords::GivenUp) || IsPermanent(parts, words)) return false;
    if (ClausesAnnounceRetry(opening)) return true;
    if (HasWords(opening, NoticeWords::Final)) return false;
    if (HasWords(opening, NoticeWords::Retry)) return true;
    // Behind "Undeliverable:" stands the subject of what failed, behind "Delivery notification:" what it says.
    constexpr std::array<std::string_view, 4> Openings = {"notification", "status", "notice", "report"};
    const std::string subject = SubjectOf(parts);
    const std::string_view start = std::string_view(subject).substr(0, subject.find(':'));
    if (HasWords(start, NoticeWords::FailureSubject) && !HasAny(start, Openings))
        return HasWords(start, NoticeWords::DelaySubject);
    return HasWords(subject, NoticeWords::DelaySubject);
}

bool IsComplaint(const CNoticeParts& parts) {
    const std::size_t at = FindNoCase(parts.feedback, "Feedback-Type:");
    if (at == std::string::npos) return true;
    const std::string_view line = std::string_view(parts.feedback).substr(at + 14);
    const std::string_view type = Trim(line.substr(0, line.find('\n')));
    return !EqualNoCase(type, "not-spam") && !EqualNoCase(type, "auth-failure") && !EqualNoCase(type, "dmarc");
}

bool MayReport(const CNoticeParts& parts) {
    return !parts.reportType.empty() || HasNullReturnPath(parts) || SpeakerOf(parts) != Speaker::Person;
}

NoticeKind KindOfNotice(const CNoticeParts& parts) {
    const CNoticeWords words(parts);
    const Speaker speaker = SpeakerOf(parts);
    if (!Speaks(parts, words, speaker) || CameThroughList(parts)) return KindOfPerson(parts, words);
    const bool namesFailed = parts.header.HasField("X-Failed-Recipients");
    if (!namesFailed && IsSummary(parts, words)) return KindOfPerson(parts, words);
    const bool mayBeAway = !words.hasSubject || speaker == Speaker::Person;
    if (mayBeAway && !namesFailed && HasWords(words.subject, NoticeWords::Vacation)) return NoticeKind::Vacation;
    if (AnnouncesRetry(parts)) return NoticeKind::Delay;
    if (namesFailed) return NoticeKind::Bounce;
    const NoticeKind harmless = HarmlessKind(parts, words);
    if (harmless != NoticeKind::Ordinary) return harmless;
    // A system that does not say whose mail failed, to an address that answers: it speaks of something else.
    if (parts.header.HasField("Return-Path") && !HasNullReturnPath(parts) && !IsOfMail(parts))
        return KindOfPerson(parts, words);
    return SaysFailure(parts, words) ? NoticeKind::Bounce : KindOfPerson(parts, words);
}
