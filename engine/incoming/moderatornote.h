// moderatornote.h - puts a note in front of the text of a message.
//
// The note is UTF-8 with LF.  It and "\n\n" go in front of the first text; of a
// multipart/alternative in front of each of its texts.  In HTML it is encoded,
// with <br> for its line ends, and stands at the beginning of the body.  A plain
// text that cannot hold it is brought to UTF-8.
//
// Errors   false, with the reason in the last-error text: there is no text, or one
//          in a character set or an encoding to which the note cannot be added.
//          The message is then not to be saved.
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_INCOMING_MODERATORNOTE_H
#define LISTHAVEN_ENGINE_INCOMING_MODERATORNOTE_H

#include <string_view>

#include "mime/mimemessage.h"

// A text that begins with the note already is left as it is.
bool PutNoteInFront(CMimeMessage& message, std::string_view note);

#endif  // LISTHAVEN_ENGINE_INCOMING_MODERATORNOTE_H
