// bounceclassifier.h - what a message says of a delivery that failed.
//
// A delay notice, a vacation reply, a receipt, a challenge is no bounce.
//
// Errors   Nothing fails: what is not understood is no bounce.
// Threads  Any.
// Cost     Linear in the message; a message of any size is looked at up to a bound.
// Source   RFC 3464 (delivery status notifications), 3463 (status codes), 5965 (abuse reports).

#ifndef LISTHAVEN_ENGINE_BOUNCES_BOUNCECLASSIFIER_H
#define LISTHAVEN_ENGINE_BOUNCES_BOUNCECLASSIFIER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class CMimeMessage;

enum class BounceClass : std::uint8_t { None, Soft, Hard, Blocked };
std::string_view BounceClassName(BounceClass bounceClass) noexcept;  // "none", "soft", "hard", "blocked"

// What kind of automatic message it is.
enum class NoticeKind : std::uint8_t { Ordinary, Bounce, Delay, Success, Vacation, Challenge, Receipt, AbuseReport };
std::string_view NoticeKindName(NoticeKind kind) noexcept;

struct CBouncedRecipient {
    std::string address;   // as the notice has it, without <>; "" when it names none
    std::string original;  // Original-Recipient or another address of the same one
    BounceClass bounceClass = BounceClass::None;
    std::string status;    // "5.1.1"; "" when there is none
    int replyCode = 0;     // of SMTP; 0 when there is none
    std::string evidence;  // the line that decided, at most 500 bytes, no control characters
};

struct CBounceReport {
    NoticeKind kind = NoticeKind::Ordinary;
    std::vector<CBouncedRecipient> recipients;  // of a bounce or an abuse report; none when all are the list's own
    BounceClass GetClass() const noexcept;      // the worst: hard, blocked, soft
    bool IsBounce() const noexcept { return kind == NoticeKind::Bounce || kind == NoticeKind::AbuseReport; }
};

// ownAddresses: of the list; they are never taken for the one that bounced.
CBounceReport ClassifyMessage(const CMimeMessage& message, const std::vector<std::string>& ownAddresses = {});

// The same rules for what an SMTP server said.
BounceClass ClassifyReply(int replyCode, std::string_view status, std::string_view text);

// A notice such as a server would send, in the form of RFC 3464 (CR LF).
std::string MakeDeliveryNotice(std::string_view listAddress, const CBouncedRecipient& recipient,
                               std::string_view remoteHost, std::string_view diagnostic, std::string_view messageId,
                               std::int64_t now);

#endif  // LISTHAVEN_ENGINE_BOUNCES_BOUNCECLASSIFIER_H
