// recipientverdict.h - the class of one failed recipient, from all that is said of it.

#ifndef LISTHAVEN_ENGINE_BOUNCES_RECIPIENTVERDICT_H
#define LISTHAVEN_ENGINE_BOUNCES_RECIPIENTVERDICT_H

#include <string_view>

#include "engine/bounces/bounceclassifier.h"
#include "engine/bounces/statuscode.h"

// Sets class, status, reply code and evidence.  diagnostic: what the server
// said; text: what the notice says of this recipient.  What the words leave
// open the codes decide; a temporary code is never a hard bounce.
void JudgeRecipient(CBouncedRecipient& recipient, const CStatusCode& status, std::string_view diagnostic,
                    std::string_view text);

// One line of at most 500 bytes, no control characters.
std::string MakeEvidence(std::string_view text);

#endif  // LISTHAVEN_ENGINE_BOUNCES_RECIPIENTVERDICT_H
