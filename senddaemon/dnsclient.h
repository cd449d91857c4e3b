// dnsclient.h - the mail exchangers of a domain, and their addresses.
//
// Errors   false, with the reason in the last-error text; IsTemporary() says
//          whether asking later may help.
// Threads  One at a time; Cancel() from any other at any moment.
// Source   RFC 5321 (5.1), 7505 (null MX).

#ifndef LISTHAVEN_SENDDAEMON_DNSCLIENT_H
#define LISTHAVEN_SENDDAEMON_DNSCLIENT_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "net/connection.h"
#include "net/dnssession.h"
#include "platform/dnsquery.h"

namespace SendDaemon {

class CConfiguration;

// Which name server an account asks.
struct CDnsSettings {
    std::string server;         // "": those of the system
    std::uint16_t port = 0;     // 0: 53
    std::int32_t timeout = 10;  // seconds, for a whole question
    std::int32_t retries = 4;   // after the first try

    // From the account's DnsHostAddress, DnsPort, DnsTimeout and DnsRetries.
    // A missing one has the value above; what is no number in range fails.
    bool Read(const CConfiguration& config);
};

class CDnsClient {
public:
    virtual ~CDnsClient() = default;

    // In the order in which they are to be tried; never empty after a success.
    virtual bool GetMailExchangers(const std::string& domain, std::vector<std::string>& hosts) = 0;
    // Those that this client's name server knows, IPv4 first; an address is its own.
    virtual bool GetAddresses(const std::string& host, std::vector<std::string>& addresses) = 0;
    // What runs fails, and so does all that follows until AllowAgain().
    virtual void Cancel() noexcept = 0;
    virtual void AllowAgain() noexcept = 0;

    bool IsTemporary() const noexcept { return m_isTemporary; }  // of the last failure

    // GetAddresses() for a connection; the client must outlive it.
    Net::Resolver MakeResolver();

protected:
    bool Fail(bool isTemporary, const std::string& text);

private:
    bool m_isTemporary = false;
};

// Asks a name server itself.  Exchangers are sorted by preference, equal ones
// shuffled; a domain that has none but has an address is its own.
class CatalystDnsClient : public CDnsClient {
public:
    explicit CatalystDnsClient(CDnsSettings settings);

    bool GetMailExchangers(const std::string& domain, std::vector<std::string>& hosts) override;
    bool GetAddresses(const std::string& host, std::vector<std::string>& addresses) override;
    void Cancel() noexcept override;
    void AllowAgain() noexcept override { m_isCancelled = false; }

private:
    bool Connect();
    template <typename Question>
    Net::DnsStatus Ask(const Question& question);
    bool FailToConnect();
    bool FailAs(Net::DnsStatus status);

    CDnsSettings m_settings;
    Net::CDnsSession m_session;
    bool m_isOpen = false;
    std::atomic<bool> m_isCancelled = false;
};

// Asks by the system's own call: its servers, its limits of time, its order,
// and no addresses instead of exchangers.  Cancel() ends no call for exchangers
// that is under way.
class DnsQueryDnsClient : public CDnsClient {
public:
    explicit DnsQueryDnsClient(Platform::NameServerChoice server = {});

    bool GetMailExchangers(const std::string& domain, std::vector<std::string>& hosts) override;
    bool GetAddresses(const std::string& host, std::vector<std::string>& addresses) override;
    void Cancel() noexcept override;
    void AllowAgain() noexcept override;

private:
    Platform::NameServerChoice m_server;
    CatalystDnsClient m_addresses;
    std::atomic<bool> m_isCancelled = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DNSCLIENT_H
