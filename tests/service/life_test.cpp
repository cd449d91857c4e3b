// The server as a service of the machine that the test runs on.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "platform/process.h"
#include "platform/service.h"
#include "tests/programs/programrunner.h"
#include "tests/servers/testserver.h"

namespace {

class Service : public testing::Test {
protected:
    void SetUp() override {
        // Where accounts of services get to it.
        const std::filesystem::path built(LISTHAVEN_SERVER);
        m_program = m_runner.Path(built.filename().string());
        std::filesystem::copy_file(built, m_program);
    }

    CRunResult Command(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--data-folder", m_runner.DataFolder()});
        Platform::CChildProcess child;
        CRunResult result;
        EXPECT_TRUE(m_runner.Start(child, arguments, m_program, "server-"));
        EXPECT_TRUE(child.WaitFor(std::chrono::minutes(1), result.status));
        result.output = CProgramRunner::ReadFile(m_runner.Path("server-stdout"));
        result.errors = CProgramRunner::ReadFile(m_runner.Path("server-stderr"));
        return result;
    }

    CProgramRunner m_runner;
    std::string m_program;
};

}  // namespace

TEST_F(Service, WithoutServiceManagerEachCommandSaysSoAndDoesNothing) {
    Platform::ServiceStatus status;
    if (Platform::CServiceControl("lhvserver").GetStatus(status).empty())
        GTEST_SKIP() << "there is a service manager here, which would do it";
    for (const char* command : {"install", "uninstall", "start", "stop", "status"}) {
        const CRunResult result = Command({command});
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_EQ(result.output, "") << command;
        EXPECT_NE(result.errors.find("There is no service manager here"), std::string::npos) << result.errors;
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    }
    EXPECT_FALSE(std::filesystem::exists(m_runner.DataFolder()));
    EXPECT_FALSE(std::filesystem::exists("/etc/systemd/system/lhvserver.service"));
}

TEST_F(Service, FromInstallationToRemoval) {
    if (Platform::EnvironmentValue("LISTHAVEN_TEST_SERVICE") != "1")
        GTEST_SKIP() << "it puts a service into this system, which LISTHAVEN_TEST_SERVICE=1 must allow";
    const std::string copies = m_runner.DataFolder() + "/copies";
    m_runner.MakeNullList("News");
    std::filesystem::create_directories(copies);
    m_runner.MustRun({"account", "set", "News", "TargetFolder", copies});
    m_runner.MustRun({"member", "add", "News", "anna@b.example"});
    const std::string letter = m_runner.WriteFile("letter.eml", "From: l@lists.example\r\nSubject: x\r\n\r\nHello\r\n");
    const auto send = [&](std::size_t count) {
        m_runner.MustRun({"broadcast", letter, "--list", "News"});
        const auto sent = [&] {
            const std::filesystem::directory_iterator folder(copies);
            return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
        };
        EXPECT_TRUE(TestServers::WaitUntil([&] { return sent() >= count; })) << sent();
    };
    const struct {
        const char* command;
        int status;
        const char* says;
    } steps[] = {
        {"status", 4, "not installed"},
        {"stop", 1, "not installed"},
        {"uninstall", 1, "not installed"},
        {"install", 0, "runs"},
        {"status", 0, "starts with the system"},
        {"install", 1, "already"},
        {"send", 1, ""},
        {"stop", 0, "ended"},
        {"stop", 0, "ended"},
        {"status", 3, "stopped"},
        {"start", 0, "runs"},
        {"start", 0, "runs"},
        {"send", 2, ""},
        {"uninstall", 0, "not installed any more"},
        {"status", 4, "not installed"},
    };
    for (const auto& step : steps) {
        if (std::string(step.command) == "send") {
            send(static_cast<std::size_t>(step.status));
            continue;
        }
        const CRunResult result = Command({step.command});
        EXPECT_EQ(result.status, step.status) << step.command << ": " << result.output << result.errors;
        EXPECT_NE((result.output + result.errors).find(step.says), std::string::npos)
            << step.command << ": " << result.output << result.errors;
    }
    const std::string log = CProgramRunner::ReadFile(m_runner.DataFolder() + "/log.txt");
    EXPECT_EQ(log.find("[ERROR]"), std::string::npos) << log;
    EXPECT_NE(log.find("The server has ended."), log.rfind("The server has ended.")) << log;
}
