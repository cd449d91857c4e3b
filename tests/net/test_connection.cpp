// Certificates, addresses, and giving up.

#include <thread>

#include "tests/net/sessionfixture.h"
#include "tests/servers/testserver.h"

using namespace Net;
using namespace SmtpScript;
using namespace std::chrono_literals;

namespace {

// Every name has these addresses.
Resolver Always(std::vector<std::string> addresses) {
    return [addresses = std::move(addresses)](const std::string&, std::vector<std::string>& found, Failure&) {
        found = addresses;
        return true;
    };
}

class Tls : public CSessionFixture {
protected:
    static void SetUpTestSuite() {
        s_folder = std::make_unique<CTemporaryFolder>();
        if (TestServers::FindProgram("openssl").empty()) return;
        std::string output;
        ASSERT_TRUE(TestServers::MakeCertificate(s_folder->GetPath(), s_certificate));
        ASSERT_TRUE(TestServers::RunProgram(TestServers::FindProgram("openssl"),
                                            {"x509", "-in", TestServers::ServerPath(s_certificate.certificateFile),
                                             "-signkey", TestServers::ServerPath(s_certificate.keyFile), "-days", "0",
                                             "-out", TestServers::ServerPath(*s_folder / "expired.pem")},
                                            output))
            << output;
    }
    static void TearDownTestSuite() { s_folder.reset(); }
    void SetUp() override {
        if (s_certificate.certificateFile.empty())
            GTEST_SKIP() << "openssl, which makes the certificates, is not installed";
    }

    static CScript Script() {
        CScript script;
        script.certificateFile = s_certificate.certificateFile;
        script.keyFile = s_certificate.keyFile;
        return script;
    }

    static inline std::unique_ptr<CTemporaryFolder> s_folder;
    static inline TestServers::CTestCertificate s_certificate;
};

}  // namespace

TEST_F(Tls, ModesAndCertificates) {
    const std::string Good = s_certificate.certificateFile;
    const std::string Expired = *s_folder / "expired.pem";
    const struct {
        TlsMode mode;
        std::string server, trusted, host;  // server: its certificate; "": no TLS
        FailureKind kind;
        bool isEncrypted, isVerified;
        std::string words;  // of the failure, or of the certificate
    } Cases[] = {
        {TlsMode::None, Good, Good, "localhost", FailureKind::None, false, false, ""},
        {TlsMode::Opportunistic, "", Good, "localhost", FailureKind::None, false, false, ""},
        {TlsMode::Opportunistic, Good, Good, "localhost", FailureKind::None, true, true, "CN = localhost"},
        {TlsMode::Opportunistic, Good, "", "localhost", FailureKind::None, true, false, "signed by itself"},
        {TlsMode::Opportunistic, Good, Good, "mx.example", FailureKind::None, true, false, "not for mx.example"},
        {TlsMode::Required, Good, Good, "localhost", FailureKind::None, true, true, ""},
        {TlsMode::Required, Good, Good, "[127.0.0.1]", FailureKind::None, true, true, ""},
        {TlsMode::Required, Good, Good, "mx.example", FailureKind::Certificate, false, false,
         "the certificate is for localhost, 127.0.0.1, not for mx.example"},
        {TlsMode::Required, Good, "", "localhost", FailureKind::Certificate, false, false, "signed by itself"},
        {TlsMode::Required, Expired, Expired, "localhost", FailureKind::Certificate, false, false, "has expired on 20"},
        {TlsMode::Required, "", Good, "localhost", FailureKind::Tls, false, false, "does not offer"},
        {TlsMode::Required, Good, Good + ".gone", "localhost", FailureKind::Local, false, false, ".gone: "},
        {TlsMode::Implicit, Good, Good, "localhost", FailureKind::None, true, true, ""},
        {TlsMode::Implicit, Good, Good, "mx.example", FailureKind::Certificate, false, false, "mx.example"},
        {TlsMode::Implicit, "", Good, "localhost", FailureKind::Tls, false, false, "does not speak TLS"},
    };
    for (const auto& test : Cases) {
        CScript script = Script();
        script.certificateFile = test.server;
        script.isTlsImplicit = test.mode == TlsMode::Implicit && !test.server.empty();
        CScriptedServer server(script);
        SmtpOptions options = OptionsFor(server.GetPort());
        options.connect.host = test.host;
        options.connect.resolver = Always({"127.0.0.1"});
        options.connect.tlsMode = test.mode;
        options.connect.tlsCaFile = test.trusted;
        const std::string name = test.host + std::to_string(static_cast<int>(test.mode)) + test.words;
        EXPECT_EQ(m_session.Open(options), test.kind == FailureKind::None) << name << m_session.GetFailure().text;
        EXPECT_EQ(m_session.GetFailure().kind, test.kind) << name;
        EXPECT_EQ(m_session.IsEncrypted(), test.isEncrypted) << name;
        EXPECT_EQ(m_session.GetConnection().IsCertificateVerified(), test.isVerified) << name;
        const std::string said = m_session.GetFailure().text + m_session.GetConnection().DescribeCertificate();
        EXPECT_NE(said.find(test.words), std::string::npos) << name << ": " << said;
        if (test.kind == FailureKind::None) {
            EXPECT_TRUE(Send({"a@b"})) << name;
        }
        if (test.isEncrypted) {
            EXPECT_EQ(m_session.GetConnection().DescribeTls().find("TLSv1.3"), 0u);
        }
    }
}

TEST_F(Tls, LargeMessagesGoThroughEncrypted) {
    std::string large(3'000'000, 'x');
    for (std::size_t i = 70; i < large.size(); i += 71)
        large[i] = '\n';
    Put(m_message.file, large);
    CScriptedServer server(Script());
    ASSERT_TRUE(Open(server.GetPort()));
    EXPECT_TRUE(Send({"a@b"})) << m_session.GetFailure().text;
    EXPECT_TRUE(m_session.Reset() && Send({"c@d"})) << m_session.GetFailure().text;
    ASSERT_EQ(server.GetMessages().size(), 2u);
    EXPECT_GT(server.GetMessages()[1].text.size(), large.size());
    EXPECT_EQ(server.GetMessages()[0].text, server.GetMessages()[1].text);
}

TEST(Connection, EveryAddressIsTriedWithinOneLimit) {
    CScriptedServer server;
    CConnection connection;
    ConnectOptions options;
    options.host = "mx.example";
    options.port = server.GetPort();
    options.resolver = Always({"127.0.0.2", "127.0.0.3", "127.0.0.1"});
    EXPECT_TRUE(connection.Open(options)) << connection.GetFailure().text;
    EXPECT_EQ(connection.GetPeerAddress(), "127.0.0.1");
    options.resolver = Always({"127.0.0.2", "127.0.0.3"});
    EXPECT_FALSE(connection.Open(options));
    EXPECT_EQ(connection.GetFailure().kind, FailureKind::Refused);
    const std::string refused = boost::system::error_code(boost::asio::error::connection_refused).message();
    EXPECT_NE(connection.GetFailure().text.find("127.0.0.2: " + refused + "; 127.0.0.3"), std::string::npos)
        << connection.GetFailure().text;
    options.resolver = [](const std::string&, std::vector<std::string>&, Failure& failure) {
        failure = {FailureKind::NameNotFound, "no such host"};
        return false;
    };
    EXPECT_FALSE(connection.Open(options));
    EXPECT_EQ(connection.GetFailure().kind, FailureKind::NameNotFound);
    options.resolver = {};
    options.host = "localhost";
    EXPECT_TRUE(connection.Open(options)) << connection.GetFailure().text;
}

// The limit of each wait is far longer than the test may take.
TEST(Connection, EveryWaitEndsWhenItIsCancelled) {
    namespace asio = boost::asio;
    asio::io_context context;
    asio::ip::tcp::acceptor acceptor(context);
    acceptor.open(asio::ip::tcp::v4());
    acceptor.bind({asio::ip::address_v4::loopback(), 0});
    acceptor.listen(0);
    ConnectOptions options;
    options.host = "127.0.0.1";
    options.port = acceptor.local_endpoint().port();
    options.timeout = 100s;
    const std::string much(64 * 1024 * 1024, 'x');

    CConnection reader;
    ASSERT_TRUE(reader.Open(options));
    CConnection writer;
    asio::ip::tcp::socket silent = acceptor.accept();
    ASSERT_TRUE(writer.Open(options));
    CConnection connecting[8];  // more than wait to be accepted: some of them get no answer
    std::vector<std::thread> threads;
    std::atomic<int> begun = 0;
    std::atomic<int> cancelled = 0;
    const auto run = [&](CConnection& connection, const auto& wait) {
        threads.emplace_back([&, wait] {
            ++begun;
            if (!wait(connection) && connection.GetFailure().kind == FailureKind::Cancelled) ++cancelled;
        });
    };
    const auto read = [](CConnection& c) {
        std::string line;
        return c.ReadLine(line, 100, 100s);
    };
    run(reader, read);
    run(writer, [&](CConnection& c) { return c.Write(much, 100s); });
    for (CConnection& one : connecting)
        run(one, [&](CConnection& c) { return c.Open(options) && read(c); });
    ASSERT_TRUE(TestServers::WaitUntil([&] { return begun == 10; }));
    reader.Cancel();
    writer.Cancel();
    for (CConnection& one : connecting)
        one.Cancel();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(cancelled, 10);

    // What was cancelled stays so until it is opened again.
    EXPECT_FALSE(reader.Write("x", 1s));
    EXPECT_EQ(reader.GetFailure().kind, FailureKind::Cancelled);
    CScriptedServer server;
    options.port = server.GetPort();
    EXPECT_TRUE(reader.Open(options)) << reader.GetFailure().text;
}
