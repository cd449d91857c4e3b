// popserver.h - Dovecot as a POP3 server, with and without TLS.

#ifndef LISTHAVEN_TESTS_SERVERS_POPSERVER_H
#define LISTHAVEN_TESTS_SERVERS_POPSERVER_H

#include "tests/servers/testserver.h"

namespace TestServers {

// APOP, USER and PASS, CAPA, STLS; the certificate is for localhost and
// 127.0.0.1 and signed by itself.  After a wrong password the server makes its
// clients wait for 4 seconds: have that as the last thing of a test.
class CPopServer : public CTestServer {
public:
    CPopServer() : CTestServer("dovecot", Ending::Ask) {}

    bool IsInstalled() override;
    void AddUser(const std::string& login, const std::string& password);  // before Start()
    // At any time; the lines end with CR LF.  The order of names is the order
    // of messages.
    void AddMessage(const std::string& login, const std::string& name, const std::string& message);
    std::size_t CountMessages(const std::string& login) const;

    std::uint16_t GetPort() const { return m_port; }
    std::uint16_t GetTlsPort() const { return m_tlsPort; }  // TLS from the first byte
    const std::string& GetCertificate() const { return m_certificate.certificateFile; }
    std::string GetAuthSocket() const { return OnServer("auth"); }   // of other servers, for their log-ins
    std::string GetMailFolder() const { return m_folder / "mail"; }  // a Maildir for each user

private:
    bool Prepare(CCommand& command) override;
    std::string MailFolder(const std::string& login) const { return GetMailFolder() + "/" + login; }

    std::string m_users;
    CTestCertificate m_certificate;
    std::uint16_t m_port = 0;
    std::uint16_t m_tlsPort = 0;
};

}  // namespace TestServers

#endif  // LISTHAVEN_TESTS_SERVERS_POPSERVER_H
