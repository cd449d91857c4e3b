// toolargereply.h - what the sender of a too large message is told.
//
// Errors   None: a template that is missing or damaged (logged) gives the
//          built-in text.
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_INCOMING_TOOLARGEREPLY_H
#define LISTHAVEN_ENGINE_INCOMING_TOOLARGEREPLY_H

#include "mime/mimemessage.h"

// [Service] TooLargeReply, in the data folder.
CMimeMessage LoadTooLargeReply();

#endif  // LISTHAVEN_ENGINE_INCOMING_TOOLARGEREPLY_H
