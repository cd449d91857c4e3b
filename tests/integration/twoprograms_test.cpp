// Several programs on one data folder.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "platform/errorcodes.h"
#include "tests/programs/programrunner.h"
#include "tests/servers/testserver.h"

namespace {

std::string Rows(const std::string& prefix, int count) {
    std::string csv = "E-mail,Name\n";
    for (int i = 0; i < count; ++i)
        csv += prefix + std::to_string(i) + "@example.net,Member " + std::to_string(i) + "\n";
    return csv;
}

bool WaitForText(const std::string& path, const std::string& text) {
    return TestServers::WaitUntil([&] { return CProgramRunner::ReadFile(path).find(text) != std::string::npos; });
}

}  // namespace

TEST(TwoPrograms, ImportAtOnceWithoutLosingOrDoublingAMember) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    constexpr int Count = 5000;
    const std::string first = runner.WriteFile("first.csv", Rows("a", Count) + Rows("shared", 500).substr(12));
    const std::string second = runner.WriteFile("second.csv", Rows("b", Count) + Rows("shared", 500).substr(12));
    Platform::CChildProcess one;
    Platform::CChildProcess two;
    ASSERT_TRUE(runner.Start(one, {"member", "import", "News", first}));
    ASSERT_TRUE(runner.Start(two, {"member", "import", "News", second}));
    int status = -1;
    ASSERT_TRUE(one.WaitFor(std::chrono::minutes(2), status));
    EXPECT_EQ(status, 0);
    ASSERT_TRUE(two.WaitFor(std::chrono::minutes(2), status));
    EXPECT_EQ(status, 0);
    const std::string lists = runner.MustRun({"list", "ls", "--json"});
    EXPECT_NE(lists.find("\"members\":" + std::to_string(2 * Count + 500)), std::string::npos) << lists;
    EXPECT_EQ(runner.MustRun({"repair"}), "Nothing to repair.\n");
}

TEST(TwoPrograms, ASecondFrontEndAndASecondSenderAreRefused) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    Platform::CChildProcess front;
    ASSERT_TRUE(runner.Start(front, {"run"}));
    ASSERT_TRUE(WaitForText(runner.Path("stdout"), "Dispatching"));
    std::filesystem::rename(runner.Path("stdout"), runner.Path("first-stdout"));

    const CRunResult second = runner.Run({"run"});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.errors.find("Another instance of this application is already running."), std::string::npos);
    const CRunResult sender = runner.Run({"send"});
    EXPECT_EQ(sender.status, 1);
    EXPECT_NE(sender.errors.find("sending"), std::string::npos) << sender.errors;

    EXPECT_EQ(runner.MustRun({"settings", "get", "Execution", "WasShutDown"}), "0\n");
    ASSERT_TRUE(front.AskToStop());
    int status = -1;
    ASSERT_TRUE(front.WaitFor(std::chrono::seconds(30), status));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(runner.MustRun({"settings", "get", "Execution", "WasShutDown"}), "1\n");
}

TEST(TwoPrograms, TheServerSendsWhatTheCommandsQueue) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"member", "add", "News", "anna@b.example"});
    Platform::CChildProcess server;
    ASSERT_TRUE(runner.Start(server, {"run"}, LISTHAVEN_SERVER));
    ASSERT_TRUE(WaitForText(runner.DataFolder() + "/log.txt", "The server has started."));
    Platform::CChildProcess second;
    int status = -1;
    ASSERT_TRUE(runner.Start(second, {"run", "--once"}, LISTHAVEN_SERVER));
    ASSERT_TRUE(second.WaitFor(std::chrono::seconds(30), status));
    EXPECT_EQ(status, 1);
    runner.MustRun(
        {"broadcast", runner.WriteFile("message.eml", "From: l@lists.example\r\n\r\nHello\r\n"), "--list", "1"});
    EXPECT_TRUE(TestServers::WaitUntil([&] { return !std::filesystem::is_empty(runner.Path("delivered")); }));
    server.AskToStop();
    EXPECT_TRUE(server.WaitFor(std::chrono::seconds(30), status));
    EXPECT_EQ(status, 0);
}

// What a full disk refuses is refused with a reason, and works again once there is room.
TEST(TwoPrograms, AFullDiskStopsABroadcastWhichIsThenResumed) {
    CProgramRunner runner;
    const std::string disk = runner.Path("disk");
    std::filesystem::create_directories(disk);
    std::string output;
    const auto mount = [&](const char* program, std::vector<std::string> arguments) {
        arguments.push_back(TestServers::ServerPath(disk));
        return TestServers::RunProgram(TestServers::FindProgram(program), arguments, output);
    };
    if (!mount("mount", {"-t", "tmpfs", "-o", "size=2m", "tmpfs"}))
        GTEST_SKIP() << "mounting a small file system needs rights that this user has not";
    const auto on = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--data-folder", disk + "/data"});
        return runner.Run(arguments);
    };
    std::filesystem::create_directories(runner.Path("delivered"));
    on({"settings", "set", "Execution", "GenerationPause", "0"});
    on({"list", "create", "News", "--email", "list@lists.example"});
    on({"account", "set", "1", "SendMethod", "NullMessageSender"});
    on({"account", "set", "1", "TargetFolder", runner.Path("delivered")});
    on({"account", "set", "1", "NullSenderWait", "0"});
    EXPECT_EQ(on({"member", "import", "1", runner.WriteFile("members.csv", Rows("m", 200))}).status, 0);
    const std::string message =
        runner.WriteFile("message.eml", "From: list@lists.example\r\nSubject: x\r\n\r\nDear $(To-Name)\r\n" +
                                            std::string(12000, 'x') + "\r\n");
    const CRunResult full = on({"broadcast", message, "--list", "1"});
    EXPECT_EQ(full.status, 1);
    EXPECT_NE(full.errors.find(Platform::SystemErrorText(Platform::NoSpaceError())), std::string::npos) << full.errors;
    for (int round = 0; round < 20 && on({"broadcast", "ls", "--json"}).output.find("\"done\"") == std::string::npos;
         ++round) {
        EXPECT_EQ(on({"send"}).status, 0);
        on({"broadcast", "--resume"});
    }
    EXPECT_EQ(on({"send"}).status, 0);
    int copies = 0;
    for (const auto& entry : std::filesystem::directory_iterator(runner.Path("delivered")))
        copies += entry.path().extension() == ".eml";
    EXPECT_EQ(copies, 200);
    EXPECT_TRUE(mount("umount", {})) << output;
}
