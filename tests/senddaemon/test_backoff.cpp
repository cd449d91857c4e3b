// Hosts that take no messages: how long each is left alone, and who goes first.

#include "senddaemon/backoff.h"

#include "app/pumpmessages.h"
#include "senddaemon/directmessagesender.h"
#include "tests/senddaemon/daemonfixture.h"

namespace SendDaemon {

namespace {

class BackOff : public CDaemonFixture {};

TEST_F(BackOff, RestsAreDoubledAndOnlyTheProbeCounts) {
    CBackOff backOff;
    using State = CBackOff::State;
    std::int64_t now = 1000;
    EXPECT_TRUE(backOff.OnUnavailable("A.example", false, now, "why"));
    for (int i = 0; i < 9; ++i)
        EXPECT_FALSE(backOff.OnUnavailable("a.example", false, now, "others on their way"));
    EXPECT_EQ(backOff.GetReason("a.example"), "why");
    for (const std::int64_t rest : {60, 120, 240, 480, 960, 1800, 1800}) {
        EXPECT_EQ(backOff.GetState("a.example", now + rest - 1), State::Resting) << rest;
        EXPECT_FALSE(backOff.BeginProbe("a.example", now + rest - 1));
        now += rest;
        EXPECT_EQ(backOff.GetState("a.example", now), State::ProbeDue) << rest;
        EXPECT_TRUE(backOff.BeginProbe("a.example", now));
        EXPECT_FALSE(backOff.BeginProbe("a.example", now));
        EXPECT_EQ(backOff.GetState("a.example", now + 9999), State::Probing);
        backOff.OnProbeLost("a.example");
        EXPECT_TRUE(backOff.BeginProbe("a.example", now));
        EXPECT_TRUE(backOff.OnUnavailable("a.example", true, now, "still"));
    }
    EXPECT_EQ(backOff.GetState("a.example", now - 86400), State::ProbeDue);  // the clock was set back
    EXPECT_EQ(backOff.GetState("b.example", now), State::Free);
    EXPECT_TRUE(backOff.OnAnswered("a.example"));
    EXPECT_EQ(backOff.GetState("a.example", now), State::Free);
    EXPECT_TRUE(backOff.OnUnavailable("a.example", false, now, "anew"));
    EXPECT_EQ(backOff.GetEnd("a.example"), now + 60);
}

TEST_F(BackOff, ARelayThatIsDownGetsOneMessageAtATime) {
    const auto gate = UseReportingKind();
    gate->isDown = true;
    Queue(20);
    ASSERT_TRUE(Start());
    struct CCase {
        std::int64_t seconds;
        std::uint64_t deferred;
        std::uint64_t waiting;
        std::int64_t until;
    };
    const std::int64_t start = Platform::SecondsSince1970();
    for (const CCase& each :
         {CCase{0, 1, 19, 60}, CCase{40, 0, 19, 60}, CCase{65, 1, 18, 185}, CCase{160, 0, 18, 185}}) {
        m_shift = each.seconds;
        const CSendResult result = RunToEnd();
        EXPECT_EQ(result.deferred, each.deferred) << each.seconds;
        EXPECT_EQ(result.waiting, each.waiting) << each.seconds;
        EXPECT_NEAR(static_cast<double>(result.waitingUntil - start), static_cast<double>(each.until), 20);
        EXPECT_EQ(result.waitingFor, "The host \"relay.example\" takes no messages now: Connection refused");
        EXPECT_FALSE(result.gaveUp);
    }
    EXPECT_EQ(RunOnce(*m_daemon, m_options).waiting, 18U);
    gate->isDown = false;
    gate->isOpen = false;
    m_shift = 200;
    Set("MaxConnections", "5");
    for (int i = 0; i < 10; ++i)
        m_daemon->DispatchAll();
    EXPECT_TRUE(gate->WaitForRunning(1));
    EXPECT_EQ(CountAccountMessages(m_account).claimed, 1U);  // the probe
    const std::uint64_t sent = m_daemon->GetTotals().sent;
    gate->Open();
    RunToEnd();
    EXPECT_EQ(m_daemon->GetTotals().sent - sent, 18U);  // the probe perhaps before the run
    EXPECT_EQ(CountDeferred(), 2U);
    EXPECT_TRUE(m_log->Contains(3, "The host \"relay.example\" takes messages again."));
}

TEST_F(BackOff, WithoutRetriesEachMessageFailsByItself) {
    const auto gate = UseReportingKind();
    Set("RetryTemporary", "0");
    gate->isDown = true;
    Queue(5);
    ASSERT_TRUE(Start());
    EXPECT_EQ(RunToEnd().failed, 5U);
    EXPECT_EQ(Counts(), "0 0 0 5 0 0");
}

TEST_F(BackOff, ARunningProgramWaitsAndGoesOn) {
    const auto gate = UseReportingKind();
    gate->isDown = true;
    Queue(3);
    ASSERT_TRUE(Start());
    const auto end = std::chrono::steady_clock::now() + CGate::Patience;
    int asked = 0;  // after the first attempt
    m_options.idlePause = std::chrono::milliseconds(1);
    m_options.stopRequested = [&] {
        if (CountDeferred() == 1 && ++asked == 50) {
            gate->isDown = false;
            m_shift = 70;
        }
        return std::chrono::steady_clock::now() > end || CountAccountMessages(m_account).sent == 2;
    };
    RunUntilStopped(*m_daemon, m_options);
    EXPECT_EQ(Counts(), "0 0 2 0 0 0");
    EXPECT_EQ(CountDeferred(), 1U);
}

// The pump runs between the look at the queue and the one at the senders.
TEST_F(BackOff, AProbeThatEndsUnseenIsFollowedByTheOthers) {
    const auto gate = UseReportingKind();
    gate->isDown = true;
    Set("HostName", "");
    Queue(3);
    ASSERT_TRUE(Start());
    const CSendResult before = RunToEnd();
    EXPECT_EQ(before.deferred, 1U);
    EXPECT_EQ(before.waiting, 2U);
    EXPECT_EQ(before.waitingFor, "Connection refused");
    gate->isDown = false;
    gate->isOpen = false;
    Set("MaxConnections", "5");
    m_shift = 70;
    int pumped = 0;
    SetMessagePump([&] {
        if (++pumped == 2) gate->Open();
        for (int i = 0; pumped == 2 && i < 20000 && m_daemon->GetDispatcher(m_account)->IsBusy(); ++i)
            m_daemon->WaitForProgress(m_daemon->GetProgress(), std::chrono::milliseconds(1));
        return true;
    });
    EXPECT_EQ(RunToEnd().sent, 2U);
    SetMessagePump({});
    EXPECT_EQ(CountAccountMessages(m_account).waiting, 0U);
}

// Only of direct delivery each domain is a destination of its own.
TEST_F(BackOff, ADomainThatIsDownHoldsNoOtherBack) {
    const auto gate = UseReportingKind();
    const std::string kind(CDirectMessageSender::MethodName);
    RegisterSenderKind(kind, [gate, kind] { return std::make_unique<CGatedSender>(gate, kind); });
    Set("SendMethod", kind);
    gate->isDown = true;
    ASSERT_TRUE(Start());
    QueueFor("a@down.example");
    EXPECT_EQ(RunToEnd().deferred, 1U);
    gate->isDown = false;
    QueueFor("b@DOWN.example");
    QueueFor("c@up.example");
    const CSendResult result = RunToEnd();
    EXPECT_EQ(result.sent, 1U);
    EXPECT_EQ(result.deferred + result.waiting, 1U);
    EXPECT_EQ(CountDeferred(), 2U);
    std::size_t untried = 0;
    ASSERT_TRUE(ForEachDeliveryLine(m_account, [&](const CDeliveryLine& line) {
        if (line.text == "Not tried: Connection refused") ++untried;
        return true;
    }));
    EXPECT_EQ(untried, 1U);
    for (const char* recipients : {"d@down.example,e@up.example", "f@down.example"}) {
        QueueFor(recipients);  // the first can be tried, and then it is known that both answer
        EXPECT_EQ(RunToEnd().sent, 1U) << recipients;
    }
    m_daemon.reset();
    RegisterSenderKind(CDirectMessageSender::MethodName, [] { return std::make_unique<CDirectMessageSender>(); });
}

}  // namespace

}  // namespace SendDaemon
