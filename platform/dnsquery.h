// dnsquery.h - the mail exchangers of a domain by the system's own call.
//
// Errors   false, with the reason in failure.
// Threads  Any.

#ifndef LISTHAVEN_PLATFORM_DNSQUERY_H
#define LISTHAVEN_PLATFORM_DNSQUERY_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

struct MailExchangerFailure {
    std::string text;  // the system's words
    bool isTemporary = false;
};

// Which servers: those of the system, unless one is given.
struct NameServerChoice {
    std::string address;      // IPv4
    std::uint16_t port = 53;  // other ones only where the system can ask there
};

// Names without final dot in the order of the answer, without regard to
// preference; none when the domain exists without any; "" for a null MX.
// Takes as long as the system allows: on POSIX systems usually 5 s for each
// server and try.
bool QueryMailExchangers(const std::string& domain, std::vector<std::string>& hosts, MailExchangerFailure& failure,
                         const NameServerChoice& server = {});

// Whether the call above is the way to ask on this system.  True on Windows,
// whose resolver knows its networks and keeps a cache; elsewhere the call asks
// without limit of time and the answers are not sorted.  False under Wine, whose
// resolver cannot read the answers.
bool PrefersSystemMailExchangerQuery() noexcept;

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_DNSQUERY_H
