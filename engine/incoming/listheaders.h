// listheaders.h - the fields by which a list's mail is known as such, and those
// of a stranger's message that must not go along with it.
//
// Threads  Any.
// Source   RFC 2369 (List-Post and so on), RFC 2919 (List-Id), RFC 5321, 4.4
//          (Return-Path), RFC 3834 (Precedence is not its; it is widely understood).

#ifndef LISTHAVEN_ENGINE_INCOMING_LISTHEADERS_H
#define LISTHAVEN_ENGINE_INCOMING_LISTHEADERS_H

#include <string>
#include <string_view>

#include "engine/broadcast.h"
#include "mime/mimeheader.h"

// Trace, authentication, requests for receipts, fields of other lists, control
// headers, and what is too much: of fields that no reader needs the first 200
// and at most 32 KiB stay.
void RemoveForeignFields(CMimeHeader& header);

// Precedence, List-Id, List-Post, and List-Help, -Subscribe and -Unsubscribe for
// those commands that the list's usage text has in quotes.  membersPost: else
// "List-Post: NO".
void AddListFields(CMimeHeader& header, const BroadcastList& list, bool membersPost);

// Marks by which the list knows its own mail again, behind the one that each copy gets.
void AddLoopMarks(CMimeHeader& header, const BroadcastList& list);

// Where bounces go: the text, else nowhere when the list wants an empty sender,
// else the command address.
void SetEnvelopeSender(CMimeHeader& header, std::string_view text, const BroadcastList& list);

#endif  // LISTHAVEN_ENGINE_INCOMING_LISTHEADERS_H
