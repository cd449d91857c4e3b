// dnsanswer.h - what an answer of a name server says, and what is a name.
//
// Errors   DnsStatus; nothing of a bad answer is used.
// Threads  Any.

#ifndef LISTHAVEN_NET_DNSANSWER_H
#define LISTHAVEN_NET_DNSANSWER_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "net/dnssession.h"

namespace Net {

// Letters, digits, "-" and "_" in labels of at most 63; without final dot.
bool IsHostName(std::string_view name) noexcept;

// "192.0.2.1", "2001:db8::1", "[192.0.2.1]", "[IPv6:2001:db8::1]", in the
// usual form afterwards.
bool ParseHostAddress(std::string_view text, std::string& address);

// Appends what the answer holds.  NoRecords when it is another kind only.
DnsStatus ReadExchangers(std::span<const unsigned char> answer, std::vector<MailExchanger>& exchangers);
DnsStatus ReadIpv4Addresses(std::span<const unsigned char> answer, std::vector<std::string>& addresses);
DnsStatus ReadIpv6Addresses(std::span<const unsigned char> answer, std::vector<std::string>& addresses);

// By preference, equal ones in an order of chance (RFC 5321, 5.1).  What is no
// host name goes; one named twice stays where it stands first.  NullMx when
// "." is all there is, ServerFailed when nothing is left.
DnsStatus ArrangeExchangers(std::vector<MailExchanger>& exchangers, std::uint32_t seed);

}  // namespace Net

#endif  // LISTHAVEN_NET_DNSANSWER_H
