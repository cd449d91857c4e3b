// rulecolumns.h - the columns of n.RUL, of the tables beside it, and of n.ACL.

#ifndef LISTHAVEN_ENGINE_RULECOLUMNS_H
#define LISTHAVEN_ENGINE_RULECOLUMNS_H

#include <span>

#include "engine/stable.h"

// The numbers are those of the columns.  Those that are missing have no meaning.
enum class RuleColumn : int {
    Id = 1,
    Enabled = 2,
    Name = 3,
    RemoveSender = 4,
    AddSender = 5,
    StopProcessing = 6,
    RemoveFromServer = 7,
    CheckBody = 8,
    CheckSubject = 9,
    CheckTo = 10,
    CheckFrom = 11,
    Forward = 12,
    Reply = 13,
    SubjectAll = 14,
    SubjectOnly = 15,
    BodyAll = 16,
    BodyOnly = 17,
    FromSubscribers = 18,
    ToSubscribers = 19,
    ForwardSubscribers = 20,
    SendToRegular = 21,
    SendToDigestOnly = 22,
    FromOverride = 24,
    OverrideFrom = 25,
    ReplyToOverride = 26,
    OverrideReplyTo = 27,
    ToOverride = 28,
    OverrideTo = 29,
    AddToDigest = 30,
    ChangeDigestMode = 31,
    ReplyToSigned = 33,
    Sign = 34,
    PlainText = 35,
    StripAttachments = 36,
    AddFooter = 37,
    AddHeader = 38,
    SendMessage = 39,
    SendToSubscribers = 40,
    SignedMessage = 43,
    SubjectRegex = 44,
    BodyRegex = 45,
    FromRegex = 46,
    ToRegex = 47,
    OverrideReturnPath = 50,
    ReturnPathOverride = 51,
    DigestMode = 52,
    WirelessTrim = 53,
    Files = 55,  // which side files there are, with their checksums
    OverrideSubject = 56,
    SubjectOverride = 57,
    FromRegular = 58,
    FromDigestOnly = 59,
    ToRegular = 60,
    ToDigestOnly = 61,
    ForwardRegular = 62,
    ForwardDigestOnly = 63,
    TagSubject = 64,
    SubjectTag = 65,
    CheckBounce = 66,
    BounceKind = 67,
    OverrideSender = 68,
    SenderOverride = 69,
};

enum class ParseFieldColumn : int { Target = 1, FromBody = 2, Pattern = 3, Format = 4, Trim = 5 };
enum class AccessColumn : int { Kind = 1, Pattern = 2 };  // kind: 1 allowed, 2 denied

std::span<const CColumnDescription> RuleColumns() noexcept;
bool IsRuleTextColumn(int column) noexcept;                      // empty in a fresh record; the others are 0
std::span<const CColumnDescription> RuleListColumns() noexcept;  // one column: the entry
std::span<const CColumnDescription> ParseFieldColumns() noexcept;
std::span<const CColumnDescription> AccessColumns() noexcept;

#endif  // LISTHAVEN_ENGINE_RULECOLUMNS_H
