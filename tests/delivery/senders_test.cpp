// The senders by themselves: what they say when it goes wrong, and what
// settings make them say to a server.

#include "senddaemon/configuration.h"
#include "senddaemon/directmessagesender.h"
#include "senddaemon/smtpmessagesender.h"
#include "tests/delivery/deliveryfixture.h"
#include "tests/servers/nameserver.h"
#include "tests/smtpscript/scriptedserver.h"

namespace SendDaemon {

namespace {

using SmtpScript::CScript;
using SmtpScript::CScriptedServer;
using SmtpScript::Does;
using SmtpScript::Step;

class Senders : public CDeliveryFixture {
protected:
    // The last-error text; "" when somebody got the message.
    template <class Sender>
    std::string Send(const std::string& host, std::uint16_t port, const CSettings& settings,
                     const std::string& recipients) {
        m_log = std::make_shared<CLogRecorder>();
        SetMessageHandler(m_log);
        const CConfiguration config(GetAccountConfigPath(MakeAccount(host, port, settings)));
        const std::string file = MakeFile("message.eml", "From: a@b.example\r\n\r\nText\r\n");
        Sender sender;
        const bool isSent = sender.DoSend(config, "back@harbour.example", recipients, file);
        const std::string reason = GetLastErrorText();
        EXPECT_FALSE(std::filesystem::exists(file + ".clean"));
        return isSent ? std::string() : reason;
    }
};

}  // namespace

TEST_F(Senders, RelaySays) {
    struct CRow {
        CSettings settings;
        CScript script;
        const char* failure;
        int level;
        const char* log;
        const char* transcript = "";
    };
    const CScript login = {.turns = {{Step::Auth, Does::Reply, "535 5.7.8 Wrong"}}, .capabilities = {"AUTH LOGIN"}};
    const CSettings ann = {{"Login", "ann"}, {"Password", "pw"}};
    const char* noConnection = "Error while connecting to the server";
    const std::vector<CRow> rows = {
        {{}, {}, "", 3, "Successfully sent message from: \"back@harbour.example\" to: \"a@b.example\"."},
        {{{"HostName", ""}}, {}, noConnection, 2, "Error while connecting: No SMTP server is set for this account."},
        {{{"Timeout", "soon"}}, {}, noConnection, 2, "Error while connecting: Timeout is \"soon\""},
        {ann, {}, noConnection, 2, "Error while connecting: SMTP server does not support AUTH LOGIN"},
        {ann, login, noConnection, 2, "Error while connecting: AUTH LOGIN [password] -> 535 5.7.8 Wrong"},
        {ann, login, noConnection, 0, "The password for ann is sent to 127.0.0.1 without encryption."},
        {{},
         {.turns = {{Step::Rcpt, Does::Reply, "550 5.1.1 Gone"}}},
         "RCPT TO:<a@b.example> -> 550 5.1.1 Gone",
         2,
         "Error trying to send message from: \"back@harbour.example\" to \"a@b.example\": RCPT TO:<a@b.example> -> "
         "550"},
        {{}, {.turns = {}, .capabilities = {"SIZE 9"}}, "The message has", 2, "\"a@b.example\": The message has"},
        {{{"TurnOffDeliveryNotifications", "True"}}, {}, "", 4, "Asking the SMTP server to never", "NOTIFY=NEVER"},
        {{{"TurnOffDeliveryNotifications", "true"}}, {}, "", 4, "success", "RCPT TO:<a@b.example>\n"},
    };
    for (const CRow& row : rows) {
        CScriptedServer server(row.script);
        const std::string failure =
            Send<SmtpMessageSender2>("127.0.0.1", server.GetPort(), row.settings, "a@b.example");
        EXPECT_EQ(failure.substr(0, std::string_view(row.failure).size()), row.failure) << row.log;
        EXPECT_EQ(failure.empty(), *row.failure == 0) << failure;
        EXPECT_TRUE(m_log->Contains(row.level, row.log)) << row.log;
        EXPECT_NE(server.GetTranscript().find(row.transcript), std::string::npos) << server.GetTranscript();
    }
}

TEST_F(Senders, DirectDeliverySays) {
    TestServers::CNameServer names;
    if (!names.IsInstalled()) GTEST_SKIP() << names.WhyNot();
    names.AddExchanger("mail.example", "mx.example", 10);
    names.AddAddress("mx.example", "127.0.0.1");
    names.AddOption("--txt-record=text.example,nothing else");
    ASSERT_TRUE(names.Start()) << names.WhyNot();
    const CScript refusal = {.turns = {{Step::Rcpt, Does::Reply, "550 5.1.1 Gone", "a@"}}};
    const char* noAnswer = "Unable to read MX record using the following DNS server: \"127.0.0.1\". ";
    struct CRow {
        const char* recipients;
        const char* fallback;
        const char* failure;
        std::string log = {};
    };
    const std::vector<CRow> rows = {
        {"b@mail.example", "0", ""},
        {"b@mail.example,a@", "0", "", noAnswer + std::string("Invalid email address: a@")},
        {"a@", "1", "Invalid email address: a@", noAnswer + std::string("Invalid email address: a@")},
        {"b@text.example", "0", "No MX records found", noAnswer + std::string("No MX records found")},
        {"b@text.example", "1", "", noAnswer + std::string("No MX records found")},
        {"a@mail.example", "1", "Could not send the message through any of the mail exchanges. Giving up.",
         "Error trying to send message from: \"back@harbour.example\" to \"a@mail.example\": RCPT TO"},
    };
    const std::string account = MakeAccount("", 25, {{"SendMethod", "DirectMessageSender"}, {"DnsTimeout", "soon"}});
    Queue(account, "From: a@b.example\r\nTo: b@mail.example\r\n\r\nText\r\n");
    Run();
    std::string texts;
    EXPECT_EQ(DescribeLedger(account, texts), "deferred") << texts;
    EXPECT_NE(texts.find("DnsTimeout is \"soon\""), std::string::npos) << texts;
    for (const CRow& row : rows) {
        CScriptedServer server(refusal);
        const CSettings settings = {{"DnsHostAddress", "127.0.0.1"},
                                    {"DnsPort", std::to_string(names.GetPort())},
                                    {"DnsUseFallback", row.fallback}};
        EXPECT_EQ(Send<CDirectMessageSender>("127.0.0.1", server.GetPort(), settings, row.recipients), row.failure);
        EXPECT_EQ(server.GetMessages().size(), *row.failure == 0 ? 1U : 0U) << row.recipients;
        EXPECT_TRUE(row.log.empty() ? m_log->GetLines(2).empty() : m_log->Contains(2, row.log)) << row.log;
    }
}

}  // namespace SendDaemon
