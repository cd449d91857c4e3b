#include "tests/servers/nameserver.h"

namespace TestServers {

void CNameServer::AddExchanger(const std::string& domain, const std::string& host, int preference) {
    AddOption("--mx-host=" + domain + ',' + host + ',' + std::to_string(preference));
}

void CNameServer::AddAddress(const std::string& host, const std::string& address) {
    AddOption("--host-record=" + host + ',' + address);
}

std::size_t CNameServer::CountQueries(std::string_view type, std::string_view name) const {
    const std::string log = GetLog();
    const std::string line = "query[" + std::string(type) + "] " + std::string(name) + " from";
    std::size_t count = 0;
    for (std::size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1))
        ++count;
    return count;
}

bool CNameServer::Prepare(CCommand& command) {
    m_port = FindFreePort();
    command.port = m_port;
    command.arguments = {"--keep-in-foreground",
                         "--conf-file=/dev/null",
                         "--no-resolv",
                         "--no-hosts",
                         "--no-poll",
                         "--pid-file",
                         "--log-facility=-",
                         "--log-queries",
                         "--bind-interfaces",
                         "--local=/example/",
                         "--listen-address=127.0.0.1",
                         "--port=" + std::to_string(m_port)};
    // As root it would become a user that cannot read the temporary folder.
    if (IsAdministrator()) command.arguments.push_back("--user=root");
    command.arguments.insert(command.arguments.end(), m_records.begin(), m_records.end());
    return true;
}

}  // namespace TestServers
