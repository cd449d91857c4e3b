// bouncerecords.h - bounces of a list: what they do to members, and what is kept
// of them in Archive/<n>/Bounces.
//
// Errors   CLhvException, or false with the reason in the last-error text.
// Threads  One at a time.
// Crash    An undo that was interrupted is done once more by the next call.

#ifndef LISTHAVEN_ENGINE_INCOMING_BOUNCERECORDS_H
#define LISTHAVEN_ENGINE_INCOMING_BOUNCERECORDS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/bounces/bounceclassifier.h"
#include "engine/member.h"

// Counts the bounce at the member: properties "Bounces", "LastBounce" and
// "Inactive".  A soft one is counted; when the last one is a month back the
// count begins anew.  True when this one has made the member inactive.
bool CountBounce(CMember& member, const CBouncedRecipient& bounce, NoticeKind kind, std::int64_t now,
                 std::int64_t softLimit);
std::int64_t ReadSoftBounceLimit();  // [Service] SoftBounceLimit

enum class BounceEffect : std::uint8_t { None, Counted, Deactivated, Removed };
std::string_view BounceEffectName(BounceEffect effect) noexcept;

// Header lines (LF) to put in front of the raw bounce when it is kept: who, what,
// why, what was done, and a removed member as it was.
std::string MakeBounceRecord(const CBouncedRecipient& bounce, NoticeKind kind, BounceEffect effect,
                             const CMember* removed, std::int64_t now);

struct CBounceRecord {
    std::string id;  // number of the file
    std::string path;
    std::int64_t time = 0;
    CBouncedRecipient bounce;
    NoticeKind kind = NoticeKind::Bounce;
    BounceEffect effect = BounceEffect::None;
    bool isUndone = false;
    bool hasMember = false;
    CMember member;  // as it was when it was removed
};
std::vector<CBounceRecord> ListBounces(std::uint32_t listNumber);  // oldest first, of one second by address
bool FindBounce(std::uint32_t listNumber, std::string_view id, CBounceRecord& record);

// The member is back as it was, active, its count 0; one who is there again
// keeps what he is.  Nothing happens when all has been undone before.  False
// with the reason when no bounce has changed anything for the address.
bool UndoBounce(std::uint32_t listNumber, std::string_view address);

// Removes what is older than [Service] KeepBounces days (0: nothing); how many.
std::size_t PruneBounces(std::uint32_t listNumber, std::int64_t now);

#endif  // LISTHAVEN_ENGINE_INCOMING_BOUNCERECORDS_H
