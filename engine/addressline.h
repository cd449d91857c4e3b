// addressline.h - address header lines in the form in which they are stored.
//
// A header value with bytes that need it is stored as one encoded word, the
// address in it, and "_" and "?" in such an address do not come back.  Lines
// stored here have nothing but display names encoded.
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

// line: decoded.  Replaces the first field of that name, or appends one.
void SetAddressLine(CMimeHeader& header, std::string_view field, std::string_view line);
void SetStoredLine(CMimeHeader& header, std::string_view field, std::string stored);  // as it is

bool IsAddressField(std::string_view fieldName) noexcept;  // From, To, Reply-To, CC, BCC

#endif  // LISTHAVEN_ENGINE_ADDRESSLINE_H
