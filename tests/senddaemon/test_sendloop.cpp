// The loops: they neither lose a message nor end early, whatever fails.

#include "platform/faultplan.h"
#include "senddaemon/threadregistry.h"
#include "tests/senddaemon/daemonfixture.h"

namespace SendDaemon {

namespace {

class SendLoop : public CDaemonFixture {};

TEST_F(SendLoop, OnePassTriesEachMessageOnce) {
    const auto gate = RegisterGatedKind("Gate");
    gate->Open();
    Set("SendMethod", "Pigeon");
    Queue(4);
    ASSERT_TRUE(Start());
    CSendResult result = RunOnce(*m_daemon, m_options);
    EXPECT_EQ(result.sent + result.failed, 0U);
    EXPECT_EQ(Counts(), "4 0 0 0 0 0");
    ASSERT_TRUE(m_daemon->SetAccountValue(m_account, "SendMethod", "Gate"));
    Queue(1, "fail");
    result = RunOnce(*m_daemon, m_options);
    EXPECT_EQ(result.sent, 4U);
    EXPECT_EQ(result.failed, 1U);
    EXPECT_EQ(Counts(), "0 0 4 1 0 0");
    EXPECT_EQ(RunOnce(*m_daemon, m_options).sent, 0U);
}

// A server ends the loop when it rests, and begins it anew.
TEST_F(SendLoop, EndedAtRestItLeavesNoThreadsAndGoesOn) {
    const auto gate = RegisterGatedKind("Gate");
    gate->Open();
    Set("SendMethod", "Gate");
    ASSERT_TRUE(Start());
    bool isAtRest = false;
    m_options.stopRequested = [&] { return isAtRest; };
    m_options.resting = [&] { isAtRest = true; };
    for (const char* expected : {"0 0 3 0 0 0", "0 0 6 0 0 0"}) {
        isAtRest = false;
        Queue(3);
        EXPECT_TRUE(RunUntilStopped(*m_daemon, m_options).wasStopped);
        EXPECT_EQ(Counts(), expected);
        EXPECT_TRUE(GetRegisteredThreads().empty());
    }
}

// The n-th operation fails, for every n until none is left to fail: at the end
// of each run every message is in exactly one folder, and a second run without
// fault sends the rest.
TEST_F(SendLoop, EveryMessageIsInOnePlaceWhateverFails) {
    constexpr std::size_t Messages = 3;
    using Platform::Operation;
    for (const auto operation : {Operation::Rename, Operation::Remove, Operation::Open, Operation::Read,
                                 Operation::FlushFolder, Operation::MakeFolder}) {
        bool wasHit = true;
        for (unsigned n = 1; wasHit; ++n) {
            ASSERT_TRUE(RemoveFolderTree(InFolder("out")));
            for (const char* folder : {".Sent", ".Errors", ".Queue"}) {
                ASSERT_TRUE(RemoveFolderTree(JoinPath(m_account, folder)));
            }
            Queue(static_cast<int>(Messages));
            {
                const Platform::CFaultPlan plan(operation, n);
                if (Start()) RunToEnd();
                wasHit = plan.WasHit();
            }
            const std::string where = std::to_string(static_cast<int>(operation)) + " " + std::to_string(n);
            ASSERT_EQ(CountFilesUnder(m_account), Messages) << where;
            ASSERT_TRUE(Start()) << where;
            EXPECT_FALSE(RunToEnd().gaveUp) << where;
            EXPECT_EQ(CountFilesUnder(m_account), Messages) << where;
            const CAccountCounts counts = CountAccountMessages(m_account);
            EXPECT_EQ(counts.sent + counts.errors, Messages) << where << " " << Counts();
            // A claim that could not be filed as sent goes out again, no other.
            EXPECT_GE(CountFilesUnder(InFolder("out")), counts.sent) << where;
            EXPECT_LE(CountFilesUnder(InFolder("out")), counts.sent + 1) << where;
        }
    }
}

}  // namespace

}  // namespace SendDaemon
