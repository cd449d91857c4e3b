// mailserver.h - Postfix, as the mail exchanger of every domain below
// "example", and Dovecot for its log-ins and mailboxes.  Needs root.

#ifndef LISTHAVEN_TESTS_SERVERS_MAILSERVER_H
#define LISTHAVEN_TESTS_SERVERS_MAILSERVER_H

#include <map>

#include "tests/servers/popserver.h"

namespace TestServers {

// STARTTLS, PIPELINING, SIZE, DSN, SMTPUTF8, 8BITMIME.  A header X-Refuse-Me
// gets 550 after the data.  The certificate is for localhost and 127.0.0.1 and
// signed by itself.  Mail for "login@" and "login+anything@" any domain is for
// that user's mailbox; mail for bounce.example is taken and bounces; all other
// mail is for one mailbox, see GetMessages().
class CMailServer : public CTestServer {
public:
    static constexpr std::uint64_t SizeLimit = 200000;

    CMailServer() : CTestServer("postfix", Ending::Ask) {}

    bool IsInstalled() override;
    void AddUser(const std::string& login, const std::string& password);  // before Start()

    // What RCPT gets for the address, such as "450 4.2.1 Try again later" or
    // "550 5.1.1 Unknown"; "" takes it again.  At any time, for connections
    // that come afterwards.
    void AnswerRecipient(const std::string& address, const std::string& answer);

    std::uint16_t GetPort() const { return m_port; }          // takes mail for *.example, no log-in
    std::uint16_t GetAuthPort() const { return m_authPort; }  // only after a log-in, without TLS
    std::uint16_t GetTlsPort() const { return m_tlsPort; }    // likewise, TLS from the first byte
    const CPopServer& GetMailboxes() const { return m_mailboxes; }
    const std::string& GetCertificate() const { return m_certificate.certificateFile; }

    // What nobody else has got so far, in no order.  Postfix delivers after it
    // has answered: wait with WaitForMessages().  "Delivered-To: a@b" says to whom.
    std::vector<std::string> GetMessages() const;
    std::size_t CountMessages() const;
    bool WaitForMessages(std::size_t count) const;
    bool WaitForDelivery() const;  // of all that was taken, and of the bounces of it

private:
    bool Prepare(CCommand& command) override;
    bool MakeQueue(std::string& output) const;
    void WriteAnswers();

    CPopServer m_mailboxes;
    std::string m_users;  // address patterns and their mailboxes
    CTestCertificate m_certificate;
    std::map<std::string, std::string> m_answers;
    std::uint16_t m_port = 0;
    std::uint16_t m_authPort = 0;
    std::uint16_t m_tlsPort = 0;
};

}  // namespace TestServers

#endif  // LISTHAVEN_TESTS_SERVERS_MAILSERVER_H
