// clausewords.h - what a text says in words that are in no table.
//
// Nobody can list every sentence.  Most of them join a few words, such as
// "will" and "attempt" or "mailbox" and "closed", in one clause and in an
// order that the language gives.  English only.
//
// Threads  Any.
// Cost     Linear in the text.

#ifndef LISTHAVEN_ENGINE_BOUNCES_CLAUSEWORDS_H
#define LISTHAVEN_ENGINE_BOUNCES_CLAUSEWORDS_H

#include <string_view>

#include "engine/bounces/replytext.h"

// Whether somebody will go on trying; not when it is the reader who should.
// normalized: as NormalizeReply() gives it.
bool ClausesAnnounceRetry(std::string_view normalized);

// Whether something could not be passed on.
bool ClausesDenyDelivery(std::string_view normalized);

// Of an address or a mailbox what makes it useless, or full.
CReplyMeaning MeaningOfClauses(std::string_view normalized);

#endif  // LISTHAVEN_ENGINE_BOUNCES_CLAUSEWORDS_H
