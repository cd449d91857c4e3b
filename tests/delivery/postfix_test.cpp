// The send daemon against the mail and name servers of this machine.

#include "tests/delivery/deliveryfixture.h"
#include "tests/servers/mailserver.h"
#include "tests/servers/nameserver.h"
#include "tests/servers/popserver.h"
#include "tests/servers/smtpsink.h"
#include "tests/smtpscript/scriptedserver.h"

namespace SendDaemon {

namespace {

using TestServers::CMailServer;
using TestServers::CNameServer;
using TestServers::CPopServer;
using TestServers::CSmtpSink;
using TestServers::SinkKeeps;

class RealServers : public CDeliveryFixture {
protected:
    static std::string Message(const std::string& to, const std::string& more = "") {
        return "Received: from inside.example\r\nX-Lhv-Return-Path-Override: bounces@harbour.example\r\n" + more +
               "From: News <news@harbour.example>\r\nTo: " + to +
               "\r\nX-Secret: yes\r\nSubject: One\r\nMessage-ID: <1@harbour.example>\r\n\r\nText\r\n.\r\n";
    }
    std::string MakeDirectAccount(std::uint16_t port, const CNameServer& names) {
        return MakeAccount("", port,
                           {{"SendMethod", "DirectMessageSender"},
                            {"DnsHostAddress", "127.0.0.1"},
                            {"DnsPort", std::to_string(names.GetPort())},
                            {"DnsTimeout", "5"},
                            {"DnsRetries", "1"}});
    }
    static bool Has(const std::string& text, std::string_view part) { return text.find(part) != std::string::npos; }
    static void ExpectClean(const std::string& message) {
        for (const char* kept : {"\nSubject: One\n", "\nFrom: News <news@harbour.example>\n", "\n\nText\n.\n"})
            EXPECT_TRUE(Has(message, kept)) << kept << "\n" << message;
        for (const char* removed : {"from inside", "X-Lhv-", "X-Secret"})
            EXPECT_FALSE(Has(message, removed)) << removed << "\n" << message;
    }
};

// What an account that relays through the server comes to.
struct CRelayRow {
    const char* recipients;
    std::uint16_t port;
    CSettings settings;
    const char* folders;
    const char* ledger;
    const char* later;  // folders, when an hour has passed
    std::string more = {};
};

std::vector<CRelayRow> GetRelayRows(const CMailServer& server) {
    const std::string& certificate = server.GetCertificate();
    const CSettings ann = {{"Login", "ann"}, {"Password", "ann pw"}, {"EnableTrace", "1"}};
    const CSettings bob = {{"Login", "ann"}, {"Password", "bob pw"}};
    CSettings quiet = {{"EnableTrace", "1"}, {"TurnOffDeliveryNotifications", "True"}};
    quiet.insert(quiet.end(), {{"TlsMode", "Required"}, {"TlsCaFile", certificate}});
    CSettings implicit = {{"TlsMode", "Implicit"}, {"TlsCaFile", certificate}};
    implicit.insert(implicit.end(), {ann[0], ann[1]});
    const std::string large = "X-Large: " + std::string(CMailServer::SizeLimit, 'x') + "\r\n";
    const std::uint16_t port = server.GetPort();
    return {
        {"tls@there.example", port, quiet, "Sent", "sent 250", "Sent"},
        {"login@there.example", server.GetAuthPort(), ann, "Sent", "sent 250", "Sent"},
        {"implicit@there.example", server.GetTlsPort(), implicit, "Sent", "sent 250", "Sent"},
        {"wrong@there.example", server.GetAuthPort(), bob, "Deferred", "deferred 535", "Deferred"},
        {"large@there.example", port, {{"KeepHeaders", "X-Large"}}, "Errors", "failed", "Errors", large},
        {"unwanted@there.example",
         port,
         {{"KeepHeaders", "X-Refuse-Me"}},
         "Errors",
         "failed 550",
         "Errors",
         "X-Refuse-Me: yes\r\n"},
        {"fine@there.example, gone@there.example, busy@there.example",
         port,
         {},
         "Deferred Errors Sent",
         "sent 250, failed 550, deferred 450",
         "Errors Sent*2"},
    };
}

// Accounts of one daemon on one Postfix; what it puts off comes back later.
TEST_F(RealServers, RelayThroughPostfix) {
    CMailServer server;
    if (!server.IsInstalled()) GTEST_SKIP() << server.WhyNot();
    server.AddUser("ann", "ann pw");
    server.AnswerRecipient("busy@there.example", "450 4.2.1 Try again later");
    server.AnswerRecipient("gone@there.example", "550 5.1.1 Unknown here");
    ASSERT_TRUE(server.Start()) << server.WhyNot();

    const std::vector<CRelayRow> rows = GetRelayRows(server);
    std::vector<std::string> accounts;
    for (const CRelayRow& row : rows) {
        accounts.push_back(MakeAccount("127.0.0.1", row.port, row.settings));
        Queue(accounts.back(), Message(row.recipients, row.more));
    }
    Run();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::string texts;
        EXPECT_EQ(DescribeFolders(accounts[i]), rows[i].folders) << rows[i].recipients;
        EXPECT_EQ(DescribeLedger(accounts[i], texts), rows[i].ledger) << rows[i].recipients << "\n" << texts;
    }
    std::string trace;
    ASSERT_TRUE(ReadWholeFile(JoinPath(GetLogFolder(), "SmtpTrace.txt"), trace));
    EXPECT_TRUE(Has(trace, "RCPT TO:<tls@there.example> NOTIFY=NEVER")) << trace;
    EXPECT_TRUE(Has(trace, "RCPT TO:<login@there.example>\n") || Has(trace, "RCPT TO:<login@there.example>\r"))
        << trace;
    EXPECT_FALSE(Has(trace, "YW5uIHB3")) << "the password";
    std::size_t copies = 0;
    for (const auto& entry : std::filesystem::directory_iterator(JoinPath(GetLogFolder(), "Sent")))
        copies += entry.path().string().ends_with(".eml.clean") ? 1 : 0;
    EXPECT_EQ(copies, 2U);

    server.AnswerRecipient("busy@there.example", "");
    m_shift = 3600;
    Run();
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(DescribeFolders(accounts[i]), rows[i].later);
    ASSERT_TRUE(server.WaitForMessages(5)) << server.GetLog();
    std::map<std::string, int> arrived;
    for (const std::string& message : server.GetMessages()) {
        ExpectClean(message);
        const std::size_t at = message.find("Delivered-To: ") + 14;
        ++arrived[message.substr(at, message.find('@', at) - at)];
    }
    EXPECT_EQ(arrived,
              (std::map<std::string, int>{{"tls", 1}, {"login", 1}, {"implicit", 1}, {"fine", 1}, {"busy", 1}}));
}

// A POP3 log-in that fails is no reason to keep the message back.
TEST_F(RealServers, PopBeforeSmtp) {
    CPopServer pop;
    if (!pop.IsInstalled()) GTEST_SKIP() << pop.WhyNot();
    CSmtpSink sink;
    if (!sink.IsInstalled()) GTEST_SKIP() << sink.WhyNot();
    pop.AddUser("ann", "ann pw");
    ASSERT_TRUE(pop.Start() && sink.Start()) << pop.WhyNot() << sink.WhyNot();
    MakeFile("Lhv.cfg", "[Execution]\nDebugMode=1\n");
    for (const char* password : {"ann pw", "wrong"}) {
        const std::string account = MakeAccount("127.0.0.1", sink.GetPort(),
                                                {{"PopHostName", "127.0.0.1"},
                                                 {"PopPort", std::to_string(pop.GetPort())},
                                                 {"PopTlsMode", "None"},
                                                 {"PopLogin", "ann"},
                                                 {"PopPassword", password}});
        Queue(account, Message("a@there.example"));
        Run();
        EXPECT_EQ(DescribeFolders(account), "Sent");
        const bool isWrong = std::string_view(password) == "wrong";
        EXPECT_EQ(m_log->Contains(2, "POP3 authentication failed"), isWrong);
        EXPECT_EQ(m_log->Contains(0, "The password for ann is sent"), isWrong);  // APOP sends none
        const std::string log = pop.GetLog();
        EXPECT_EQ(Has(log, "method=PLAIN"), isWrong) << log;  // USER and PASS, after APOP
        EXPECT_TRUE(Has(log, "Login: user=<ann>, method=APOP")) << log;
    }
    EXPECT_EQ(sink.CountMessages(), 2U);
    std::string trace;
    ASSERT_TRUE(ReadWholeFile(JoinPath(GetLogFolder(), "PopTrace.txt"), trace));
    EXPECT_TRUE(Has(trace, "APOP [login] [digest]") && Has(trace, "PASS [password]")) << trace;
    EXPECT_FALSE(Has(trace, "wrong")) << trace;
}

// The first exchanger is down, the second refuses: "two.example" and
// "one.example" each get their own copy from the third.
TEST_F(RealServers, DirectDeliveryPerDomain) {
    CSmtpSink third({}, SinkKeeps::Messages, "127.0.0.4");
    if (!third.IsInstalled()) GTEST_SKIP() << third.WhyNot();
    ASSERT_TRUE(third.Start()) << third.WhyNot();
    CSmtpSink second({"-r", "RCPT"}, SinkKeeps::Messages, "127.0.0.3", third.GetPort());
    ASSERT_TRUE(second.Start()) << second.WhyNot();
    CNameServer names;
    if (!names.IsInstalled()) GTEST_SKIP() << names.WhyNot();
    for (const char* domain : {"one.example", "two.example"}) {
        names.AddExchanger(domain, "mx3.example", 30);
        names.AddExchanger(domain, "mx1.example", 10);
        names.AddExchanger(domain, "mx2.example", 20);
    }
    names.AddAddress("mx1.example", "127.0.0.2");
    names.AddAddress("mx2.example", "127.0.0.3");
    names.AddAddress("mx3.example", "127.0.0.4");
    ASSERT_TRUE(names.Start()) << names.WhyNot();

    const std::string account = MakeDirectAccount(third.GetPort(), names);
    Queue(account, Message("a@one.example, b@two.example, c@ONE.example, d@nowhere.example"));
    Run();
    std::string texts;
    EXPECT_EQ(DescribeFolders(account), "Errors Sent");
    EXPECT_EQ(DescribeLedger(account, texts), "sent 250, sent 250, sent 250, failed") << texts;
    const std::vector<std::string> arrived = third.GetMessages();
    ASSERT_EQ(arrived.size(), 2U);
    const bool isOneFirst = Has(arrived[0], "<a@one.example>");
    const std::string& one = arrived[isOneFirst ? 0 : 1];
    const std::string& two = arrived[isOneFirst ? 1 : 0];
    EXPECT_TRUE(Has(one, "<c@ONE.example>") && !Has(one.substr(0, one.find("From: ")), "b@two.example")) << one;
    EXPECT_TRUE(Has(two, "X-Rcpt-Args: <b@two.example>") && Has(two, "<bounces@harbour.example>")) << two;
    for (const std::string& message : arrived)
        ExpectClean(message);
    int refusals = 0;
    for (const std::string& line : m_log->GetLines(3))
        refusals += Has(line, "Cannot send message through the server.");
    EXPECT_EQ(refusals, 4);
    EXPECT_EQ(second.CountMessages(), 0U);
}

// An exchanger that may have the message is the last one that is tried.
TEST_F(RealServers, NoSecondExchangerForWhatMayBeTaken) {
    SmtpScript::CScriptedServer first({.turns = {{SmtpScript::Step::EndOfData, SmtpScript::Does::Close}}}, "127.0.0.2");
    CSmtpSink second({}, SinkKeeps::Messages, "127.0.0.3", first.GetPort());
    if (!second.IsInstalled()) GTEST_SKIP() << second.WhyNot();
    CNameServer names;
    if (!names.IsInstalled()) GTEST_SKIP() << names.WhyNot();
    names.AddExchanger("one.example", "mx1.example", 10);
    names.AddExchanger("one.example", "mx2.example", 20);
    names.AddAddress("mx1.example", "127.0.0.2");
    names.AddAddress("mx2.example", "127.0.0.3");
    ASSERT_TRUE(names.Start() && second.Start()) << names.WhyNot() << second.WhyNot();
    const std::string account = MakeDirectAccount(first.GetPort(), names);
    Queue(account, Message("a@one.example"));
    Run();
    std::string texts;
    EXPECT_EQ(DescribeFolders(account), "Deferred");
    EXPECT_EQ(DescribeLedger(account, texts), "deferred");
    EXPECT_TRUE(Has(texts, "may have it")) << texts;
    first.SetScript({});
    m_shift = 3600;
    Run();
    EXPECT_EQ(DescribeFolders(account), "Sent");
    EXPECT_EQ(first.GetMessages().size(), 1U);
    EXPECT_EQ(second.CountMessages(), 0U);
}

}  // namespace

}  // namespace SendDaemon
