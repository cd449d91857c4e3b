// The server beside a POP3 server that takes connections and says nothing.

#include <gtest/gtest.h>

#include <boost/asio.hpp>

#include <atomic>

#include "tests/engine/incoming/scriptedmailbox.h"
#include "tests/programs/programrunner.h"
#include "tests/servers/testserver.h"

namespace {

class CSilentServer {
public:
    CSilentServer() : m_acceptor(m_context, {boost::asio::ip::address_v4::loopback(), 0}) {}
    std::string GetPort() const { return std::to_string(m_acceptor.local_endpoint().port()); }

    bool WaitForConnection() {
        m_connections.emplace_back(m_context);
        bool isDone = false;
        m_acceptor.async_accept(m_connections.back(), [&](const boost::system::error_code& error) { isDone = !error; });
        m_context.restart();
        m_context.run_for(TestServers::Patience);
        return isDone;
    }

private:
    boost::asio::io_context m_context;
    boost::asio::ip::tcp::acceptor m_acceptor;
    std::vector<boost::asio::ip::tcp::socket> m_connections;
};

}  // namespace

// Its message stays out until another list has had its turn.
TEST(Server, ASlowMailboxIsReadInTurnsWithOthers) {
    CProgramRunner runner;
    CScriptedMailbox slow;
    CScriptedMailbox other;
    std::atomic<bool> wasOtherRead = false;
    const std::string message = "From: a@x.example\r\nSubject: Hi\r\n\r\nHello\r\n";
    slow.Set({{"1", message}, {"2", message}},
             [&](const std::string& command) -> std::optional<CScriptedMailbox::CTurn> {
                 if (!command.starts_with("RETR 2") || wasOtherRead) return std::nullopt;
                 return CScriptedMailbox::CTurn{"+OK\r\nFrom: a"};
             });
    other.Set({{"1", message}}, [&](const std::string& command) -> std::optional<CScriptedMailbox::CTurn> {
        wasOtherRead = wasOtherRead || command == "QUIT";
        return std::nullopt;
    });
    for (const auto& [list, mailbox] : {std::pair("A slow one", &slow), std::pair("Other", &other)}) {
        runner.MakeNullList(list);
        runner.MustRun({"list", "set", list, "popHost", "127.0.0.1:" + std::to_string(mailbox->GetPort())});
        runner.MustRun({"list", "set", list, "popLogin", "news"});
        runner.MustRun({"list", "set", list, "popPassword", "news"});
    }
    runner.MustRun({"settings", "set", "Service", "MailboxTime", "1"});
    Platform::CChildProcess server;
    ASSERT_TRUE(runner.Start(server, {"run"}, LISTHAVEN_SERVER));
    EXPECT_TRUE(TestServers::WaitUntil([&] { return slow.Count() + other.Count() == 0; }));
    server.AskToStop();
    int status = -1;
    EXPECT_TRUE(server.WaitFor(std::chrono::seconds(10), status));
}

TEST(Server, AHangingMailboxNeitherKeepsOthersWaitingNorTheServerFromEnding) {
    CProgramRunner runner;
    CSilentServer silent;
    runner.MakeNullList("Hanging");
    runner.MakeNullList("Other");
    runner.MustRun({"list", "set", "Hanging", "popHost", "127.0.0.1"});
    runner.MustRun({"settings", "set", "Service", "Pop3Port", silent.GetPort()});
    for (const std::vector<std::string>& mode : {std::vector<std::string>{"run"}, {"run", "--once"}}) {
        Platform::CChildProcess server;
        int status = -1;
        ASSERT_TRUE(runner.Start(server, mode, LISTHAVEN_SERVER));
        ASSERT_TRUE(silent.WaitForConnection());
        ASSERT_TRUE(server.AskToStop());
        ASSERT_TRUE(server.WaitFor(std::chrono::seconds(10), status)) << "the POP3 time-out is 60 seconds";
        EXPECT_EQ(status, 0);
    }
    runner.MustRun({"settings", "set", "Service", "Pop3Timeout", "1"});
    runner.MustRun({"list", "set", "Other", "lastCycle", "0"});
    Platform::CChildProcess server;
    ASSERT_TRUE(runner.Start(server, {"run"}, LISTHAVEN_SERVER));
    const auto read = [&](const char* list) { return runner.MustRun({"list", "show", list, "--json"}); };
    const auto log = [&] { return CProgramRunner::ReadFile(runner.DataFolder() + "/log.txt"); };
    EXPECT_TRUE(TestServers::WaitUntil([&] { return log().find("\"Hanging\" failed") != std::string::npos; }));
    std::filesystem::rename(runner.Path("stdout"), runner.Path("server-stdout"));
    EXPECT_TRUE(TestServers::WaitUntil([&] { return read("Other").find("\"lastCycle\":0,") == std::string::npos; }));
    server.AskToStop();
    int status = -1;
    EXPECT_TRUE(server.WaitFor(std::chrono::seconds(10), status));
    EXPECT_EQ(log().find("failed,"), log().rfind("failed,")) << "once";
}
