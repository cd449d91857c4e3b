// nameserver.h - dnsmasq, which knows the records of one test and nothing else.

#ifndef LISTHAVEN_TESTS_SERVERS_NAMESERVER_H
#define LISTHAVEN_TESTS_SERVERS_NAMESERVER_H

#include "tests/servers/testserver.h"

namespace TestServers {

// Names below "example" that it does not know do not exist; any other is
// answered with REFUSED.
class CNameServer : public CTestServer {
public:
    CNameServer() : CTestServer("dnsmasq") {}

    // Before Start().
    void AddExchanger(const std::string& domain, const std::string& host, int preference);
    void AddAddress(const std::string& host, const std::string& address);  // IPv4 or IPv6
    void AddOption(const std::string& option) { m_records.push_back(option); }

    std::uint16_t GetPort() const { return m_port; }
    std::size_t CountQueries(std::string_view type, std::string_view name) const;  // such as ("MX", "lists.example")

private:
    bool Prepare(CCommand& command) override;

    std::vector<std::string> m_records;
    std::uint16_t m_port = 0;
};

}  // namespace TestServers

#endif  // LISTHAVEN_TESTS_SERVERS_NAMESERVER_H
