// utf8text.h - texts and header lines of any message, in UTF-8.
//
// Errors   Nothing throws but std::bad_alloc.
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_UTF8TEXT_H
#define LISTHAVEN_ENGINE_UTF8TEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "mime/mailbox.h"

class CMimeHeader;
class CMimeText;

inline constexpr std::size_t LongestHeaderLine = 65536;  // bytes that are looked at; what is behind is cut off

bool IsAsciiText(std::string_view text) noexcept;

// One line without control characters.  stored: as it stands in the header.  A
// word in an unknown character set gives what its bytes are.
std::string HeaderLineInUtf8(std::string_view stored);
std::string HeaderFieldInUtf8(const CMimeHeader& header, std::string_view name);  // the first; "" when absent

// The whole line is one encoded word: so a line is stored that came with bytes
// above 127, the addresses of an address line in it.
bool IsOneWord(std::string_view stored);

// Parsed as stored, names decoded afterwards: no word hides a separator.
std::vector<CMailbox> MailboxesInUtf8(std::string_view stored);

// False, and the text as it is, when its character set is unknown.
bool BodyInUtf8(const CMimeText& entity, std::string& text);
// Changes the entity to UTF-8 likewise; one that is UTF-8 or plain ASCII is only called so.
bool BringToUtf8(CMimeText& entity);

// At most that many bytes, whole characters; UTF-8.
std::string_view CutUtf8(std::string_view text, std::size_t most) noexcept;

#endif  // LISTHAVEN_ENGINE_UTF8TEXT_H
