// textcharset.h - the character set of texts into which members' values go.
//
// Values are UTF-8, whatever the program that composed the message used.  A
// text part with data fields is brought to UTF-8 before it is expanded, or the
// names in it would not be readable.

#ifndef LISTHAVEN_ENGINE_TEXTCHARSET_H
#define LISTHAVEN_ENGINE_TEXTCHARSET_H

class CMimeMessage;

// Parts in US-ASCII, ISO-8859-1 and Windows-1252, and those that name no
// charset, become UTF-8; of others only those that are plain ASCII.  What is in
// a further charset stays as it is, with a warning in the log.  Parts without
// data fields are not touched.
void UseUtf8ForDataFields(CMimeMessage& message);

#endif  // LISTHAVEN_ENGINE_TEXTCHARSET_H
