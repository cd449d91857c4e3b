// pop3grammar.h - replies, lists and commands of POP3 as text; no I/O.
//
// Errors   false; nothing is cut or repaired.  Nothing throws but std::bad_alloc.
// Threads  Any; an object belongs to one at a time.
// Source   RFC 1939, 2449 (line lengths, CAPA).

#ifndef LISTHAVEN_NET_POP3GRAMMAR_H
#define LISTHAVEN_NET_POP3GRAMMAR_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "net/pop3listing.h"

namespace Net {

// Bytes of a line without its end; the standard says 510.
inline constexpr std::size_t MaxPop3Line = 4096;
inline constexpr std::size_t MaxPop3Capabilities = 256;
inline constexpr std::size_t MaxPop3Messages = 500000;  // in one mailbox

struct Pop3Reply {
    bool isPositive = false;
    std::string_view text;  // of the line, behind +OK or -ERR
};
bool ParsePop3Reply(std::string_view line, Pop3Reply& reply);

// The challenge for APOP, with its angle brackets; "" when there is none, or
// when it is no message identifier: others can be chosen so that the digest
// tells the password.
std::string_view FindTimeStamp(std::string_view greeting);
std::string MakeApopDigest(std::string_view timeStamp, std::string_view password);  // "" when the system forbids MD5

// "2 320", of the reply to STAT; more may follow.
bool ParseMailboxStatus(std::string_view text, std::uint32_t& count, std::uint64_t& octets);

// May stand in a command: neither empty nor longer than 255, without control characters.
bool IsPop3Argument(std::string_view text) noexcept;

// What LIST or UIDL say, line by line.
class CPop3ListReader {
public:
    enum class Kind : std::uint8_t { Sizes, Uids };

    // listing keeps what it holds; a list of uids for other messages than those
    // is a bad one, unless it is empty.
    CPop3ListReader(Kind kind, CPop3Listing& listing);
    bool Add(std::string_view line);
    bool Finish();  // sorted by number; false when a number came twice

private:
    bool Store(std::uint32_t number, std::string_view value);

    Kind m_kind;
    CPop3Listing& m_listing;
    bool m_isKnown;  // the numbers are; sorted
    std::vector<bool> m_isSeen;
    std::size_t m_count = 0;
};

// Takes the dots off a multi-line reply that comes in pieces.
class CDotUnstuffer {
public:
    // The piece is the rest of a line if endsLine, else more of it follows.
    // Appends to text, lines with CR LF.  False at the end of the reply.
    bool Add(std::string_view piece, bool endsLine, std::string& text);

private:
    bool m_isLineStart = true;
    bool m_isDotHeld = false;  // a line began with it, and nothing followed yet
};

}  // namespace Net

#endif  // LISTHAVEN_NET_POP3GRAMMAR_H
