// textcharset.h - the character set of texts into which members' values go.
//
// Values are UTF-8, whatever the program that composed the message used.  Text
// parts and header lines with data fields are brought to UTF-8 before they are
// expanded, or the names in them would not be readable.

#ifndef LISTHAVEN_ENGINE_TEXTCHARSET_H
#define LISTHAVEN_ENGINE_TEXTCHARSET_H

#include <string>
#include <string_view>

class CMimeMessage;

// Parts in US-ASCII, ISO-8859-1 and Windows-1252, and those that name no
// charset, become UTF-8; of others only those that are plain ASCII.  What is in
// a further charset stays as it is, with a warning in the log.  Parts without
// data fields are not touched.  Lines of the message's header likewise.
void UseUtf8ForDataFields(CMimeMessage& message);

// A decoded header value, as a value for data fields: converted when it is not
// UTF-8 and its stored form names no charset but those.
std::string HeaderTextInUtf8(std::string_view stored, std::string decoded);

#endif  // LISTHAVEN_ENGINE_TEXTCHARSET_H
