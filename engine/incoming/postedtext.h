// postedtext.h - what a post says, as a key: posts of one sender with the same
// text have the same one.
//
// A program that answers to each post with the same words is known by it,
// however it marks its messages.  Quotes, the line that introduces one and white
// space do not count; attachments do, by name and size.  The subject counts only
// beside a short text, and without "Re:" and tags.
//
// Threads  One at a time for a message.

#ifndef LISTHAVEN_ENGINE_INCOMING_POSTEDTEXT_H
#define LISTHAVEN_ENGINE_INCOMING_POSTEDTEXT_H

#include <string>

#include "engine/rules/incomingmessage.h"

std::string KeyOfPostedText(const CIncomingMessage& message);  // "" when it has no sender, or no text

#endif  // LISTHAVEN_ENGINE_INCOMING_POSTEDTEXT_H
