// What the program answers to input that is wrong: one line on standard error
// that says what and where, the right exit status, and nothing half-done.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/programs/programrunner.h"

namespace {

namespace fs = std::filesystem;

void ExpectRefusal(const CRunResult& result, int status, const std::string& reason) {
    EXPECT_EQ(result.status, status) << result.output << result.errors;
    EXPECT_NE(result.errors.find(reason), std::string::npos) << "says: " << result.errors;
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
}

std::string Nested(int depth) {
    std::string text = "From: a@example.net\nTo: b@example.net\nSubject: nested\n";
    for (int i = 0; i < depth; ++i)
        text += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\n\n--b" + std::to_string(i) + "\n";
    return text + "\nthe innermost text\n";
}

}  // namespace

TEST(BadInput, CommandsSayWhatIsWrong) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    const std::string empty = runner.WriteFile("empty.eml", "");
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* reason;
    } cases[] = {
        {{}, 2, "subcommand"},
        {{"frobnicate"}, 2, "frobnicate"},
        {{"list", "create", "Other"}, 2, "--email"},
        {{"list", "show", "Nobody's list"}, 1, "there is no list \"Nobody's list\""},
        {{"list", "show", "99"}, 1, "there is no list \"99\""},
        {{"list", "create", "NEWS", "--email", "x@lists.example"}, 1, "NEWS"},
        {{"list", "create", "Other", "--email", "no address"}, 1, "--email: no address"},
        {{"list", "create", "Other", "--email", "a@b.example", "--kind", "blog"}, 2, "--kind: blog"},
        {{"list", "set", "News", "maxConnections", "101"}, 1, "Invalid number of simultaneous SMTP connections."},
        {{"list", "set", "News", "noSuchKey", "1"}, 1, "noSuchKey"},
        {{"list", "delete", "News"}, 2, "--yes"},
        {{"field", "set", "News", "64", "Town"}, 2, "SLOT"},
        {{"field", "set", "News", "0", "a)b"}, 1, "a)b"},
        {{"field", "set", "News", "0", "to-first-name"}, 1, "to-first-name"},
        {{"member", "add", "News", "a@b.example\r\nBcc: c@d.example"}, 1, "a@b.example"},
        {{"member", "add", "News", std::string(300, 'a') + "@example.net"}, 1, "128"},
        {{"member", "add", "News", "a@b.example", "--field", "Nothing=1"}, 1, "Nothing"},
        {{"member", "add", "News", "a@b.example", "--mode", "daily"}, 2, "--mode: daily"},
        {{"member", "show", "News", "nobody@b.example"}, 1, "nobody@b.example is no member"},
        {{"member", "import", "News", runner.Path("no.csv")}, 1, "no.csv"},
        {{"blocked", "add", "no pattern"}, 2, "no pattern"},
        {{"blocked", "remove", "*@b.example"}, 1, "*@b.example is not blocked"},
        {{"broadcast", runner.Path("no.eml"), "--list", "News"}, 1, "no.eml"},
        {{"broadcast", empty, "--list", "News"}, 1, "empty.eml"},
        {{"broadcast", empty}, 2, "--list"},
        {{"broadcast", empty, "--list", "News", "--modes", "hourly"}, 2, "hourly"},
        {{"broadcast", "cancel", "no-such-id"}, 1, "no-such-id"},
        {{"broadcast", "cancel", "../../etc"}, 1, "../../etc"},
        {{"message", "show", empty}, 1, "Error loading the message"},
        {{"settings", "set", "Execution", "SyncFiles", "maybe"}, 1, "SyncFiles"},
        {{"settings", "set", "Execution", "NoSuchKey", "1"}, 1, "NoSuchKey"},
        {{"account", "set", "News", "Send-Method", "x"}, 2, "Send-Method"},
        {{"account", "set", "News", "SendMethod", "PigeonSender"}, 1, "PigeonSender"},
        {{"account", "set", "News", "TargetFoldre", "x"}, 1, "TargetFoldre"},
        {{"limit", "add", "a/b", "1", "1"}, 2, "a/b"},
        {{"rule", "show", "News", "-1"}, 2, "N: \"-1\" is no whole number"},
        {{"rule", "delete", "News", "010"}, 1, "there is no rule 10"},
        {{"rule", "delete", "News", "99999999999999999999"}, 2, "99999999999999999999 is too large"},
        {{"log", "trim", ""}, 2, "BYTES: \"\" is no whole number"},
        {{"rule", "set", "News", "2", "subjectWords", "-x"}, 2, "no option \"-x\"; a value that begins with \"-\""},
        {{"list", "set", "News", "popLogin", "x", "-y"}, 2, "no option \"-y\""},
        {{"receive", ""}, 1, "there is no list \"\""},
        {{"broadcast", "--resume", ""}, 1, "There is no broadcast \"\""},
        {{"broadcast", empty, "--list", "[News,2]"}, 1, "there is no list \"[News,2]\""},
        {{"list", "show", "a\x1b[31m\xc2\x9b\xe2\x80\xae"}, 1, "there is no list \"a?[31m??\""},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.reason);
        ExpectRefusal(runner.Run(test.arguments), test.status, test.reason);
    }
    EXPECT_EQ(runner.MustRun({"list", "ls", "--json"}).find("Other"), std::string::npos);
    EXPECT_EQ(runner.MustRun({"member", "ls", "News"}), "");
    EXPECT_NE(runner.MustRun({"broadcast", "ls", "--json"}).find("[]"), std::string::npos);
}

TEST(BadInput, DataFoldersThatCannotBeUsed) {
    CProgramRunner runner;
    runner.WriteFile("data", "I am a file");
    ExpectRefusal(runner.Run({"list", "ls"}), 1, "is not a directory. Please remove the file");
    EXPECT_EQ(CProgramRunner::ReadFile(runner.Path("data")), "I am a file");

    ExpectRefusal(runner.Run({"--data-folder", runner.Path("data/below"), "list", "ls"}), 1,
                  "Failed to create the data directory");
}

// They are parsed, made into copies and sent; what the parser keeps of them is tested below it.
TEST(BadInput, HostileMessagesGoThroughTheWholeProgram) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"member", "add", "News", "a@b.example"});
    const std::string head = "From: a@example.net\nContent-Type: ";
    for (const std::string& text :
         {Nested(10000), head + "multipart/mixed; boundary=\"" + std::string(1 << 20, 'b') + "\n\ntext\n",
          head + "image/png; name=\"../../etc/passwd\"\n\nkept\n"}) {
        const std::string file = runner.WriteFile("message.eml", text);
        EXPECT_EQ(runner.Run({"message", "resave", file, runner.Path("again.eml")}).status, 0);
        const CRunResult result = runner.Run({"broadcast", file, "--list", "News"});
        EXPECT_TRUE(result.status == 0 || result.status == 1) << result.errors;
    }
    runner.Run({"send"});
    EXPECT_FALSE(fs::exists(runner.Path("etc")));
}
