// cleanedcopy.h - the form in which a queued message goes to a server.
//
// Only the kept header fields go along, in the order of the list: From, To,
// Reply-To, Subject, CC, Date, X-Mailer, Content-Type,
// Content-Transfer-Encoding, MIME-Version, X-Loop, X-ZQ-Loop, X-Priority,
// X-Gateway-From, X-Gateway, Sender; then what the account adds, in the order
// of the message.  Never BCC nor a control field (X-Lhv-, X-Zq-).  Of a field
// that may stand once only the first is taken; To, CC and Reply-To are joined.
// How values are written: wireheader.h; what happens to the body: wirebody.h.
//
// Errors   false, with the reason in the last-error text; no file is left (by a crash: half of it).
// Threads  Any.
// Source   RFC 5322, 2047, 2045, 6532.

#ifndef LISTHAVEN_SENDDAEMON_CLEANEDCOPY_H
#define LISTHAVEN_SENDDAEMON_CLEANEDCOPY_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace SendDaemon {

// As the list was given, one name twice; BCC is in it and yet never sent.
std::span<const std::string_view> GetKeptHeaders() noexcept;  // 18 entries

struct CCleanOptions {
    std::string_view keepHeaders;  // further names, separated by commas
    bool has8BitMime = true;       // else bytes above 127 in a body become quoted-printable
    bool hasSmtpUtf8 = false;      // addresses beyond ASCII may stand in the header as they are
};

struct CCleanResult {
    std::uint64_t size = 0;      // octets, as on the wire without the dots
    bool is8Bit = false;         // the body has bytes above 127
    bool needsSmtpUtf8 = false;  // the header names addresses beyond ASCII; without hasSmtpUtf8 with '?'
};

// target is replaced, and not flushed.  Line ends are CR LF; a CR or LF that
// stands alone becomes one.  Streams: memory does not grow with the body.
bool WriteCleanedCopy(std::string_view source, std::string_view target, const CCleanOptions& options,
                      CCleanResult& result);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_CLEANEDCOPY_H
