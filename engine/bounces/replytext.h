// replytext.h - what the words of a failure mean.
//
// Servers write the reason of a failure in words of their own, and the words
// tell more than the codes: 5.1.1 goes with "over quota", 5.7.1 with "no such
// user".
//
// Threads  Any.
// Cost     Linear in the text.

#ifndef LISTHAVEN_ENGINE_BOUNCES_REPLYTEXT_H
#define LISTHAVEN_ENGINE_BOUNCES_REPLYTEXT_H

#include <cstdint>
#include <string_view>

#include "engine/bounces/bounceclassifier.h"
#include "engine/bounces/normalizedtext.h"

enum class ReplyWeight : std::uint8_t {
    None,
    Vague,   // goes with several reasons: only when no code says more
    Likely,  // says more than a general code, less than a precise one
    Clear,   // says it all
};

struct CReplyMeaning {
    BounceClass bounceClass = BounceClass::None;
    ReplyWeight weight = ReplyWeight::None;
    std::size_t position = 0;  // of the words, in the normalized text
};

// Of the phrases in a text as NormalizeReply() gives it the weightiest; of equal ones the first.
CReplyMeaning MeaningOfReply(std::string_view normalized);

#endif  // LISTHAVEN_ENGINE_BOUNCES_REPLYTEXT_H
