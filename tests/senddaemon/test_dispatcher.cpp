// Dispatching: where each message goes, and when.

#include <set>

#include "platform/faultplan.h"
#include "tests/senddaemon/daemonfixture.h"
#include "utility/lhvexception.h"

namespace SendDaemon {

namespace {

class Dispatcher : public CDaemonFixture {};

TEST_F(Dispatcher, SentAndUnusableMessagesAreFiled) {
    Queue(3);
    MakeFile("SendDaemon/1/odd/1.eml", "Subject: nobody\r\n\r\n");
    MakeFile("SendDaemon/1/odd/2.eml", "");
    struct CSink : ISendEvents {
        void OnMessageSent(const std::string&, const std::string& returnPath, const std::string& recipients) override {
            seen.insert(returnPath + ">" + recipients);
            std::uint32_t count = 0;
            EXPECT_TRUE(daemon->GetSentCount(count));
            if (count == 2) throw CLhvException("the sink's own trouble");
        }
        CSendDaemon* daemon = nullptr;
        std::set<std::string> seen;
    } sink;
    ASSERT_TRUE(Start()) << GetLastErrorText();
    sink.daemon = m_daemon.get();
    m_daemon->SetEventSink(&sink);
    const CSendResult result = RunToEnd();
    EXPECT_EQ(result.sent, 3U);
    EXPECT_EQ(result.failed, 2U);
    EXPECT_EQ(Counts(), "0 0 3 2 0 0");
    EXPECT_EQ(CountFilesUnder(InFolder("out")), 3U);
    EXPECT_EQ(sink.seen,
              (std::set<std::string>{"news@harbour.example>m0@there.example", "news@harbour.example>m1@there.example",
                                     "news@harbour.example>m2@there.example"}));
    EXPECT_FALSE(Platform::FolderIsThere(JoinPath(m_account, "odd")));  // drained
    EXPECT_TRUE(m_log->Contains(2, "the sink's own trouble"));
    EXPECT_FALSE(m_daemon->DispatchAll());
    EXPECT_EQ(GetLastErrorText(), "Nothing to dispatch");

    Set("SaveSentMessages", "0");
    Queue(2);
    EXPECT_EQ(RunToEnd().sent, 2U);
    EXPECT_EQ(Counts(), "0 0 3 2 0 0");
    Set("TargetFolder", "");
    Queue(2);
    EXPECT_EQ(RunToEnd().failed, 2U);
    EXPECT_EQ(Counts(), "0 0 3 4 0 0");
}

TEST_F(Dispatcher, AMessageThatCannotBeDeletedIsReportedAndNotSentAgain) {
    const auto gate = RegisterGatedKind("Gate");
    Set("SendMethod", "Gate");
    Set("SaveSentMessages", "0");
    Queue(1);
    ASSERT_TRUE(Start());
    ASSERT_TRUE(m_daemon->DispatchAll());
    {
        const Platform::CFaultPlan plan(Platform::Operation::Remove, 1);
        gate->Open();
        RunToEnd();
        EXPECT_TRUE(plan.WasHit());
    }
    EXPECT_TRUE(m_log->Contains(3, " has been just sent and it may get sent again to the same recipient."));
    EXPECT_EQ(Counts(), "0 1 0 0 0 0");
    EXPECT_EQ(RunToEnd().sent, 0U);
    ASSERT_TRUE(Start());
    EXPECT_TRUE(m_log->Contains(3, "had been taken by the server before the program stopped"));
    EXPECT_EQ(RunToEnd().sent, 0U);
    EXPECT_EQ(Counts(), "0 0 0 0 0 0");
    EXPECT_EQ(gate->delivered.size(), 1U);
}

TEST_F(Dispatcher, OneProgramSendsAtATime) {
    ASSERT_TRUE(Start());
    FillBatch("SendDaemon/1/.Queue/b", 1);
    CSendDaemon second;
    CConfiguration* server = nullptr;
    ASSERT_TRUE(second.Initialize(InFolder("x/../SendDaemon"), server));
    EXPECT_FALSE(second.AddAccount(m_account));
    EXPECT_NE(GetLastErrorText().find("Another program is already sending"), std::string::npos);
    EXPECT_EQ(Counts(), "0 1 0 0 0 0");  // its claims were left alone
    m_daemon.reset();
    EXPECT_TRUE(second.AddAccount(m_account));
    EXPECT_EQ(Counts(), "1 0 0 0 0 0");
}

TEST_F(Dispatcher, LimitsParkAndTimeFrees) {
    Queue(5);
    Set("HostName", "relay.example");
    CDispatchChecker checker;
    checker.SetFolder(m_root);
    checker.SetChecks({{"RELAY.example", 2, 1}});
    ASSERT_TRUE(checker.Save());
    ASSERT_TRUE(Start());
    CSendResult result = RunToEnd();
    EXPECT_EQ(result.sent, 2U);
    EXPECT_EQ(result.heldBack, 3U);
    EXPECT_EQ(Counts(), "0 0 2 0 0 3");
    const auto notices = m_log->GetLines(3);
    EXPECT_EQ(notices.size(), 3U);
    EXPECT_TRUE(m_log->Contains(3, "Message \"News\" to m"));
    EXPECT_TRUE(m_log->Contains(3, "@there.example will be sent later. Server limit reached."));

    m_shift = 3590;  // not yet an hour
    EXPECT_EQ(RunToEnd().sent, 0U);
    EXPECT_EQ(Counts(), "0 0 2 0 0 3");
    m_shift = 3700;
    result = RunToEnd();
    EXPECT_EQ(result.sent, 2U);
    EXPECT_EQ(Counts(), "0 0 4 0 0 1");
    checker.SetChecks({});  // the operator lifts the limit while the daemon runs
    ASSERT_TRUE(checker.Save());
    m_shift = 2 * 3700;
    MakeOlder(JoinPath(m_account, ".Blocked"), 3700);
    EXPECT_EQ(RunToEnd().sent, 1U);
    EXPECT_EQ(Counts(), "0 0 5 0 0 0");

    FillBatch("SendDaemon/1/.Blocked/b", 700);
    FillBatch("SendDaemon/1/.Blocked/c", 1);
    MakeOlder(JoinPath(m_account, ".Blocked/b"), 3700);
    m_shift = 0;
    ASSERT_TRUE(Start());  // all that are due, at once
    EXPECT_EQ(Counts(), "700 0 5 0 0 1");
    EXPECT_FALSE(Platform::FolderIsThere(JoinPath(m_account, ".Blocked/b")));
}

TEST_F(Dispatcher, MessagesExpireByTheTimeTheyWereQueuedNotParked) {
    Queue(1, "old");
    FillBatch("SendDaemon/1/.Blocked/b", 1);
    MakeOlder(m_account, 15000);
    MakeFile("SendDaemon/1/own/77.eml", Message("own@there.example"));
    FillBatch("SendDaemon/1/b", 1);
    MakeFile("SendDaemon/1/b/2026-11.eml", Message("other@there.example"));
    for (const auto* batch : {"b", "own"})
        MakeOlder(JoinPath(m_account, batch), 5000);
    Set("HostName", "relay.example");
    ASSERT_TRUE(Start());
    m_daemon->GetChecker().SetChecks({{"relay.example", 1, 100}});
    EXPECT_TRUE(m_daemon->GetChecker().CanSend("relay.example", Platform::SecondsSince1970()));
    m_daemon->SetExpiry(12000);
    EXPECT_EQ(RunToEnd().heldBack, 3U);
    EXPECT_EQ(Counts(), "0 0 0 0 2 3");
    EXPECT_TRUE(m_log->Contains(3, "Message \"News\" to old0@there.example has expired"));
    m_shift = 3700;  // 8700 seconds old
    EXPECT_EQ(RunToEnd().heldBack, 3U);
    EXPECT_EQ(Counts(), "0 0 0 0 2 3");
    m_shift = 7400;
    EXPECT_EQ(RunToEnd().expired, 3U);
    EXPECT_EQ(Counts(), "0 0 0 0 5 0");
}

TEST_F(Dispatcher, SendsOnAsManyConnectionsAsAllowed) {
    struct CCase {
        const char* maxConnections;
        int expected;
    };
    for (const CCase& each : {CCase{"0", 1}, CCase{"abc", 1}, CCase{"-3", 1}, CCase{"", 1}, CCase{"3", 3}}) {
        const auto gate = RegisterGatedKind("Gate");
        Set("SendMethod", "Gate");
        gate->endTogether = each.expected;
        Set("MaxConnections", each.maxConnections);
        ASSERT_TRUE(Start());
        Queue(5);
        for (int i = 0; i < 8; ++i)
            EXPECT_TRUE(m_daemon->DispatchAll());  // busy is no failure
        EXPECT_TRUE(gate->WaitForRunning(each.expected));
        EXPECT_TRUE(m_daemon->IsAnySending());
        gate->Open();
        RunToEnd();
        EXPECT_EQ(m_daemon->GetTotals().sent, 5U);  // some perhaps before the run
        EXPECT_EQ(gate->mostRunning, each.expected) << each.maxConnections;
        EXPECT_GT(gate->idleCalls, 0);
        EXPECT_FALSE(m_daemon->IsAnySending());
        m_daemon.reset();
        EXPECT_EQ(gate->endedAlone, 0);
    }
}

TEST_F(Dispatcher, FollowsItsConfigurationWhileItRuns) {
    const auto gate = RegisterGatedKind("Gate");
    gate->Open();
    ASSERT_TRUE(Start());
    Queue(2);
    EXPECT_EQ(RunToEnd().sent, 2U);
    ASSERT_TRUE(m_daemon->SetAccountValue(m_account, "SendMethod", "Gate"));  // its only slot is taken
    Queue(2);
    EXPECT_EQ(RunToEnd().sent, 2U);
    EXPECT_EQ(gate->delivered.size(), 2U);
    ASSERT_TRUE(m_daemon->SetAccountValue(m_account, "BeingUnregistered", "1"));
    Queue(1);
    EXPECT_FALSE(m_daemon->GetDispatcher(m_account)->Dispatch());
    EXPECT_EQ(GetLastErrorText(), "The account \"" + m_account + "\" is being unregistered.");
    EXPECT_EQ(RunToEnd().sent, 0U);
    EXPECT_EQ(Counts(), "1 0 4 0 0 0");
}

TEST_F(Dispatcher, AccountsThatCannotBeServedSayWhy) {
    ASSERT_TRUE(Start());
    EXPECT_FALSE(m_daemon->AddAccount(MakeFile("SendDaemon/2", "a file")));
    EXPECT_FALSE(m_daemon->AddAccount(""));
    EXPECT_FALSE(m_daemon->SetAccountValue(InFolder("SendDaemon/3"), "A", "1"));
    EXPECT_NE(GetLastErrorText().find("Invalid arguments"), std::string::npos);
    EXPECT_EQ(m_daemon->GetAccounts(), std::vector<std::string>{m_account});

    ASSERT_TRUE(m_daemon->SetAccountValue(m_account, "SendMethod", "Pigeon"));
    Queue(3);
    const CSendResult result = RunToEnd();
    EXPECT_TRUE(result.gaveUp);
    EXPECT_EQ(result.reason, "There is no send method \"Pigeon\".");
    EXPECT_EQ(Counts(), "3 0 0 0 0 0");
}

}  // namespace

}  // namespace SendDaemon
