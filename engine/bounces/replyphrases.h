// replyphrases.h - the words with which servers give the reason of a failure.

#ifndef LISTHAVEN_ENGINE_BOUNCES_REPLYPHRASES_H
#define LISTHAVEN_ENGINE_BOUNCES_REPLYPHRASES_H

#include <span>
#include <string_view>

#include "engine/bounces/replytext.h"

struct CReplyPhrase {
    std::string_view words;  // normalized; found where a word begins, and when short only as whole words
    BounceClass bounceClass;
    ReplyWeight weight;
};

std::span<const CReplyPhrase> ReplyPhrases();

#endif  // LISTHAVEN_ENGINE_BOUNCES_REPLYPHRASES_H
