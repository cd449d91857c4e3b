// Servers that do wrong, each with its account, in one daemon: no message is
// lost, none is sent twice, and the ledger says why.

#include "tests/delivery/deliveryfixture.h"
#include "tests/servers/testserver.h"
#include "tests/smtpscript/scriptedserver.h"
#include "tests/utility/repeat.h"

namespace SendDaemon {

namespace {

using SmtpScript::CScript;
using SmtpScript::CScriptedServer;
using SmtpScript::CTakenMessage;
using SmtpScript::CTurn;
using SmtpScript::Does;
using SmtpScript::Step;

struct CExpected {
    std::string folders = {};
    std::string ledger = {};
    std::string word = {};        // of a ledger line's text
    std::size_t taken = 0;        // messages that the server accepted
    std::size_t connections = 0;  // 0: any number

    std::string Describe() const {
        return folders + ": " + ledger + "; " + std::to_string(taken) + " taken on " + std::to_string(connections);
    }
};

CExpected Sent(std::size_t messages = 1, std::size_t connections = 1) {
    CExpected expected = {"Sent", "sent 250", "", messages, connections};
    for (std::size_t i = 1; i < messages; ++i)
        expected.ledger += ", sent 250";
    if (messages > 1) expected.folders += "*" + std::to_string(messages);
    return expected;
}
CExpected Deferred(const std::string& word, int code = 0) {
    return {"Deferred", code == 0 ? "deferred" : "deferred " + std::to_string(code), word};
}
CExpected Failed(const std::string& word, int code = 0) {
    return {"Errors", code == 0 ? "failed" : "failed " + std::to_string(code), word};
}

enum class Tls : std::uint8_t { None, Offered, Implicit, OtherName };

struct CSetup {
    CSettings settings = {};  // "CA" as a value: the file of the server's certificate
    int messages = 1;
    std::vector<std::string> recipients = {"a@there.example"};
    std::string body = "Text\r\n";
    std::vector<std::string> capabilities = CScript().capabilities;
    Tls tls = Tls::None;
};

struct CRow {
    std::string name;
    std::vector<CTurn> turns;
    CExpected expected;
    CSetup setup = {};
    const char* neverSaid = nullptr;  // by the client
};

const std::string Large = Repeat(std::string(78, 'x') + "\r\n", 150'000);
const CSettings Required = {{"TlsMode", "Required"}, {"TlsCaFile", "CA"}};
const CSettings Login = {{"Login", "ann"}, {"Password", "secret"}};
const std::vector<std::string> NoPipelining = {"8BITMIME", "SIZE 20000000"};
const std::vector<std::string> Three = {"a@there.example", "b@there.example", "c@there.example"};
const std::string Smuggled = "MAIL FROM:<evil@there.example>\r\nRCPT TO:<v@there.example>\r\nDATA\r\nspam\r\n.\r\n";

// Set-ups that several rows have.
const CSetup TlsOffered = {.tls = Tls::Offered};
const CSetup TlsRequired = {.settings = Required, .tls = Tls::Offered};
const CSetup AuthLogin = {.settings = Login, .capabilities = {"AUTH LOGIN"}};
const CSetup LargeBody = {.body = Large};
const CSetup ThreeRecipients = {.recipients = Three};
const CSetup TwoMessages = {.messages = 2};
const CSetup ThreeMessages = {.messages = 3};
const CSetup Unpiped = {.capabilities = NoPipelining};
const CSetup TwoUnpiped = {.messages = 2, .capabilities = NoPipelining};

std::vector<CTurn> AtEveryStep(Does does) {
    std::vector<CTurn> turns;
    for (int step = static_cast<int>(Step::Greeting); step <= static_cast<int>(Step::Quit); ++step) {
        const auto at = static_cast<Step>(step);
        if (at != Step::Handshake && at != Step::Body) turns.push_back({at, does});
    }
    return turns;
}

// Connecting, greeting, capabilities, encryption, log-in.
std::vector<CRow> MakeSessionRows() {
    using enum Step;
    using enum Does;
    return {
        {"refuses connections", {{Connect, Refuse}}, Deferred("refused")},
        {"closes at once", {{Connect, Close}}, Deferred("connection")},
        {"everything late", AtEveryStep(Late), Sent()},
        {"everything byte by byte", AtEveryStep(Bytewise), Sent(), Unpiped},
        {"greets 554", {{Greeting, ReplyAndClose, "554 5.7.1 not you"}}, Deferred("not you", 554)},
        {"greets 421", {{Greeting, ReplyAndClose, "421 4.3.2 too busy"}}, Deferred("too busy", 421)},
        {"greets nonsense", {{Greeting, Reply, "HTTP/1.1 400 Bad"}}, Deferred("is no reply")},
        {"greets 200", {{Greeting, Reply, "200 +OK"}}, Deferred("200 +OK")},
        {"greets with two codes", {{Greeting, Reply, "220 hello\n250 and more"}}, Deferred("before it was sent")},
        {"greeting stalls", {{Greeting, Stall}}, Deferred("within 1 second")},
        {"451 to EHLO", {{Ehlo, Reply, "451 4.3.0 later"}}, Deferred("later", 451)},
        {"closes at EHLO", {{Ehlo, Close}}, Deferred("connection")},
        {"stalls at EHLO", {{Ehlo, Stall}}, Deferred("within 1 second")},
        {"knows no EHLO", {{Ehlo, Reply, "500 5.5.1 what?"}}, Sent()},
        {"endless EHLO", {{Ehlo, Endless}}, Deferred("is no reply")},
        {"no PIPELINING", {}, Sent(3), {.messages = 3, .capabilities = NoPipelining}},
        {"certificate of another", {}, Deferred("ertificate"), {.settings = Required, .tls = Tls::OtherName}, "MAIL"},
        {"TLS not wanted", {}, Sent(), {.settings = {{"TlsMode", "None"}}, .tls = Tls::Offered}, "STARTTLS"},
        {"STARTTLS refused", {{StartTls, Reply, "454 4.7.0 not now"}}, Deferred("not now", 454), TlsRequired, "MAIL"},
        {"STARTTLS refused, opportunistic", {{StartTls, Reply, "454 4.7.0 not now"}}, Sent(), TlsOffered},
        {"STARTTLS stalls", {{StartTls, Stall}}, Deferred("within 1 second"), TlsOffered},
        {"no handshake", {{Handshake, Close}}, Deferred("TLS"), TlsRequired, "MAIL"},
        {"no handshake, opportunistic", {{Handshake, Close}}, Sent(1, 2), TlsOffered},
        {"plaintext behind STARTTLS",
         {{StartTls, Reply, "220 go ahead\n250 injected"}},
         Deferred("unencrypted text"),
         TlsRequired,
         "MAIL"},
        {"plaintext behind STARTTLS, opportunistic",
         {{StartTls, Reply, "220 go ahead\n250 injected"}},
         {"Deferred", "deferred", "unencrypted text", 0, 1},
         TlsOffered,
         "MAIL"},
        {"no AUTH", {}, Deferred("does not support AUTH LOGIN"), {.settings = Login}, "MAIL"},
        {"no AUTH LOGIN",
         {},
         Deferred("does not support AUTH LOGIN"),
         {.settings = Login, .capabilities = {"AUTH PLAIN CRAM-MD5"}},
         "AUTH"},
        {"wrong password", {{Auth, Reply, "535 5.7.8 wrong"}}, Deferred("wrong", 535), AuthLogin, "MAIL"},
        {"AUTH stalls", {{Auth, Stall}}, Deferred("within 1 second"), AuthLogin},
    };
}

// One message, or several one after the other.
std::vector<CRow> MakeMessageRows() {
    using enum Step;
    using enum Does;
    std::vector<CRow> rows = {
        {"huge reply", {{Rcpt, HugeLine}}, Deferred("line")},
        {"nonsense", {{Rcpt, Reply, "\x01\x7f yes"}}, Deferred("is no reply")},
        {"250 to DATA", {{Data, Reply, "250 2.0.0 ok"}}, Deferred("answers DATA with 250")},
        {"354 to MAIL", {{Mail, Reply, "354 go on"}}, Deferred("answers MAIL with 354")},
        {"354 at the end", {{EndOfData, Reply, "354 more"}}, Deferred("may have the message")},
        {"251 to RCPT", {{Rcpt, Reply, "251 2.1.5 will forward"}}, Sent()},
        {"taken before it was sent",
         {{Data, Reply, "354 go on\n250 2.0.0 taken"}, {EndOfData, Reply, "554 5.6.0 no"}},
         Deferred("before it had all of it")},
        {"closes in the data", {{Body, Close}}, Deferred("connection"), LargeBody},
        {"refuses in the data", {{Body, ReplyAndClose, "552 5.3.4 too much"}}, Failed("too much", 552), LargeBody},
        {"stops reading", {{Body, Stall}}, Deferred("within 1 second"), LargeBody},
        {"closes after the reply", {{EndOfData, ReplyAndClose, "250 2.0.0 taken"}}, Sent()},
        {"dead between messages", {{EndOfData, ReplyAndClose, "250 2.0.0 taken"}}, Sent(3, 3), ThreeMessages},
        {"says 421 and closes between messages",
         {{EndOfData, ReplyAndClose, "250 2.0.0 taken\n421 4.4.2 idle"}},
         Sent(2, 2),
         TwoMessages},
        {"closes at RSET", {{Rset, Close}}, Sent(2, 2), TwoUnpiped},
        {"refuses RSET", {{Rset, Reply, "500 5.5.1 what?"}}, Sent(2, 2), TwoUnpiped},
        {"stalls at RSET", {{Rset, Stall}}, Sent(2, 2), TwoUnpiped},
        {"closes at RSET, PIPELINING", {{Rset, Close}}, Sent(2, 2), TwoMessages},
        {"stalls at RSET, PIPELINING", {{Rset, Stall}}, Sent(2, 2), TwoMessages},
        {"421 at RSET", {{Rset, ReplyAndClose, "421 4.4.2 idle"}}, Sent(2, 2), TwoMessages},
        {"stalls at QUIT", {{Quit, Stall}}, Sent()},
        {"two messages per connection",
         {},
         Sent(3, 2),
         {.settings = {{"MaxMessagesPerConnection", "2"}}, .messages = 3}},
        {"puts off the first of three",
         {{Rcpt, Reply, "450 4.2.0 grey", "", 1}},
         {"Deferred Sent*2", "deferred 450, sent 250, sent 250", "grey", 2, 1},
         ThreeMessages},
        {"421 for the first of three",
         {{Mail, ReplyAndClose, "421 4.3.2 too busy"}},
         {"Deferred waiting*2", "deferred 421", "too busy", 0, 1},
         ThreeMessages},
        {"no retries",
         {{Mail, Reply, "451 4.3.0 later"}},
         Failed("later", 451),
         {.settings = {{"RetryTemporary", "0"}}}},
        {"message too large",
         {},
         Failed("at most 999"),
         {.body = Repeat("1234567\r\n", 1000), .capabilities = {"SIZE 999"}}},
        {"no SMTPUTF8", {}, Failed("SMTPUTF8"), {.recipients = {"j\xc3\xb6rg@there.example"}}, "DATA"},
        {"one of three refused",
         {{Rcpt, Reply, "550 5.1.1 unknown", "<b@"}},
         {"Errors Sent", "sent 250, failed 550, sent 250", "unknown", 1, 1},
         ThreeRecipients},
        {"too many recipients",
         {{Rcpt, Reply, "452 4.5.3 too many", "<c@"}},
         {"Deferred Sent", "sent 250, sent 250, deferred 452", "too many", 1, 1},
         ThreeRecipients},
        {"taken, refused and deferred",
         {{Rcpt, Reply, "550 5.1.1 unknown", "<a@"}, {Rcpt, Reply, "450 4.2.0 grey", "<b@"}},
         {"Deferred Errors Sent", "failed 550, deferred 450, sent 250", "grey", 1, 1},
         ThreeRecipients},
        {"refused and deferred",
         {{Rcpt, Reply, "550 5.1.1 unknown", "<a@"}, {Rcpt, Reply, "450 4.2.0 grey"}},
         {"Deferred Errors", "failed 550, deferred 450, deferred 450", "unknown", 0, 1},
         ThreeRecipients},
        {"lines that end the data elsewhere",
         {},
         Sent(),
         {.body = "one\r\n.\r\n" + Smuggled + "two\n.\n" + Smuggled + "three\r.\r" + Smuggled + "four\n.\r\n" +
                  Smuggled + "five\r\n.\n" + Smuggled + ".\r\n..\r\n.x\r\n."}},
    };
    for (const auto& [at, name] :
         {std::pair(Mail, "MAIL"), std::pair(Rcpt, "RCPT"), std::pair(Data, "DATA"), std::pair(EndOfData, "the end")}) {
        const std::string to = std::string(" ") + name;
        rows.push_back({"closes at" + to, {{at, Close}}, Deferred("connection")});
        rows.push_back({"stalls at" + to, {{at, Stall}}, Deferred("within 1 second")});
        rows.push_back({"451 to" + to, {{at, Reply, "451-4.3.0 not\n451 4.3.0 now"}}, Deferred("now", 451)});
        rows.push_back({"550 to" + to, {{at, Reply, "550 5.7.1 not here"}}, Failed("not here", 550)});
        rows.push_back({"421 to" + to, {{at, ReplyAndClose, "421 4.3.2 closing"}}, Deferred("closing", 421)});
        rows.push_back({"no PIPELINING, closes at" + to, {{at, Close}}, Deferred("connection"), Unpiped});
    }
    return rows;
}

class Misbehaviour : public CDeliveryFixture {
protected:
    struct CCase {
        CRow row;
        std::string host;
        std::unique_ptr<CScriptedServer> server;
        std::string account;
    };

    void SetUp() override {
        CDeliveryFixture::SetUp();
        if (TestServers::FindProgram("openssl").empty()) GTEST_SKIP() << "openssl is not installed";
        ASSERT_TRUE(TestServers::MakeCertificate(m_folder, m_certificate));
    }

    void Prepare(const CRow& row) {
        const CSetup& setup = row.setup;
        CScript script;
        script.turns = row.turns;
        script.capabilities = setup.capabilities;
        if (setup.tls != Tls::None) {
            script.certificateFile = m_certificate.certificateFile;
            script.keyFile = m_certificate.keyFile;
        }
        script.isTlsImplicit = setup.tls == Tls::Implicit;
        const std::string host = setup.tls == Tls::OtherName ? "127.0.0.2" : "127.0.0.1";
        CSettings settings = setup.settings;
        const bool stalls =
            std::any_of(row.turns.begin(), row.turns.end(), [](const CTurn& turn) { return turn.does == Does::Stall; });
        if (stalls) settings.insert(settings.end(), {{"Timeout", "1"}, {"DataTimeout", "1"}});
        for (auto& [key, value] : settings)
            value = value == "CA" ? m_certificate.certificateFile : value;
        CCase made = {row, host, std::make_unique<CScriptedServer>(std::move(script), host), ""};
        made.account = MakeAccount(host, made.server->GetPort(), settings);
        for (int i = 0; i < setup.messages; ++i) {
            std::string to = setup.recipients.front();
            for (std::size_t n = 1; n < setup.recipients.size(); ++n) {
                to += (n == 1 ? "\r\nCc: " : ", ") + setup.recipients[n];
            }
            Queue(made.account, "From: news@harbour.example\r\nTo: " + to + "\r\nSubject: " + std::to_string(i) +
                                    "\r\nMessage-ID: <" + std::to_string(i) + "@harbour.example>\r\n\r\n" + setup.body);
        }
        m_cases.push_back(std::move(made));
    }

    // For each message and recipient: how often the server took it.
    static std::map<std::string, int> CountTaken(const CScriptedServer& server) {
        std::map<std::string, int> counts;
        for (const CTakenMessage& message : server.GetMessages()) {
            const std::size_t at = message.text.find("Subject: ");
            EXPECT_NE(at, std::string::npos) << message.text.substr(0, 1000);
            for (const std::string& to : message.recipients) {
                ++counts[message.text.substr(at + 9, 1) + " " + to.substr(0, to.find('>') + 1)];
            }
        }
        return counts;
    }

    static void Check(const CCase& it) {
        const CExpected& expected = it.row.expected;
        std::string texts;
        const CExpected actual = {DescribeFolders(it.account), DescribeLedger(it.account, texts), "",
                                  it.server->GetMessages().size(),
                                  expected.connections == 0 ? 0 : it.server->CountConnections()};
        EXPECT_EQ(actual.Describe(), expected.Describe()) << texts << it.server->GetTranscript().substr(0, 3000);
        EXPECT_NE(texts.find(expected.word), std::string::npos) << texts;
        EXPECT_EQ(it.server->CountBareLineEnds(), 0U);
        if (it.row.neverSaid == nullptr) return;
        EXPECT_EQ(it.server->GetTranscript().find("C: " + std::string(it.row.neverSaid)), std::string::npos);
    }

    TestServers::CTestCertificate m_certificate;
    std::vector<CCase> m_cases;
};

// Each row is an account and its server; afterwards all servers are good ones,
// an hour has passed, and what was deferred goes out, once.
TEST_F(Misbehaviour, LosesAndDoublesNothing) {
    for (const auto& rows : {MakeSessionRows(), MakeMessageRows()}) {
        for (const CRow& row : rows)
            Prepare(row);
    }
    Run();
    for (const CCase& it : m_cases) {
        SCOPED_TRACE(it.row.name);
        Check(it);
        it.server->SetScript({});
        Configure(it.account, it.host, it.server->GetPort(), {});
    }
    m_shift = 3600;
    Run();
    for (const CCase& it : m_cases) {
        SCOPED_TRACE(it.row.name);
        std::string texts;
        const std::string folders = DescribeFolders(it.account);
        EXPECT_EQ(folders.find("Deferred"), std::string::npos) << folders;
        EXPECT_EQ(folders.find("waiting"), std::string::npos) << folders;
        std::size_t taken = 0;
        for (const auto& [what, count] : CountTaken(*it.server)) {
            EXPECT_EQ(count, 1) << what;
            ++taken;
        }
        const std::string ledger = DescribeLedger(it.account, texts);
        std::size_t sent = 0;
        for (std::size_t at = 0; (at = ledger.find("sent", at)) != std::string::npos; ++at)
            ++sent;
        std::size_t failed = 0;
        for (std::size_t at = 0; (at = ledger.find("failed", at)) != std::string::npos; ++at)
            ++failed;
        EXPECT_EQ(sent, taken) << ledger;
        EXPECT_EQ(sent + failed, it.row.setup.recipients.size() * static_cast<std::size_t>(it.row.setup.messages))
            << ledger;
    }
}

}  // namespace

}  // namespace SendDaemon
