#include "engine/bounces/noticekind.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <string_view>

#include "engine/bounces/bounceaddress.h"
#include "engine/bounces/statuscode.h"
#include "mime/mailbox.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MaxWords = 16 * 1024;
constexpr std::size_t MaxOpening = 3000;  // a notice comes to the point within this many characters

constexpr std::string_view FailureSubjects[] = {
    "undeliver",
    "delivery fail",
    "delivery has failed",
    "failure notice",
    "returned mail",
    "mail delivery",
    "delivery status",
    "delivery notification",
    "delivery problem",
    "delivery error",
    "delivery report",
    "non-delivery",
    "nondelivery",
    "not delivered",
    "could not be delivered",
    "mail failure",
    "message failure",
    "failed mail",
    "failed to deliver",
    "returned to sender",
    "returning to sender",
    "mail failed",
    "mail system error",
    "mail error",
    "error sending your mail",
    "rejected mail",
    "message rejected",
    "message could not be",
    "permanent delivery",
    "unable to deliver",
    "unzustellbar",
    "nicht zugestellt",
    "zustellung",
    "non remis",
    "non distribu",
    "mancata consegna",
    "no entregad",
    "no se pudo entregar",
    "n\xC3\xA3o entregue",
    "mail returned",
    "returned message",
    "user unknown",
    "undelivered",
    "delivery incomplete",
    "warning: message",
    "warning: could not send",
    "warning--could not",
    "\xE3\x82\xA8\xE3\x83\xA9\xE3\x83\xBC",
    "\xE9\x85\x8D\xE4\xBF\xA1",
    "\xE9\x80\x80\xE4\xBF\xA1",
    "\xD0\xBD\xD0\xB5 \xD0\xB4\xD0\xBE\xD1\x81\xD1\x82\xD0\xB0\xD0\xB2\xD0\xBB\xD0\xB5\xD0\xBD",
};

constexpr std::string_view FailureWords[] = {
    "could not be delivered",
    "couldn't be delivered",
    "was not delivered",
    "wasn't delivered",
    "wasn't able to deliver",
    "not been delivered",
    "not able to deliver",
    "unable to deliver",
    "undeliverable",
    "undelivered",
    "delivery failed",
    "delivery failure",
    "failed to deliver",
    "delivery has failed",
    "deliver mail to",
    "delivery to the following",
    "could not deliver",
    "couldn't deliver",
    "cannot deliver",
    "can't deliver",
    "could not be sent",
    "cannot be sent",
    "returned to sender",
    "returning message to sender",
    "returned mail",
    "failure notice",
    "did not reach",
    "did not receive this message",
    "cannot be delivered",
    "can't be delivered",
    "can not be delivered",
    "not be delivered",
    "non-delivery",
    "nondelivery",
    "delivery error",
    "trouble delivering",
    "error while attempting to deliver",
    "occurred while attempting to deliver",
    "occurred while trying to deliver",
    "error sending your mail",
    "permanent error",
    "was rejected",
    "been rejected",
    "was blocked",
    "incorrectly constructed",
    "problem delivering",
    "transcript of session",
    "failed permanently",
    "message was not accepted",
    "returned to you",
    "being returned",
    "not successfully delivered",
    "error message below",
    "had delivery errors",
    "is not deliverable",
    "unsent message",
    "could not be reached",
    "nicht zugestellt",
    "unzustellbar",
    "n'a pas pu",
    "impossible de remettre",
    "no se ha podido entregar",
    "no pudo ser entregado",
    "no se pudo entregar",
    "n\xC3\xA3o p\xC3\xB4"
    "de ser entregue",
    "non \xC3\xA8 stato possibile",
    "\xE9\x80\x81\xE4\xBF\xA1\xE3\x81\xA7\xE3\x81\x8D\xE3\x81\xBE\xE3\x81\x9B\xE3\x82\x93",
    "\xE9\x85\x8D\xE4\xBF\xA1\xE3\x81\xA7\xE3\x81\x8D\xE3\x81\xBE\xE3\x81\x9B\xE3\x82\x93",
    "\xD0\xBD\xD0\xB5 \xD0\xBC\xD0\xBE\xD0\xB6\xD0\xB5\xD1\x82 \xD0\xB1\xD1\x8B\xD1\x82\xD1\x8C "
    "\xD0\xB4\xD0\xBE\xD1\x81\xD1\x82\xD0\xB0\xD0\xB2\xD0\xBB\xD0\xB5\xD0\xBD\xD0\xBE",
};

constexpr std::string_view DelayWords[] = {
    "this is a warning message only",
    "will be retried",
    "will retry",
    "will keep trying",
    "will continue to try",
    "continue to be attempted",
    "delivery attempts will continue",
    "not yet been delivered",
    "has been delayed",
    "could not send mail for past",
    "could not send message for past",
    "still trying",
    "still being retried",
    "still attempting",
    "you do not need to resend",
    "temporary problem delivering",
    "delivery incomplete",
    "will try to deliver",
    "will try again",
    "is still in the queue",
    "keep trying until",
    "delivery delayed",
    "has not been delivered yet",
    "attempts to deliver will continue",
    "will attempt to deliver",
    "retrying delivery",
};
constexpr std::string_view DelaySubjects[] = {"(delay)",
                                              "delayed",
                                              "warning: could not send",
                                              "warning--could not send",
                                              "warning: message",
                                              "delivery incomplete",
                                              "delay notification"};
constexpr std::string_view FinalWords[] = {
    "failed permanently",
    "permanent error",
    "permanent fatal error",
    "giving up",
    "given up",
    "gave up",
    "i'm not going to try again",
    "will not be retried",
    "could not be delivered for",
    "no further attempts",
    "delivery failed",
    "no longer be retried",
    "undeliverable",
    "returned to sender",
    "being returned",
};

constexpr std::string_view VacationWords[] = {
    "out of office",
    "out of the office",
    "out-of-office",
    "auto reply",
    "auto-reply",
    "autoreply",
    "autoresponse",
    "auto response",
    "automatic reply",
    "automatic response",
    "automated reply",
    "vacation",
    "on leave",
    "away from my",
    "away from the office",
    "i am away",
    "i'm away",
    "currently away",
    "away until",
    "abwesen",
    "automatische antwort",
    "r\xC3\xA9ponse automatique",
    "absence",
    "risposta automatica",
    "respuesta autom",
    "fuera de la oficina",
    "fuera de oficina",
    "resposta autom",
    "automatiska svar",
    "automatisch antwoord",
    "\xE8\x87\xAA\xE5\x8B\x95\xE8\xBF\x94\xE4\xBF\xA1",
    "\xE8\x87\xAA\xE5\x8A\xA8\xE5\x9B\x9E\xE5\xA4\x8D",
};

constexpr std::string_view ChallengeWords[] = {
    "confirm that you",    "confirm your message", "confirm your email", "verify that you",  "verify your",
    "challenge",           "allowed senders",      "approved sender",    "approved senders", "whitelist",
    "sender verification", "suspect e-mail",       "spamblocker",        "one-time",         "prove that you",
};

bool HasAny(std::string_view text, std::span<const std::string_view> words) noexcept {
    return std::any_of(words.begin(), words.end(),
                       [text](std::string_view word) { return text.find(word) != std::string_view::npos; });
}

std::string WordsOf(const CNoticeParts& parts) {
    return NormalizeReply(std::string_view(parts.text).substr(0, MaxWords));
}

std::string SubjectOf(const CNoticeParts& parts) {
    return NormalizeReply(std::string_view(parts.header.GetField("Subject")).substr(0, 1000));
}

enum class Speaker : std::uint8_t {
    Person,
    Machine,  // answers nobody reads: no-reply
    System,   // of mail
};

bool HasSystemName(std::string_view stored) {
    const std::string value = LowerAscii(CMimeHeader::Unfold(stored));
    constexpr std::array<std::string_view, 10> Names = {
        "mailer-daemon",      "mailer daemon",   "postmaster",         "mail delivery", "mail deliver system",
        "delivery subsystem", "delivery system", "mail administrator", "mail system",   "system administrator"};
    return HasAny(value, Names);
}

bool IsMachineAddress(std::string_view address) {
    std::string local = LowerAscii(address.substr(0, address.find('@')));
    std::erase_if(local, [](char c) { return c == '-' || c == '_' || c == '.'; });
    constexpr std::array<std::string_view, 9> Names = {"noreply", "donotreply", "nreply", "mailer",     "bounces",
                                                       "smtp",    "system",     "root",   "mailgateway"};
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
        hasSubject = !isAnswer && HasAny(subject, FailureSubjects);
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
    if ((isReply || HasNullReturnPath(parts)) && HasAny(words.opening, ChallengeWords)) return NoticeKind::Challenge;
    if (isReply || HasAny(words.subject, VacationWords)) return NoticeKind::Vacation;
    if (HasNullReturnPath(parts) && HasAny(words.opening, VacationWords)) return NoticeKind::Vacation;
    return NoticeKind::Ordinary;
}

// Whether this is a machine's, so that its words may be believed.
bool Speaks(const CNoticeParts& parts, const CNoticeWords& words) {
    const Speaker speaker = SpeakerOf(parts);
    if (speaker == Speaker::System || parts.reportType == "delivery-status") return true;
    if (HasNullReturnPath(parts) && words.hasSubject && !SaysAutomaticReply(parts)) return true;
    return speaker == Speaker::Machine && (parts.hasReturned || HasNullReturnPath(parts));
}

// A postmaster is a person too: without one of these it may be he who writes.
bool IsCertainlyAutomatic(const CNoticeParts& parts, const CNoticeWords& words) {
    const std::string_view automatic = Trim(parts.header.FindStored("Auto-Submitted"));
    return HasNullReturnPath(parts) || StartsWithNoCase(automatic, "auto-") || words.hasSubject || parts.hasReturned ||
           !parts.reportType.empty() || FindNoCase(parts.header.FindStored("From"), "daemon") != std::string_view::npos;
}

bool SaysFailure(const CNoticeParts& parts, const CNoticeWords& words) {
    const bool hasWords = HasAny(words.opening, FailureWords);
    const bool hasReply = FindReplyCodes(std::string_view(parts.text).substr(0, MaxWords)).reply >= 400;
    const ReplyWeight weight = MeaningOfReply(words.all).weight;
    if (!IsCertainlyAutomatic(parts, words))
        return hasWords && hasReply && weight == ReplyWeight::Clear && parts.text.find("\n> ") == std::string::npos;
    if (hasWords || words.hasSubject) return true;
    return hasReply ? weight >= ReplyWeight::Likely : weight == ReplyWeight::Clear && !words.isAnswer;
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
    if (HasAny(opening, DelayWords)) return !HasAny(opening, FinalWords);
    return HasAny(SubjectOf(parts), DelaySubjects) && !HasAny(opening, FinalWords);
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
    if (!Speaks(parts, words) || CameThroughList(parts)) return KindOfPerson(parts, words);
    const bool namesFailed = parts.header.HasField("X-Failed-Recipients");
    if (HasAny(words.subject, VacationWords) && !namesFailed && !words.hasSubject) return NoticeKind::Vacation;
    if (AnnouncesRetry(parts)) return NoticeKind::Delay;
    if (namesFailed || SaysFailure(parts, words)) return NoticeKind::Bounce;
    return KindOfPerson(parts, words);
}
