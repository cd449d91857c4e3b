// dnssession.h - asks a name server for mail exchangers and addresses.
//
// Errors   A DnsStatus; GetText() is the reason in words.
// Threads  One at a time; Cancel() from any other at any moment.
// Source   RFC 1035, 5321 (5.1), 7505 (null MX).

#ifndef LISTHAVEN_NET_DNSSESSION_H
#define LISTHAVEN_NET_DNSSESSION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Net {

struct DnsOptions {
    std::string server;                        // an address, or a name that the system knows; "": the system's servers
    std::uint16_t port = 0;                    // 0: 53
    std::chrono::milliseconds timeout{10000};  // of the whole question, all tries together
    int tries = 4;
    std::string traceFile;  // appended; "": none
};

enum class DnsStatus : std::uint8_t {
    Found,
    NoName,     // there is no such name
    NoRecords,  // the name has none of the kind
    NullMx,     // the domain takes no mail
    TimedOut,
    ServerFailed,  // SERVFAIL, REFUSED, cannot be reached, nonsense
    Invalid,       // not a name
    Cancelled,
};
bool IsTemporary(DnsStatus status) noexcept;  // asking later may help

struct MailExchanger {
    std::uint16_t preference = 0;
    std::string host;  // without final dot
};

class CDnsSession {
public:
    CDnsSession();
    CDnsSession(const CDnsSession&) = delete;
    CDnsSession& operator=(const CDnsSession&) = delete;
    ~CDnsSession();

    bool Open(const DnsOptions& options);  // false: the server's address cannot be used

    // Sorted by preference, equal ones shuffled.  Not the domain itself when it has none.
    DnsStatus FindMailExchangers(std::string_view domain, std::vector<MailExchanger>& exchangers);
    // IPv4 and IPv6, as texts; an address is its own.  With the system's servers its hosts file too.
    DnsStatus FindAddresses(std::string_view host, std::vector<std::string>& addresses);

    void Close() noexcept;
    void Cancel() noexcept;  // the running question, or the next one
    std::string GetText() const;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_DNSSESSION_H
