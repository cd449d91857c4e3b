// messageids.h - message identifiers that strangers' messages name (RFC 5322, 3.6.4).
//
// Only what has the form of an identifier gets through, at most 250 bytes each:
// nothing in them can end a line, open a data field or fill a header.
//
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_INCOMING_MESSAGEIDS_H
#define LISTHAVEN_ENGINE_INCOMING_MESSAGEIDS_H

#include <string>
#include <string_view>

class CMimeHeader;

std::string FirstMessageId(std::string_view value);  // "<a@b>"; "" when there is none

// References of an answer: those of the message, or what it answers, and the
// message itself.  The first and the last ones, at most 20.
std::string ReferencesTo(const CMimeHeader& header);

#endif  // LISTHAVEN_ENGINE_INCOMING_MESSAGEIDS_H
