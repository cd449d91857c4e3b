// localphrases.h - the reasons of a failure in languages other than English.

#ifndef LISTHAVEN_ENGINE_BOUNCES_LOCALPHRASES_H
#define LISTHAVEN_ENGINE_BOUNCES_LOCALPHRASES_H

#include <span>
#include <string_view>

#include "engine/bounces/replytext.h"

struct CPhraseTable {
    std::string_view words;  // phrases with a bar between them
    BounceClass bounceClass;
    ReplyWeight weight;
};

std::span<const CPhraseTable> LocalPhrases() noexcept;

#endif  // LISTHAVEN_ENGINE_BOUNCES_LOCALPHRASES_H
