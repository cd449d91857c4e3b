// The commands as a user types them, from a new data folder to delivered copies.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/programs/programrunner.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> DeliveredCopies(const CProgramRunner& runner) {
    std::vector<std::string> copies;
    for (const auto& entry : fs::directory_iterator(runner.Path("delivered")))
        copies.push_back(CProgramRunner::ReadFile(entry.path().string()));
    return copies;
}

bool Contains(const std::string& text, const std::string& what) {
    return text.find(what) != std::string::npos;
}

const char* const Message =
    "From: News <list@lists.example>\r\nTo: list@lists.example\r\nCC: everybody@example.net\r\n"
    "Bcc: boss@example.net\r\nSubject: Hello $(To-First-Name)\r\nMIME-Version: 1.0\r\n"
    "Content-Type: multipart/alternative; boundary=b\r\n\r\n--b\r\nContent-Type: text/plain\r\n\r\n"
    "Dear $(to-first-name) of $(Town)$(Unknown)!\r\n--b\r\nContent-Type: text/html\r\n\r\n"
    "<p>Dear $(To-First-Name) of $(Town)!</p>\r\n--b--\r\n";

}  // namespace

TEST(Commands, FromAListToDeliveredCopies) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"field", "set", "News", "3", "Town"});
    runner.MustRun({"blocked", "add", "*@spam.example"});
    runner.MustRun({"member", "add", "News", "anna@b.example", "--name", "Anna Berg", "--field", "Town=A & B"});
    runner.MustRun({"member", "add", "News", "carl@b.example", "--name", "Carl", "--mode", "both"});
    runner.MustRun({"member", "add", "News", "dora@b.example", "--mode", "digest"});
    runner.MustRun({"member", "add", "News", "emil@spam.example"});
    runner.MustRun({"member", "add", "News", "fritz@b.example"});
    runner.MustRun({"member", "set", "News", "fritz@b.example", "--inactive", "bounces"});
    const std::string message = runner.WriteFile("message.eml", Message);

    const std::string counts = runner.MustRun({"broadcast", message, "--list", "1", "--json"});
    EXPECT_TRUE(Contains(counts, "\"copies\":2")) << counts;
    EXPECT_TRUE(Contains(counts, "\"skipped\":2")) << counts;
    EXPECT_TRUE(Contains(counts, "\"blocked\":1")) << counts;
    EXPECT_TRUE(Contains(runner.MustRun({"queue", "ls", "--json"}), "\"waiting\":2"));
    EXPECT_TRUE(Contains(runner.MustRun({"send", "--json"}), "\"sent\":2"));
    EXPECT_TRUE(Contains(runner.MustRun({"queue", "ls", "news", "--json"}), "\"waiting\":0"));

    const std::vector<std::string> copies = DeliveredCopies(runner);
    ASSERT_EQ(copies.size(), 2u);
    const std::string& anna = Contains(copies[0], "anna@b.example") ? copies[0] : copies[1];
    EXPECT_TRUE(Contains(anna, "To: \"Anna Berg\" <anna@b.example>\r\n")) << anna;
    EXPECT_TRUE(Contains(anna, "Subject: Hello Anna\r\n")) << anna;
    EXPECT_TRUE(Contains(anna, "Dear Anna of A & B!")) << anna;
    EXPECT_TRUE(Contains(anna, "<p>Dear Anna of A &amp; B!</p>")) << anna;
    EXPECT_TRUE(Contains(anna, "X-Lhv-Broadcast: ")) << anna;
    EXPECT_FALSE(Contains(anna, "everybody@example.net")) << anna;
    EXPECT_FALSE(Contains(anna, "boss@example.net")) << anna;
}

TEST(Commands, JsonNamesWhatTheTablesShow) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"list", "set", "News", "smtpPassword", "secret"});
    runner.MustRun({"member", "add", "News", "anna@b.example", "--name", "Dr. Anna van der Berg"});
    runner.MustRun({"limit", "add", "smtp.example.net", "100", "1"});
    const struct {
        std::vector<std::string> arguments;
        std::vector<std::string> expected;
    } cases[] = {
        {{"list", "ls"},
         {"\"number\":1", "\"name\":\"News\"", "\"kind\":\"announcement\"", "\"guid\":\"{", "\"members\":1"}},
        {{"list", "show", "news"}, {"\"maxConnections\":10", "\"addresses\":{\"list\":\"list@lists.example\""}},
        {{"member", "ls", "1"},
         {"\"address\":\"anna@b.example\"", "\"first\":\"Dr. Anna\"", "\"last\":\"van der Berg\"",
          "\"mode\":\"regular\"", "\"inactive\":null", "\"fields\":{}"}},
        {{"limit", "ls"}, {"\"host\":\"smtp.example.net\"", "\"maxMessages\":100", "\"periodHours\":1"}},
        {{"queue", "ls"},
         {"\"list\":", "\"waiting\":0", "\"claimed\":0", "\"sent\":0", "\"errors\":0", "\"expired\":0",
          "\"parked\":0"}},
        {{"account", "show", "News"}, {"\"SendMethod\":\"NullMessageSender\""}},
        {{"settings", "get", "Service", "Period"}, {"\"value\":\"60\""}},
    };
    for (const auto& test : cases) {
        std::vector<std::string> arguments = test.arguments;
        arguments.push_back("--json");
        const std::string document = runner.MustRun(arguments);
        for (const std::string& expected : test.expected)
            EXPECT_TRUE(Contains(document, expected)) << expected << " in " << document;
        EXPECT_FALSE(Contains(document, "secret")) << document;
    }
}

TEST(Commands, ATestCopyLeavesNothingBehind) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"member", "add", "News", "anna@b.example", "--name", "Anna Berg"});
    const std::filesystem::path folder = runner.DataFolder() + "/SendDaemon/1/.Test";
    std::filesystem::create_directories(folder);
    for (const char* left : {"1.eml", "1.eml.clean", "2.eml"})
        std::ofstream(folder / left) << "From: a@b.example\r\n\r\n";
    for (const char* old : {"1.eml", "1.eml.clean"})
        std::filesystem::last_write_time(folder / old,
                                         std::filesystem::file_time_type::clock::now() - std::chrono::hours(25));
    const std::string message = runner.WriteFile("message.eml", Message);
    EXPECT_EQ(runner.MustRun({"test-send", "News", "anna@b.example", message}), "Sent to anna@b.example.\n");
    const std::vector<std::string> copies = DeliveredCopies(runner);
    ASSERT_EQ(copies.size(), 1U);
    EXPECT_TRUE(Contains(copies[0], "Subject: Hello Anna\r\n")) << copies[0];
    std::filesystem::remove(folder / "2.eml");  // of a program that may still run
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_TRUE(Contains(runner.MustRun({"delivery", "News"}), "sent "));
}

TEST(Commands, MessagesAreShownWithTheirTree) {
    CProgramRunner runner;
    const std::string file = runner.WriteFile("message.eml", Message);
    const std::string document = runner.MustRun({"message", "show", file, "--json"});
    for (const char* expected :
         {"\"class\":\"CMimeMultipartAlternative\"", "\"boundary\":\"b\"", "\"class\":\"CMimeText\"",
          "\"subType\":\"html\"", "\"name\":\"Subject\",\"stored\":\"Hello $(To-First-Name)\"", "\"textSha256\":"})
        EXPECT_TRUE(Contains(document, expected)) << expected << " in " << document;
    const std::string hostile = runner.WriteFile("hostile.eml",
                                                 "Subject: a\xc2\x9b"
                                                 "1m\xe2\x80\xae\x7f\n\ntext\n");
    EXPECT_TRUE(Contains(runner.MustRun({"message", "show", hostile, "--json"}), "\"a\\u009b1m\\u202e\\u007f\""));
}

TEST(Commands, ADeletedListTakesItsFilesWithIt) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"member", "add", "News", "anna@b.example"});
    runner.MustRun({"broadcast", runner.WriteFile("message.eml", Message), "--list", "News"});
    runner.MustRun({"list", "delete", "News", "--yes"});
    EXPECT_EQ(runner.MustRun({"list", "ls", "--json"}), "[]\n");
    EXPECT_FALSE(fs::exists(runner.DataFolder() + "/1.MBR"));
    EXPECT_FALSE(fs::exists(runner.DataFolder() + "/SendDaemon/1"));
    EXPECT_EQ(runner.MustRun({"list", "create", "News", "--email", "n@lists.example"}), "2\n");
}

TEST(Commands, ExpiredMessagesAreSetAside) {
    CProgramRunner runner;
    runner.MakeNullList("News");
    runner.MustRun({"member", "add", "News", "anna@b.example"});
    runner.MustRun({"broadcast", runner.WriteFile("message.eml", Message), "--list", "News"});
    for (const auto& entry : fs::recursive_directory_iterator(runner.DataFolder() + "/SendDaemon/1")) {
        if (entry.path().extension() == ".eml")
            fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::hours(49));
    }
    runner.MustRun({"settings", "set", "Service", "ExpireOutgoingMessages", "1"});
    runner.MustRun({"settings", "set", "Service", "ExpireOutgoingAfter", "2"});
    EXPECT_TRUE(Contains(runner.MustRun({"send", "--json"}), "\"expired\":1"));
    EXPECT_TRUE(Contains(runner.MustRun({"queue", "ls", "--json"}), "\"expired\":1"));
    EXPECT_TRUE(DeliveredCopies(runner).empty());
    EXPECT_TRUE(Contains(runner.MustRun({"log", "--level", "info"}), "Hello"));
}

TEST(Commands, RulesAsTheyAreShown) {
    CProgramRunner runner;
    for (const char* const name : {"One", "Two"})
        runner.MustRun({"list", "create", name, "--email", "list@lists.example"});
    runner.MustRun({"rule", "set", "One", "3", "parseFields", R"([{"target":"Last-Name","pattern":"a\\b"}])"});
    runner.MustRun({"rule", "set", "One", "4", "parseFields", R"([{"formField":"(a) Tel","terminator":";"}])"});
    runner.MustRun({"rule", "set", "One", "10", "allMessages", "yes"});
    runner.MustRun({"rule", "set", "One", "9", "footer", "@" + runner.WriteFile("latin", "Subject: x\r\n\r\n\xE9")});
    const std::string shown = runner.MustRun({"rule", "ls", "One", "--json"});
    EXPECT_TRUE(Contains(shown, R"("pattern":"^[[:blank:]]*\\(a\\) Tel:[[:blank:]]*(.*?);")")) << shown;
    EXPECT_TRUE(Contains(shown, R"("formField":"(a) Tel","terminator":";")")) << shown;
    for (int i = 0; i < 10; ++i)
        runner.MustRun({"rule", "delete", "Two", "1"});
    EXPECT_TRUE(runner.MustRun({"rule", "add", "Two", "--json", runner.WriteFile("rules", shown)}).ends_with("\n10\n"));
    std::string again = runner.MustRun({"rule", "ls", "Two", "--json"});
    for (int id = 10; id > 0; --id)
        again.replace(again.find("\"id\":" + std::to_string(id + 10)), 7, "\"id\":" + std::to_string(id));
    EXPECT_EQ(again, shown);
    EXPECT_EQ(runner.Run({"rule", "set", "Two", "3", "subjectRegex", "maybe"}).status, 1);
    const auto refused = runner.Run({"rule", "set", "Two", "3", "parseFields", R"([{"formField":""}])"});
    EXPECT_TRUE(refused.status == 1 && Contains(refused.errors, "Name of the form field to parse is not defined."));
}
