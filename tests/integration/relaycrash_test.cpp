// Kills a program that generates and sends to a real mail server, at random
// moments, and compares what the server got with what the ledger says.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "senddaemon/deliverylog.h"
#include "tests/integration/crashlist.h"
#include "tests/platform/filespeed.h"
#include "tests/programs/programrunner.h"
#include "tests/servers/smtpsink.h"

namespace {

using namespace CrashList;
using SendDaemon::DeliveryStatus;
using TestServers::CSmtpSink;

constexpr int Connections = 4;

void MakeRelayList(const CProgramRunner& runner, int members, std::uint16_t port) {
    runner.MakeNullList("Crash");
    runner.MustRun({"settings", "set", "Service", "SmtpPort", std::to_string(port)});
    runner.MustRun({"settings", "set", "Service", "LimitLogSize", "0"});
    runner.MustRun({"list", "set", "Crash", "smtpHost", "127.0.0.1"});
    runner.MustRun({"list", "set", "Crash", "maxConnections", std::to_string(Connections)});
    runner.MustRun({"account", "set", "Crash", "SendMethod", "SmtpMessageSender2"});
    runner.MustRun({"member", "import", "Crash", runner.WriteFile("members.csv", MakeMembers(members))});
}

// How often each member was given a copy; smtp-sink removes what was not whole.
std::map<std::string, int> CountCopies(const CSmtpSink& sink) {
    std::map<std::string, int> copies;
    for (const std::string& message : sink.GetMessages()) {
        EXPECT_NE(message.find(LastLine), std::string::npos) << message;
        ++copies[FindMember(message, "X-Rcpt-Args: <")];
    }
    return copies;
}

struct CLedger {
    std::map<std::string, int> accepted;
    std::map<std::string, DeliveryStatus> last;
    int deferred = 0;
};

CLedger ReadLedger(const CProgramRunner& runner) {
    CLedger ledger;
    EXPECT_TRUE(SendDaemon::ForEachDeliveryLine(runner.DataFolder() + "/SendDaemon/1",
                                                [&ledger](const SendDaemon::CDeliveryLine& line) {
                                                    if (line.status == DeliveryStatus::Accepted)
                                                        ++ledger.accepted[line.recipient];
                                                    if (line.status == DeliveryStatus::Deferred) ++ledger.deferred;
                                                    ledger.last[line.recipient] = line.status;
                                                    return true;
                                                }));
    return ledger;
}

// Of all the notices "N messages were being sent when the program stopped".
int CountAnnounced(const CProgramRunner& runner) {
    const std::string log = runner.MustRun({"log", "-n", "1000000"});
    constexpr std::string_view Notice = " being sent when the program stopped";
    int announced = 0;
    for (std::size_t found = log.find(Notice); found != std::string::npos; found = log.find(Notice, found + 1)) {
        const std::size_t number = log.find_last_not_of("0123456789", log.rfind(" message", found) - 1) + 1;
        announced += std::stoi(log.substr(number));
    }
    return announced;
}

}  // namespace

TEST(RelayCrash, TheServerGotWhatTheLedgerSays) {
    const int Members = ByFileSpeed(3000, 400);
    const int Kills = ByFileSpeed(100, 15);
    CSmtpSink sink;
    if (!sink.IsInstalled()) GTEST_SKIP() << sink.WhyNot();
    ASSERT_TRUE(sink.Start()) << sink.WhyNot();
    CProgramRunner runner;
    MakeRelayList(runner, Members, sink.GetPort());
    runner.MustRun({"settings", "set", "Execution", "GenerationPause", "1"});

    std::mt19937 random(20261121);
    std::uniform_int_distribution<std::size_t> further(1, 40);
    int kills = 0;
    Platform::CChildProcess generator;
    ASSERT_TRUE(
        runner.Start(generator, {"broadcast", runner.WriteFile("message.eml", MakeMessage()), "--list", "Crash"}));
    // The job is there from when its folder is whole; before that nothing was promised.
    TestServers::WaitUntil([&] {
        return runner.MustRun({"broadcast", "ls", "--json"}).find("\"id\"") != std::string::npos;
    });
    generator.Kill();
    for (; kills < Kills && sink.CountMessages() < static_cast<std::size_t>(Members); ++kills) {
        Platform::CChildProcess program;
        ASSERT_TRUE(runner.Start(program, {"run"}));
        const std::size_t target = std::min(sink.CountMessages() + further(random), static_cast<std::size_t>(Members));
        EXPECT_TRUE(TestServers::WaitUntil([&] { return sink.CountMessages() >= target; })) << "nothing is sent";
        program.Kill();
    }
    EXPECT_GT(kills, Kills / 2);
    runner.MustRun({"settings", "set", "Execution", "GenerationPause", "0"});
    runner.MustRun({"broadcast", "--resume"});
    runner.MustRun({"send"});

    const std::map<std::string, int> copies = CountCopies(sink);
    const CLedger ledger = ReadLedger(runner);
    int doubled = 0;
    for (int i = 0; i < Members; ++i) {
        const std::string member = MemberAddress(i);
        const auto found = copies.find(member);
        ASSERT_NE(found, copies.end()) << member << " has no copy";
        doubled += found->second - 1;
        // What the ledger calls accepted is never sent again: only a reply that
        // the program did not live to write down can have led to another copy.
        EXPECT_EQ(ledger.accepted.at(member), 1) << member;
        EXPECT_EQ(ledger.last.at(member), DeliveryStatus::Sent) << member;
    }
    EXPECT_EQ(copies.size(), static_cast<std::size_t>(Members));
    EXPECT_LE(doubled, CountAnnounced(runner));
    EXPECT_LE(doubled, Connections * kills);
    RecordProperty("kills", kills);
    RecordProperty("doubled", doubled);
}

// A host that is down, or that refuses for now, and is well again at the end.
TEST(RelayCrash, NothingIsLostWhileMessagesAreDeferred) {
    const int Members = ByFileSpeed(200, 60);
    const int Kills = ByFileSpeed(10, 4);
    for (const bool isDown : {true, false}) {
        SCOPED_TRACE(isDown ? "nobody listens" : "450");
        auto sink = std::make_unique<CSmtpSink>(std::vector<std::string>{"-r", "RCPT"});
        if (!sink->IsInstalled()) GTEST_SKIP() << sink->WhyNot();
        ASSERT_TRUE(sink->Start()) << sink->WhyNot();
        const std::uint16_t port = sink->GetPort();
        if (isDown) sink->Stop();
        CProgramRunner runner;
        MakeRelayList(runner, Members, port);
        runner.MustRun({"account", "set", "Crash", "RetryTemporary", "1"});
        runner.MustRun({"account", "set", "Crash", "RetrySchedule", "1s"});
        runner.MustRun({"broadcast", runner.WriteFile("message.eml", MakeMessage()), "--list", "Crash"});

        std::mt19937 random(20261121);
        std::uniform_int_distribution<int> further(1, isDown ? 1 : 15);
        for (int kill = 0; kill < Kills; ++kill) {
            const int target = ReadLedger(runner).deferred + further(random);
            Platform::CChildProcess program;
            ASSERT_TRUE(runner.Start(program, {"run"}));
            EXPECT_TRUE(TestServers::WaitUntil([&] { return ReadLedger(runner).deferred >= target; }));
            program.Kill();
        }

        sink->Stop();
        CSmtpSink healed({}, TestServers::SinkKeeps::Messages, "127.0.0.1", port);
        ASSERT_TRUE(healed.Start()) << healed.WhyNot();
        EXPECT_TRUE(TestServers::WaitUntil([&] {
            runner.MustRun({"send"});  // what is due by now
            return healed.CountMessages() >= static_cast<std::size_t>(Members);
        }));
        const std::map<std::string, int> copies = CountCopies(healed);
        EXPECT_EQ(copies.size(), static_cast<std::size_t>(Members));
        for (const auto& [member, count] : copies)
            EXPECT_EQ(count, 1) << member;
    }
}
