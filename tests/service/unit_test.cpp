// The unit, as systemd's own checker reads it.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/posix/systemdunit.h"
#include "tests/programs/programrunner.h"
#include "tests/servers/testserver.h"

TEST(SystemdUnit, IsUnderstoodWhateverTheFoldersAreCalled) {
    const std::string checker = TestServers::FindProgram("systemd-analyze");
    if (checker.empty()) GTEST_SKIP() << "systemd-analyze is not installed";
    CProgramRunner runner;
    // It looks whether the program can be run, and systemd takes no quotes and backslashes in its name.
    std::filesystem::create_directories(runner.Path("$HOME 100%n"));
    const std::string program = runner.Path("$HOME 100%n/lhvserver");
    std::filesystem::copy_file(LISTHAVEN_SERVER, program);
    for (const char* name :
         {"plain", "with blank", "100%", "%n $HOME ${USER}", "a\"quote", "back\\slash", "a:b", "ö"}) {
        const std::string folder = runner.Path(name);
        std::filesystem::create_directories(folder);
        Platform::ServiceSetup setup;
        setup.description = "100% \"Listhaven\"";
        setup.account = "daemon";
        setup.dataFolder = folder;
        setup.arguments = {"--data-folder", folder, "run"};
        const std::string path = runner.WriteFile("lhvserver.service", Platform::MakeUnit(setup, program));
        std::string output;
        EXPECT_TRUE(TestServers::RunProgram(checker, {"verify", "--man=no", path}, output)) << name << ": " << output;
        EXPECT_EQ(output.find("lhvserver.service"), std::string::npos) << name << ": " << output;
    }
}
