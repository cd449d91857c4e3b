// testserver.h - a mail or name server of this machine, run for one test from
// a temporary folder, on loopback and on a port that was free.
//
//     CSmtpSink sink;
//     if (!sink.IsInstalled()) GTEST_SKIP() << sink.WhyNot();
//     ASSERT_TRUE(sink.Start()) << sink.WhyNot();
//
// Errors   Start() returns false; WhyNot() says why, with the server's own words.
// Threads  One at a time.

#ifndef LISTHAVEN_TESTS_SERVERS_TESTSERVER_H
#define LISTHAVEN_TESTS_SERVERS_TESTSERVER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/platform/temporaryfolder.h"
#include "tests/servers/serverprocess.h"

namespace TestServers {

inline constexpr std::chrono::seconds Patience{60};  // for whatever is waited for

// Free for TCP and UDP on the address at this moment; no other test is given it.
std::uint16_t FindFreePort(const std::string& address = "127.0.0.1");

bool CanConnect(const std::string& address, std::uint16_t port);
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = Patience);

bool IsAdministrator();                          // root
std::string FindProgram(std::string_view name);  // the full path on the servers' system; "" when it is not installed

// Runs a program to its end; what it wrote goes into output.
bool RunProgram(const std::string& program, const std::vector<std::string>& arguments, std::string& output);

// A self-signed certificate for localhost and 127.0.0.1, which is its own authority.
struct CTestCertificate {
    std::string certificateFile;
    std::string keyFile;
};
bool MakeCertificate(const std::string& folder, CTestCertificate& certificate);

class CTestServer {
public:
    CTestServer(const CTestServer&) = delete;
    CTestServer& operator=(const CTestServer&) = delete;
    virtual ~CTestServer();

    virtual bool IsInstalled();
    bool Start();  // returns when the server answers
    void Stop();
    bool IsRunning() { return m_child.IsRunning(); }

    const std::string& WhyNot() const { return m_whyNot; }
    std::string GetLog() const { return Get(m_folder / "log"); }
    const CTemporaryFolder& GetFolder() const { return m_folder; }

protected:
    struct CCommand {
        std::string program;
        std::vector<std::string> arguments;
        std::string address = "127.0.0.1";
        std::uint16_t port = 0;  // answers when the server is ready
    };

    // Masters of several processes are asked to stop: killed, they leave their
    // children behind.
    enum class Ending : std::uint8_t { Kill, Ask };

    explicit CTestServer(std::string_view program, Ending ending = Ending::Kill);

    // Picks ports, writes the configuration and says what to run.  Called
    // again when another program was quicker to take a port.
    virtual bool Prepare(CCommand& command) = 0;
    virtual bool IsReady(const CCommand& command) { return CanConnect(command.address, command.port); }
    bool Fail(std::string text);
    std::string OnServer(const std::string& name) const { return ServerPath(m_folder / name); }

    CTemporaryFolder m_folder;
    std::string m_program;
    CServerProcess m_child;

private:
    std::string m_programName;
    Ending m_ending;
    std::string m_whyNot;
};

}  // namespace TestServers

#endif  // LISTHAVEN_TESTS_SERVERS_TESTSERVER_H
