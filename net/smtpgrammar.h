// smtpgrammar.h - replies, commands and addresses of SMTP as text; no I/O.
//
// Errors   false; nothing is cut or repaired.  Nothing throws but std::bad_alloc.
// Threads  Any; an object belongs to one at a time.
// Source   RFC 5321 (4.1, 4.2), 2034 and 3463 (enhanced codes), 1870, 3461,
//          4954, 6152, 6531.

#ifndef LISTHAVEN_NET_SMTPGRAMMAR_H
#define LISTHAVEN_NET_SMTPGRAMMAR_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Net {

// Bytes of a line of a reply without its end.  The standard says 512; servers
// in use go beyond that.
inline constexpr std::size_t MaxReplyLine = 4096;
inline constexpr std::size_t MaxReplyLines = 128;
inline constexpr std::size_t MaxReplyText = 2048;  // bytes of text that are kept

struct SmtpReply {
    int code = 0;          // 200 to 599
    std::string enhanced;  // "5.1.1"; "" when the server gave none
    std::string text;      // all lines joined by blanks; valid UTF-8 without control characters
};

// Takes a reply line by line.
class CSmtpReplyParser {
public:
    enum class Step { More, Done, Bad };

    void Start(bool keepLines = false);  // for the next reply
    Step Add(std::string_view line);     // without its end; nothing after Done or Bad
    const SmtpReply& GetReply() const noexcept { return m_reply; }
    const std::vector<std::string>& GetLines() const noexcept { return m_lines; }  // texts, if kept

private:
    void AddText(std::string_view text);

    SmtpReply m_reply;
    std::vector<std::string> m_lines;
    std::size_t m_count = 0;
    bool m_keepLines = false;
};

// "" when text does not begin with an enhanced code of the reply code's class.
std::string_view FindEnhancedCode(int code, std::string_view text) noexcept;

// One line of valid UTF-8: control characters become blanks, bytes of other
// encodings "?", text beyond the limit goes.
std::string CleanReplyText(std::string_view text, std::size_t limit = MaxReplyText);

// What the server said to EHLO.
struct SmtpCapabilities {
    std::string serverName;   // as it calls itself
    bool isExtended = false;  // it knows EHLO
    bool hasPipelining = false;
    bool has8BitMime = false;
    bool hasStartTls = false;
    bool hasEnhancedCodes = false;
    bool hasDsn = false;
    bool hasSmtpUtf8 = false;
    bool hasSize = false;
    std::uint64_t sizeLimit = 0;              // octets; 0: none named
    std::vector<std::string> authMechanisms;  // upper case

    bool HasAuth(std::string_view mechanism) const;  // upper case
};
SmtpCapabilities ParseCapabilities(const std::vector<std::string>& lines);  // texts of the reply to EHLO

enum class AddressSyntax : std::uint8_t {
    Good,
    NeedsSmtpUtf8,  // good, for servers that take UTF-8 in addresses
    Bad,
};
// LOCAL@DOMAIN, LOCAL@[literal] or postmaster.  The local part may be quoted.
// More is let through than the standard allows (dots in any place of the local
// part, long local parts), since the server decides; but nothing that could
// end the command or the address in it.
AddressSyntax CheckAddress(std::string_view address) noexcept;

struct MailParameters {
    std::uint64_t size = 0;  // 0: not said
    bool is8Bit = false;
    bool isSmtpUtf8 = false;
};

// These append a line with its end.  False, and nothing appended, for an
// address or argument that is not fit for it.
bool AppendMailFrom(std::string& commands, std::string_view sender, const MailParameters& parameters);  // "": <>
bool AppendRecipient(std::string& commands, std::string_view recipient, bool neverNotify);
bool AppendCommand(std::string& commands, std::string_view verb, std::string_view argument = {});

std::string EncodeBase64(std::string_view bytes);  // one line

}  // namespace Net

#endif  // LISTHAVEN_NET_SMTPGRAMMAR_H
