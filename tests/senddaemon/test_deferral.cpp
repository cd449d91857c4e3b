// Messages that failed for now: when they come back, and when no more.

#include "senddaemon/queuename.h"
#include "senddaemon/retryschedule.h"
#include "tests/senddaemon/daemonfixture.h"

namespace SendDaemon {

namespace {

class Deferral : public CDaemonFixture {
protected:
    std::string NameIn(AccountFolder folder) const {
        CMessageIterator walk;
        std::string path;
        return walk.Start(GetAccountFolderPath(m_account, folder)) && walk.GetCurrent(path) ? LastPathComponent(path)
                                                                                            : "none";
    }
};

TEST_F(Deferral, NamesSayWhatIsKnownOfAMessage) {
    struct CCase {
        const char* text;
        CQueueName name;
    };
    for (const CCase& each : {CCase{"7.eml", {"7", {}, 0, {}}}, CCase{"7-1700000000.eml", {"7", 1700000000, 0, {}}},
                              CCase{"7-1700000000-3.eml", {"7", 1700000000, 3, {}}},
                              CCase{"7-1700000000-0-1800000000.eml", {"7", 1700000000, 0, 1800000000}}}) {
        CQueueName name;
        EXPECT_TRUE(ParseQueueName(std::string("/a-b.c/") + each.text, name)) << each.text;
        EXPECT_EQ(name, each.name) << each.text;
        EXPECT_EQ(FormatQueueName(name), each.text);
    }
    CQueueName name;
    for (const char* other : {"2026-11.eml", "7.txt", "7", ".eml", "a7.eml", "-1700000000.eml", "7-.eml",
                              "7-1700000000-x.eml", "7-1700000000-99999999999.eml", "7-1700000000-1-1800000000-1.eml",
                              "7-17000000000000000000.eml", "7-1700000000-1-5.eml"}) {
        EXPECT_FALSE(ParseQueueName(other, name)) << other;
    }
}

TEST_F(Deferral, ComesBackByTheScheduleAlsoAfterARestart) {
    const auto gate = UseReportingKind();
    Set("RetrySchedule", "2m,10m");
    QueueFor("defer@x");
    struct CCase {
        std::int64_t seconds;
        std::uint64_t deferred;  // in this run
        std::uint32_t attempts;
        std::int64_t next;  // after that time
    };
    for (const CCase& each : {CCase{0, 1, 1, 120}, CCase{110, 0, 1, 120}, CCase{130, 1, 2, 730}, CCase{700, 0, 2, 730},
                              CCase{740, 1, 3, 1340}}) {
        const std::int64_t start = Platform::SecondsSince1970();
        m_shift = each.seconds;
        ASSERT_TRUE(Start());
        EXPECT_EQ(RunToEnd().deferred, each.deferred) << each.seconds;
        CQueueName name;
        ASSERT_TRUE(ParseQueueName(NameIn(AccountFolder::Deferred), name)) << each.seconds;
        EXPECT_EQ(name.attempts, each.attempts) << each.seconds;
        EXPECT_NEAR(static_cast<double>(*name.due - start), static_cast<double>(each.next), 20) << each.seconds;
    }
    Set("RetrySchedule", "1s");  // holds from the next failure on
    m_shift = 1400;
    EXPECT_EQ(RunToEnd().deferred, 1U);
    m_shift = 1470;
    gate->isReporting = false;  // and now it is taken
    EXPECT_EQ(RunToEnd().sent, 1U);
    EXPECT_EQ(Counts(), "0 0 1 0 0 0");
    EXPECT_EQ(CountDeferred(), 0U);
}

TEST_F(Deferral, AClockThatWasAheadKeepsNothingBack) {
    UseReportingKind();
    m_shift = 400 * std::int64_t{86400};
    QueueFor("defer@x");
    ASSERT_TRUE(Start());
    m_daemon->SetExpiry(500 * std::int64_t{86400});
    EXPECT_EQ(RunToEnd().deferred, 1U);
    m_shift = 0;
    EXPECT_EQ(RunToEnd().deferred, 1U);
    EXPECT_EQ(RunToEnd().deferred, 0U);
    CQueueName name;
    ASSERT_TRUE(ParseQueueName(NameIn(AccountFolder::Deferred), name));
    EXPECT_LE(*name.queued, Platform::SecondsSince1970());
    EXPECT_LE(*name.due, Platform::SecondsSince1970() + 900);
}

TEST_F(Deferral, EndsWhenTheMessageIsTooOld) {
    for (const std::int64_t limit : {DefaultDeferralLimit, std::int64_t{5000}}) {
        UseReportingKind();
        ASSERT_TRUE(RemoveFolderTree(JoinPath(m_account, ".Expired")));
        m_shift = 0;
        QueueFor("defer@x");
        ASSERT_TRUE(Start());
        if (limit != DefaultDeferralLimit) m_daemon->SetExpiry(limit);
        EXPECT_EQ(RunToEnd().deferred, 1U);
        m_shift = limit - 60;
        EXPECT_EQ(RunToEnd().deferred, 1U);
        m_shift = limit + 30000;
        EXPECT_EQ(RunToEnd().expired, 1U);
        EXPECT_EQ(NamedIn(AccountFolder::Expired), "(defer@x)");
        EXPECT_EQ(Deliverable(), "");
    }
    EXPECT_EQ(LogLines(),
              "deferred defer@x, deferred defer@x, expired defer@x, deferred defer@x, deferred defer@x, expired "
              "defer@x");
}

// Of a large folder each step looks at a part, and once a minute only.
TEST_F(Deferral, ManyComeBackStepByStep) {
    UseReportingKind();
    Set("SendMethod", "Pigeon");
    Platform::SetFlushEnabled(false);
    ASSERT_TRUE(Start());
    const std::int64_t now = Platform::SecondsSince1970();
    for (int i = 0; i < 1600; ++i) {
        const std::string name = FormatQueueName({std::to_string(i), now, 1, i % 2 == 0 ? now + 50 : now + 5000});
        MakeFile(JoinPath("SendDaemon/1/.Deferred/b", name), Message("m" + std::to_string(i) + "@x"));
    }
    MakeFile("SendDaemon/1/.Deferred/b/by hand.eml", Message("hand@x"));
    m_shift = 100;
    std::uint64_t previous = 1601;
    for (int i = 0; i < 4; ++i) {
        m_daemon->GetDispatcher(m_account)->Dispatch();
        const std::uint64_t left = CountDeferred();
        EXPECT_GE(left + 500, previous);
        previous = left;
    }
    EXPECT_EQ(previous, 800U);
    ASSERT_TRUE(m_daemon->SetAccountValue(m_account, "SendMethod", "Gate"));
    RunToEnd();
    EXPECT_EQ(m_daemon->GetTotals().sent, 801U);
    Platform::SetFlushEnabled(true);
}

}  // namespace

}  // namespace SendDaemon
