// What the running server tells systemd: datagrams, as systemd gets them.

#include <gtest/gtest.h>

#include <boost/asio.hpp>
#include <filesystem>

#include "platform/namedmutex.h"
#include "tests/programs/programrunner.h"
#include "tests/servers/testserver.h"

namespace {

using Datagrams = boost::asio::local::datagram_protocol;

class CManager {
public:
    explicit CManager(const std::string& name) : m_socket(m_context) {
        std::string path = name;
        if (path[0] == '@') path[0] = '\0';
        m_socket.open();
        m_socket.bind(Datagrams::endpoint(path));
    }

    void ForgetAll() {  // that has come
        boost::system::error_code isEmpty;
        char buffer[512];
        m_socket.non_blocking(true);
        while (!isEmpty)
            m_socket.receive(boost::asio::buffer(buffer), 0, isEmpty);
    }

    // Whether such a datagram comes; others before it are passed over.
    bool WaitFor(const std::string& text, std::chrono::milliseconds limit = TestServers::Patience) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < end) {
            std::size_t size = 0;
            char buffer[512];
            m_socket.async_receive(boost::asio::buffer(buffer),
                                   [&](const boost::system::error_code&, std::size_t got) { size = got; });
            m_context.restart();
            m_context.run_until(end);
            m_socket.cancel();
            m_context.restart();
            m_context.run();
            if (("\n" + std::string(buffer, size) + "\n").find("\n" + text + "\n") != std::string::npos) return true;
        }
        return false;
    }

private:
    boost::asio::io_context m_context;
    Datagrams::socket m_socket;
};

struct CServed {
    CServed(const std::string& socket, int watchSeconds) {
        Platform::ChildOptions options;
        options.environment = {"NOTIFY_SOCKET=" + socket, "WATCHDOG_USEC=" + std::to_string(watchSeconds) + "000000",
                               "LISTHAVEN_DATA_FOLDER=" + runner.DataFolder()};
        runner.MakeNullList("News");
        // No list has a mailbox, so no conversation takes any time besides.
        std::ofstream(runner.DataFolder() + "/Lhv.cfg", std::ios::app) << "[Service]\nPop3Timeout=0\n";
        EXPECT_TRUE(server.Start(LISTHAVEN_SERVER, {"run"}, options));
    }
    std::string Log() const { return CProgramRunner::ReadFile(runner.DataFolder() + "/log.txt"); }
    bool WaitForLog(const std::string& text) const {
        return TestServers::WaitUntil([&] { return Log().find(text) != std::string::npos; });
    }

    CProgramRunner runner;
    Platform::CChildProcess server;
};

}  // namespace

TEST(ServiceNotify, TellsWhenItIsReadyAliveAndAboutToEnd) {
    const std::string unique = "listhaven-test-" + std::to_string(Platform::NewGuid().data1);
    for (const std::string& name : {"@" + unique, "/tmp/" + unique}) {
        CManager manager(name);
        CServed served(name, 3);
        EXPECT_TRUE(manager.WaitFor("READY=1"));
        EXPECT_TRUE(manager.WaitFor("WATCHDOG=1")) << name;
        EXPECT_TRUE(manager.WaitFor("WATCHDOG=1")) << name;
        EXPECT_TRUE(served.server.AskToStop());
        EXPECT_TRUE(manager.WaitFor("STOPPING=1"));
        int status = -1;
        EXPECT_TRUE(served.server.WaitFor(std::chrono::seconds(10), status));
        EXPECT_EQ(status, 0);
        std::filesystem::remove(name);
    }
}

TEST(ServiceNotify, IsNotAliveWhileTheMailThreadHangs) {
    const std::string name = "@listhaven-test-" + std::to_string(Platform::NewGuid().data1);
    CManager manager(name);
    CServed served(name, 6);  // the mail thread's heart beats every two seconds at least
    ASSERT_TRUE(manager.WaitFor("READY=1"));
    const std::string data = served.runner.DataFolder();
    Platform::SetNamedObjectFolder(data + "/.locks", data + "/.mailslots", Platform::NamedObjectScope::Folder);
    {
        // A message that waits is processed by the rules, which somebody holds.
        Platform::CNamedMutex rules("Vantorel.Listhaven.3.SSArray" + data + "/1.RUL");
        rules.Lock();
        const std::string batch = data + "/Inbox/1/.Accepted/1";
        std::filesystem::create_directories(batch);
        std::ofstream(batch + "/1.eml") << "X-Lhv-Received: 1700000000\r\nFrom: a@b.example\r\n\r\n";
        EXPECT_TRUE(served.WaitForLog("The mail thread has not got on")) << served.Log();
        manager.ForgetAll();
        EXPECT_FALSE(manager.WaitFor("WATCHDOG=1", std::chrono::milliseconds(3000))) << "one is due every 1500";
        rules.Unlock();
    }
    EXPECT_TRUE(served.WaitForLog("The mail thread gets on again")) << served.Log();
    EXPECT_TRUE(manager.WaitFor("WATCHDOG=1"));
}
