// addressline.h - address and subject lines in a form that comes back as it was.
//
// The header stores a value with bytes that need it as one encoded word, the
// addresses in it, and "_" and "?" do not come back from that.  Lines made here
// have nothing of an address encoded, and those two characters as well.
//
// Errors   Nothing fails.
// Source   RFC 2047, 4.2 and 5(3)

#ifndef LISTHAVEN_ENGINE_ADDRESSLINE_H
#define LISTHAVEN_ENGINE_ADDRESSLINE_H

#include <string>
#include <string_view>

class CMimeHeader;
struct CMailbox;

// "\"Name\" <address>", the name encoded with its quotes when it needs to be;
// the address alone without a name.
std::string StoredMailbox(const CMailbox& mailbox);

// The line as it is when it is ASCII, or holds encoded words or data fields.
std::string StoredAddressLine(std::string_view line);

// The subject as the header stores it, but for a word that would not come back.
std::string StoredSubject(std::string_view subject);

// line: decoded.  Replaces the first field of that name, or appends one.
void SetAddressLine(CMimeHeader& header, std::string_view field, std::string_view line);
void SetStoredLine(CMimeHeader& header, std::string_view field, std::string stored);  // as it is

bool IsAddressField(std::string_view fieldName) noexcept;  // From, To, Reply-To, CC, BCC

#endif  // LISTHAVEN_ENGINE_ADDRESSLINE_H
