// mailworld.h - people with mailboxes, a Postfix and a Dovecot between them, and
// the programs of Listhaven, which keep lists with mailboxes there too.
//
// NAME@home.example and NAME+anything@lists.example are the mailbox NAME;
// mail for bounce.example bounces.

#ifndef LISTHAVEN_TESTS_INTEGRATION_MAILWORLD_H
#define LISTHAVEN_TESTS_INTEGRATION_MAILWORLD_H

#include <map>
#include <string>
#include <vector>

#include "tests/programs/programrunner.h"
#include "tests/servers/mailserver.h"

struct CLetter {
    std::string from;  // also the envelope sender
    std::string to;
    std::string subject;
    std::string body = "Hello\r\n";
    std::string more = {};  // header lines (CR LF)
};

struct CMail {
    explicit CMail(std::string whole);
    std::string Field(const char* name) const;  // unfolded and decoded
    std::string text;                           // as it lies in the mailbox
    std::string subject;                        // without the signature
    std::string body;                           // plain text
};

class CMailWorld {
public:
    explicit CMailWorld(const std::vector<std::string>& mailboxes);

    bool IsInstalled() { return m_server.IsInstalled(); }  // false: WhyNot()
    bool Start();                                          // likewise
    const std::string& WhyNot() const { return m_server.WhyNot(); }
    const CProgramRunner& Run() const { return m_runner; }

    // The list's commands go to MAILBOX+cmd@lists.example, its posts to
    // MAILBOX@lists.example; each sender is answered as often as he asks.
    void MakeList(const std::string& name, const std::string& mailbox, const std::vector<std::string>& options = {});
    void Set(const std::string& section, const std::string& key, const std::string& value) const;

    void Send(const CLetter& letter);  // straight to Postfix
    void Reply(const std::string& from, const CMail& mail, const std::string& more = {}, const char* to = "Reply-To");

    // lhvserver, when all mail is where it belongs: one cycle of every list, one
    // pass of sending; then again all mail is where it belongs.
    void Serve();
    // The same, killed after that time; false when it had ended before.
    bool ServeAndKill(std::chrono::milliseconds after);

    std::vector<CMail> Read(const std::string& mailbox);  // by POP3; nothing is removed
    // "SUBJECT" or "SUBJECT*3" of what is there, in the order of the alphabet, "; " between them.
    std::string Subjects(const std::string& mailbox);
    std::size_t CountMail();  // in the mailboxes of people
    void Refuse(const std::string& address) { m_server.AnswerRecipient(address, "550 5.1.1 Unknown here"); }
    bool IsMember(const std::string& list, const std::string& address) const;

private:
    TestServers::CMailServer m_server;
    CProgramRunner m_runner;
    std::vector<std::string> m_people;
    int m_letters = 0;
};

#endif  // LISTHAVEN_TESTS_INTEGRATION_MAILWORLD_H
