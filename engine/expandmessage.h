// expandmessage.h - data fields in a whole message.
//
// Header values are expanded as plain text, decoded and unfolded, and stored
// again only when they changed; CR, LF and NUL of a value become blanks there.
// Text parts are expanded as HTML or plain text by their subtype; one without
// a reference stays as it is, byte for byte.
//
// Errors   A missing message throws the internal error.
// Threads  As datafields.h.

#ifndef LISTHAVEN_ENGINE_EXPANDMESSAGE_H
#define LISTHAVEN_ENGINE_EXPANDMESSAGE_H

#include <cstddef>
#include <string>
#include <string_view>

class CMimeHeader;
class CMimeMessage;

void ExpandMessage(CMimeMessage* message);

// One header value, decoded; false when there was nothing to expand.
bool ExpandHeaderValue(std::string& value);

// A decoded value of one line, in the form that the field wants (addressline.h).
void StoreHeaderValue(CMimeHeader& header, std::size_t index, const std::string& value);

#endif  // LISTHAVEN_ENGINE_EXPANDMESSAGE_H
