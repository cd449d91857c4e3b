// The front end beside the server: each as a program, on one data folder.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/programs/programrunner.h"
#include "tests/servers/testserver.h"

namespace {

class FrontEnd : public testing::Test {
protected:
    void SetUp() override {
        m_runner.MakeNullList("News");
        m_runner.MustRun({"member", "add", "News", "anna@b.example"});
    }

    std::string Shown() const { return CProgramRunner::ReadFile(m_runner.Path("front-stdout")); }
    bool WaitShown(const std::string& text, std::size_t times = 1) const {
        const bool isShown = TestServers::WaitUntil([&] {
            std::size_t count = 0;
            const std::string shown = Shown();
            for (std::size_t at = shown.find(text); at != std::string::npos; at = shown.find(text, at + 1))
                ++count;
            return count >= times;
        });
        EXPECT_TRUE(isShown) << text << " is not in\n"
                             << Shown() << CProgramRunner::ReadFile(m_runner.Path("front-stderr"));
        return isShown;
    }
    bool StartServer(Platform::CChildProcess& server) const {
        return m_runner.Start(server, {"run"}, LISTHAVEN_SERVER, "server-");
    }
    void ExpectStatus(const char* text) const {
        EXPECT_NE(m_runner.MustRun({"status", "--json"}).find(text), std::string::npos) << text;
    }
    // A broadcast, sent by whoever sends now.
    void ExpectSent(std::size_t copies) const {
        const std::string letter =
            m_runner.WriteFile("letter.eml", "From: l@lists.example\r\nSubject: x\r\n\r\nHello\r\n");
        m_runner.MustRun({"broadcast", letter, "--list", "1"});
        const auto count = [&] {
            std::size_t found = 0;
            for (const auto& entry : std::filesystem::directory_iterator(m_runner.Path("delivered"))) {
                const bool isCopy =
                    CProgramRunner::ReadFile(entry.path().string()).find("X-Lhv-Broadcast:") != std::string::npos;
                found += isCopy && entry.path().extension() == ".eml" ? 1 : 0;
            }
            return found;
        };
        EXPECT_TRUE(TestServers::WaitUntil([&] { return count() >= copies; }));
        // And filed: with whoever is killed before, it goes out again.
        EXPECT_TRUE(TestServers::WaitUntil([&] {
            return m_runner.MustRun({"queue", "ls", "--json"}).find("\"claimed\":0") != std::string::npos;
        }));
        EXPECT_EQ(count(), copies);
    }
    // In the inbox, as if it had been fetched.
    void Receive(const std::string& name, const std::string& text) const {
        const std::filesystem::path batch =
            std::filesystem::path(m_runner.DataFolder()) / "Inbox" / "1" / ".Accepted" / "1";
        std::filesystem::create_directories(batch);
        std::ofstream(batch / (name + ".tmp"), std::ios::binary) << "X-Lhv-Received: 1700000000\r\n" << text;
        std::filesystem::rename(batch / (name + ".tmp"), batch / (name + ".eml"));
    }
    static void ExpectEnd(Platform::CChildProcess& program) {
        int status = -1;
        EXPECT_TRUE(program.AskToStop());
        EXPECT_TRUE(program.WaitFor(std::chrono::seconds(30), status));
        EXPECT_EQ(status, 0);
    }

    CProgramRunner m_runner;
};

}  // namespace

TEST_F(FrontEnd, FollowsTheServerWhichComesGoesAndIsKilled) {
    Platform::CChildProcess front;
    Platform::CChildProcess server;
    ExpectStatus("\"server\":false,\"frontEnd\":false,\"sending\":false");
    ASSERT_TRUE(m_runner.Start(front, {"run"}, LISTHAVEN_PROGRAM, "front-"));
    ASSERT_TRUE(WaitShown("Dispatching"));
    ExpectSent(1);

    ASSERT_TRUE(StartServer(server));
    ASSERT_TRUE(WaitShown("The server is running"));
    ASSERT_TRUE(WaitShown("1 sent"));
    ExpectSent(2);
    ExpectStatus("\"server\":true,\"frontEnd\":true,\"sending\":true");
    const CRunResult refused = m_runner.Run({"send"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.errors.find("the server is running"), std::string::npos) << refused.errors;

    Receive(
        "5",
        "From: anna@b.example\r\nTo: list@lists.example\r\nMessage-ID: <5@b.example>\r\nSubject: Five\r\n\r\nHi\r\n");
    WaitShown("The server has processed mail of the list \"News\".");
    WaitShown("(News)");  // a line of its log

    ASSERT_TRUE(server.Kill());
    ASSERT_TRUE(WaitShown("The server has ended."));
    ASSERT_TRUE(WaitShown("Dispatching", 2));
    ExpectSent(3);

    ASSERT_TRUE(StartServer(server));
    ASSERT_TRUE(WaitShown("The server is running", 2));
    ExpectSent(4);
    ExpectEnd(server);
    ASSERT_TRUE(WaitShown("Dispatching", 3));
    ExpectEnd(front);
    ExpectStatus("\"server\":false,\"frontEnd\":false,\"sending\":false");
}

// Neither is refused by the other, whichever comes first.
TEST_F(FrontEnd, TheServerWaitsForWhoSendsAndProcessesMailMeanwhile) {
    m_runner.MustRun({"account", "set", "News", "NullSenderWait", "600000"});
    m_runner.MustRun(
        {"broadcast", m_runner.WriteFile("a.eml", "From: l@lists.example\r\n\r\nHello\r\n"), "--list", "1"});
    Platform::CChildProcess sender;
    Platform::CChildProcess server;
    ASSERT_TRUE(m_runner.Start(sender, {"send"}, LISTHAVEN_PROGRAM, "sender-"));
    ASSERT_TRUE(TestServers::WaitUntil([&] { return !std::filesystem::is_empty(m_runner.Path("delivered")); }));
    ASSERT_TRUE(StartServer(server));
    const auto log = [&] { return CProgramRunner::ReadFile(m_runner.DataFolder() + "/log.txt"); };
    EXPECT_TRUE(TestServers::WaitUntil([&] { return log().find("Another program is sending") != std::string::npos; }));
    Receive(
        "6",
        "From: anna@b.example\r\nTo: list@lists.example\r\nMessage-ID: <6@b.example>\r\nSubject: Six\r\n\r\nHi\r\n");
    EXPECT_TRUE(TestServers::WaitUntil([&] { return log().find("(News)") != std::string::npos; })) << log();
    m_runner.MustRun({"account", "set", "News", "NullSenderWait", "0"});
    ASSERT_TRUE(sender.Kill());
    // What it was sending is in doubt, as the log says, and goes out again.
    ExpectSent(3);
    ExpectEnd(server);
}
