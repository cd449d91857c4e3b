// Kills a program that generates and sends, at random moments, and restarts it.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "tests/integration/crashlist.h"
#include "tests/programs/programrunner.h"

namespace {

using namespace CrashList;

constexpr int Members = 2000;
constexpr int Kills = 100;
constexpr int Connections = 4;

// How many copies each member got; a copy that is not whole fails the test.
std::map<std::string, int> CountCopies(const std::string& folder) {
    std::map<std::string, int> copies;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".eml") continue;
        const std::string message = CProgramRunner::ReadFile(entry.path().string());
        EXPECT_NE(message.find(LastLine), std::string::npos) << entry.path() << " is not whole";
        ++copies[FindMember(message, "<")];
    }
    return copies;
}

}  // namespace

// Both jobs of one program at a time: `run` resumes interrupted broadcasts and
// dispatches until it is killed.
TEST(Crash, EveryMemberHasItsCopyAfterAHundredKills) {
    CProgramRunner runner;
    runner.MakeNullList("Crash");
    runner.MustRun({"account", "set", "Crash", "NullSenderWait", "5"});
    runner.MustRun({"account", "set", "Crash", "MaxConnections", std::to_string(Connections)});
    runner.MustRun({"settings", "set", "Execution", "GenerationPause", "2"});
    runner.MustRun({"member", "import", "Crash", runner.WriteFile("members.csv", MakeMembers(Members))});
    const std::string message = runner.WriteFile("message.eml", MakeMessage());

    std::mt19937 random(20261121);
    std::uniform_int_distribution<int> moment(0, 120);
    int kills = 0;
    Platform::CChildProcess generator;
    ASSERT_TRUE(runner.Start(generator, {"broadcast", message, "--list", "Crash"}));
    // The job is there from when its folder is whole; before that nothing was promised.
    for (int i = 0; i < 2000 && runner.MustRun({"broadcast", "ls", "--json"}).find("\"id\"") == std::string::npos; ++i)
        std::this_thread::yield();
    generator.Kill();
    ++kills;

    while (kills < Kills) {
        Platform::CChildProcess program;
        ASSERT_TRUE(runner.Start(program, {"run"}));
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + moment(random)));
        program.Kill();
        ++kills;
    }
    runner.MustRun({"settings", "set", "Execution", "GenerationPause", "0"});
    runner.MustRun({"broadcast", "--resume"});
    runner.MustRun({"send"});

    const std::map<std::string, int> copies = CountCopies(runner.Path("delivered"));
    int doubled = 0;
    for (int i = 0; i < Members; ++i) {
        const auto found = copies.find(MemberAddress(i));
        EXPECT_NE(found, copies.end()) << MemberAddress(i) << " has no copy";
        if (found != copies.end() && found->second > 1) ++doubled;
    }
    EXPECT_EQ(copies.size(), static_cast<std::size_t>(Members));
    EXPECT_LE(doubled, (Connections + 1) * kills);
    RecordProperty("kills", kills);
    RecordProperty("doubled", doubled);
}
