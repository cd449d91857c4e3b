// The commands about deliveries, after copies went through the null sender.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "tests/programs/programrunner.h"
#include "tests/servers/testserver.h"

namespace {

constexpr std::string_view IdKey = "\"id\":\"";

std::size_t Count(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

}  // namespace

TEST(DeliveryCommands, SayWhoGotWhat) {
    CProgramRunner runner;
    runner.MakeNullList("summary");
    EXPECT_EQ(runner.MustRun({"delivery", "1", "--json"}), "[\n]\n");
    runner.MustRun({"member", "add", "summary", "anna@b.example"});
    runner.MustRun({"member", "add", "summary", "carl@b.example"});
    const std::string message = runner.WriteFile("m.eml", "From: a@b.example\r\nSubject: Tide\r\n\r\nHigh\r\n");
    const std::string made = runner.MustRun({"broadcast", message, "--list", "summary", "--json"});
    const std::size_t found = made.find(IdKey);
    ASSERT_NE(found, std::string::npos) << made;
    const std::size_t begin = found + IdKey.size();
    const std::string id = made.substr(begin, made.find('"', begin) - begin);
    EXPECT_EQ(Count(runner.MustRun({"delivery", "summary", "summary", "--json"}), "\"waiting\":2}"), 1U);
    runner.MustRun({"send"});

    const std::string all = runner.MustRun({"delivery", "1", "--broadcast", id, "--json"});
    EXPECT_EQ(Count(all, "\"status\":\"sent\""), 2U) << all;
    EXPECT_EQ(Count(runner.MustRun({"delivery", "1", "--recipient", "ANNA@b.example"}), "\n"), 1U);
    EXPECT_EQ(Count(runner.MustRun({"delivery", "1", "--status", "sent", "--status", "accepted", "--all"}), "\n"), 4U);
    EXPECT_EQ(runner.MustRun({"delivery", "1", "--status", "failed"}), "");
    const std::string counts = runner.MustRun({"delivery", "summary", "1", "--json"});
    EXPECT_EQ(Count(counts, "\"subject\":\"Tide\",\"copies\":2,\"sent\":2,"), 1U) << counts;
    EXPECT_EQ(Count(runner.MustRun({"delivery", "retry", "1", "--broadcast", id, "--json"}), "\"messages\":0"), 1U);

    const std::vector<std::string> wrong[] = {
        {"delivery"}, {"delivery", "1", "--status", "lost"}, {"delivery", "retry", "1"}, {"delivery", "summary"}};
    for (const auto& arguments : wrong)
        EXPECT_EQ(runner.Run(arguments).status, 2) << arguments.back();
    const CRunResult none = runner.Run({"delivery", "Nobody"});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.errors, "listhaven: there is no list \"Nobody\"\n");
}

// A relay that nobody listens at: what is asked for a test, a queue and a broadcast says so.
TEST(DeliveryCommands, SayWhatIsWrong) {
    CProgramRunner runner;
    runner.MustRun({"list", "create", "News", "--email", "news@b.example"});
    runner.MustRun({"member", "add", "News", "anna@b.example"});
    runner.MustRun({"list", "set", "News", "smtpHost", "127.0.0.1"});
    runner.MustRun({"account", "set", "News", "HostPort", std::to_string(TestServers::FindFreePort())});
    const std::string message = runner.WriteFile("m.eml", "From: a@b.example\r\nSubject: Tide\r\n\r\nHigh\r\n");

    const CRunResult test = runner.Run({"test-send", "News", "carl@b.example", message, "--json"});
    EXPECT_EQ(test.status, 1);
    EXPECT_NE(test.errors.find("refused"), std::string::npos) << test.errors;
    EXPECT_EQ(Count(test.output, "\"recipient\":\"carl@b.example\",\"sent\":false,"), 1U) << test.output;

    runner.MustRun({"broadcast", message, "--list", "News"});
    const std::string first = runner.MustRun({"send"});
    EXPECT_EQ(Count(first, "The host \"127.0.0.1\" takes no messages now: "), 1U) << first;
    EXPECT_EQ(Count(first, "1 deferred in all, tried again from 20"), 1U) << first;
    EXPECT_EQ(Count(runner.MustRun({"send", "--json"}), "\"deferred\":0,\"deferredInAll\":1,\"nextAttempt\":"), 1U);

    runner.MustRun({"list", "create", "Blocked", "--email", "other@b.example"});
    std::filesystem::remove_all(runner.Path("data/SendDaemon/2"));
    runner.WriteFile("data/SendDaemon/2", "a file where the account's folder belongs");
    const CRunResult left = runner.Run({"send"});
    EXPECT_EQ(left.status, 1);
    EXPECT_EQ(Count(left.errors, "The account of list 2 cannot be set up"), 1U) << left.errors;

    const std::vector<std::string> ofNone[] = {{"delivery", "News", "--broadcast", "1"},
                                               {"delivery", "retry", "News", "--broadcast", "1"}};
    for (const auto& arguments : ofNone) {
        const CRunResult result = runner.Run(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors, "listhaven: broadcast 1: There is no broadcast \"1\".\n");
    }
}
