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

std::string ManyHeaderLines(int count) {
    std::string text = "From: a@example.net\nTo: b@example.net\nSubject: many\n";
    for (int i = 0; i < count; ++i)
        text += "X-Line: " + std::to_string(i) + "\n";
    return text + "\ntext\n";
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

TEST(BadInput, DamagedFilesAreNamedAndKept) {
    const struct {
        const char* file;
        const char* content;  // nullptr: the file is cut in the middle of its last record
        std::vector<std::string> arguments;
        const char* reason;
    } cases[] = {
        {"Lhv.cfg", "[Service]\nEnableLogging=1\nthis is no setting\n", {"list", "ls"}, "Lhv.cfg, line 3"},
        {"LISTS.CST.ver", "abc", {"list", "ls"}, "LISTS.CST"},
        {"1.MBR.ver", "abc", {"member", "ls", "News"}, "1.MBR"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.file);
        CProgramRunner runner;
        runner.MakeNullList("News");
        runner.MustRun({"member", "add", "News", "a@b.example", "--name", "Anna Berg"});
        const std::string path = runner.DataFolder() + "/" + test.file;
        std::ofstream(path, std::ios::binary) << test.content;
        ExpectRefusal(runner.Run(test.arguments), 1, test.reason);
        EXPECT_EQ(CProgramRunner::ReadFile(path), test.content);
    }
}

TEST(BadInput, RepairMendsACutTableAndAMissingVersion) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"member", "add", "News", "a@b.example", "--name", "Anna Berg"});
    runner.MustRun({"member", "add", "News", "c@d.example", "--name", "Carl Dorn"});
    const std::string table = runner.DataFolder() + "/1.MBR";
    const auto size = fs::file_size(table);
    fs::remove(table + ".ver");
    ExpectRefusal(runner.Run({"member", "ls", "News"}), 1, "1.MBR");
    EXPECT_NE(runner.MustRun({"repair"}).find("1.MBR"), std::string::npos);
    EXPECT_NE(runner.MustRun({"member", "ls", "News"}).find("c@d.example"), std::string::npos);

    fs::resize_file(table, size - 100);
    EXPECT_EQ(runner.MustRun({"member", "ls", "News"}).find("c@d.example"), std::string::npos);
    EXPECT_EQ(fs::file_size(table), size - 100) << "nothing is cut that was not asked for";
    EXPECT_NE(runner.MustRun({"repair"}).find("1.MBR"), std::string::npos);
    EXPECT_EQ(fs::file_size(table), size / 2);
    EXPECT_NE(runner.MustRun({"member", "ls", "News"}).find("a@b.example"), std::string::npos);
    EXPECT_EQ(runner.MustRun({"repair"}), "Nothing to repair.\n");
}

TEST(BadInput, RowsOfAnImportFailOneByOne) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    std::string csv = "E-mail,Name\ngood1@b.example,Anna\n";
    csv += std::string("nul@b.example,A\0B\n", 18);
    csv += "long@b.example," + std::string(10 * 1024 * 1024, 'x') + "\n";
    csv += std::string(300, 'a') + "@b.example,Too Long\n";
    csv += "good2@b.example,Berta\n\"unclosed@b.example,Carl\ngood3@b.example,Dora\n";
    const std::string file = runner.WriteFile("members.csv", csv);
    const std::string summary = runner.MustRun({"member", "import", "News", file, "--json"});
    const std::string members = runner.MustRun({"member", "ls", "News"});
    for (const char* good : {"good1@b.example", "good2@b.example", "good3@b.example"})
        EXPECT_NE(members.find(good), std::string::npos) << good << "\n" << summary;
    EXPECT_NE(summary.find("\"added\":3"), std::string::npos) << summary;
    EXPECT_NE(summary.find("\"rejected\":4"), std::string::npos) << summary;
    const std::string rejected = CProgramRunner::ReadFile(file + ".rejected.csv");
    for (const char* line : {"\n3,", "\n4,", "\n5,", "\n7,"})
        EXPECT_NE(rejected.find(line), std::string::npos) << line << " in " << rejected.substr(0, 400);
}

TEST(BadInput, HostileMessagesAreReadWithinBounds) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"member", "add", "News", "a@b.example"});
    const std::string boundary = "Content-Type: multipart/mixed; boundary=\"";
    const struct {
        const char* name;
        std::string text;
        const char* kept;
        bool isTooDeep = false;
    } cases[] = {
        {"no header end", "From: a@example.net\nSubject: no end", "no end"},
        {"10,000 nested parts", Nested(10000), "the innermost text", true},
        {"1,000,000 header lines", ManyHeaderLines(1000000), "X-Line: 999999"},
        {"a boundary that never ends", "From: a@example.net\n" + boundary + std::string(1 << 20, 'b') + "\n\ntext\n",
         "text\r\n"},
        {"a part of white space", "From: a@example.net\n" + boundary + "b\"\n\n--b\n   \n--b\n\nkept\n--b--\n", "kept"},
        {"a name out of its folder",
         "From: a@example.net\nContent-Type: image/png; name=\"../../etc/passwd\"\nContent-Disposition: attachment; "
         "filename=\"../../etc/passwd\"\n\nkept\n",
         "kept"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        const std::string file = runner.WriteFile("message.eml", test.text);
        EXPECT_EQ(runner.Run({"message", "show", file, "--json"}).status, 0);
        const std::string again = runner.Path("again.eml");
        const std::string third = runner.Path("third.eml");
        EXPECT_EQ(runner.Run({"message", "resave", file, again}).status, 0);
        EXPECT_EQ(runner.Run({"message", "resave", again, third}).status, 0);
        // Nothing of the text goes; a tree within the bounds is written alike each time.
        EXPECT_NE(CProgramRunner::ReadFile(third).find(test.kept), std::string::npos);
        EXPECT_TRUE(test.isTooDeep || CProgramRunner::ReadFile(again) == CProgramRunner::ReadFile(third));
        const CRunResult result = runner.Run({"broadcast", file, "--list", "News"});
        EXPECT_TRUE(result.status == 0 || result.status == 1) << result.errors;
    }
    runner.Run({"send"});
    EXPECT_FALSE(fs::exists(runner.Path("etc")));
}
