// Deliveries that end differently for several recipients, and crashes at every
// moment of them.

#include <optional>

#include "platform/faultplan.h"
#include "platform/file.h"
#include "tests/platform/filespeed.h"
#include "tests/senddaemon/daemonfixture.h"

namespace SendDaemon {

namespace {

class Settling : public CDaemonFixture {
protected:
    ~Settling() override { Platform::SetFlushEnabled(true); }

    std::size_t CountDelivered(const std::string& recipient) const {
        const std::lock_guard guard(m_gate->lock);
        return static_cast<std::size_t>(std::count(m_gate->delivered.begin(), m_gate->delivered.end(), recipient));
    }
    static std::size_t CountIn(const std::string& text, const std::string& part) {
        std::size_t count = 0;
        for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++count;
        return count;
    }
    // One message, without another operation of the dispatching thread.
    void DispatchOne() {
        ASSERT_TRUE(m_daemon->DispatchAll());
        while (m_daemon->IsAnySending())
            m_daemon->WaitForProgress(m_daemon->GetProgress(), std::chrono::milliseconds(1));
        m_daemon->GetDispatcher(m_account)->CancelSenders();
    }
    void CrashAtEveryStep(const std::string& recipients, bool isBeforeReport);
    void CheckAfterCrash(const std::string& recipients, const std::string& where);

    std::shared_ptr<CGate> m_gate;
};

TEST_F(Settling, EachRecipientGoesWhereItBelongs) {
    struct CCase {
        const char* recipients;
        bool keeps;
        bool retries;
        const char* counts;  // waiting, claimed, sent, errors, expired, parked
        const char* errors;
        const char* deferred;
        const char* log;
    };
    const CCase cases[] = {
        {"a@x,b@x,a@x,A@X", false, true, "0 0 0 0 0 0", "", "", "accepted a@x, accepted b@x, sent a@x, sent b@x"},
        {"a@x,refuse@x", false, true, "0 0 0 1 0 0", "(refuse@x)", "", "accepted a@x, failed refuse@x, sent a@x"},
        {"a@x,refuse@x,defer@x", true, true, "0 0 1 1 0 0", "(refuse@x)", "(defer@x)",
         "accepted a@x, failed refuse@x, deferred defer@x, sent a@x"},
        {"defer@x,defer2@x", true, true, "0 0 0 0 0 0", "", "(defer@x,defer2@x)",
         "deferred defer@x, deferred defer2@x"},
        {"a@x,defer@x", true, false, "0 0 1 1 0 0", "(defer@x)", "", "accepted a@x, failed defer@x, sent a@x"},
    };
    m_gate = UseReportingKind();
    for (const CCase& each : cases) {
        SCOPED_TRACE(each.log);
        m_daemon.reset();
        ASSERT_TRUE(RemoveFolderTree(m_account) && EnsureFolder(m_account));
        Set("SendMethod", "Gate");
        Set("SaveSentMessages", each.keeps ? "1" : "0");
        Set("RetryTemporary", each.retries ? "1" : "0");
        ASSERT_TRUE(Start());
        QueueFor(each.recipients);
        const CSendResult result = RunToEnd();
        EXPECT_EQ(Counts(), each.counts);
        EXPECT_EQ(NamedIn(AccountFolder::Errors), each.errors);
        EXPECT_EQ(NamedIn(AccountFolder::Deferred), each.deferred);
        EXPECT_EQ(LogLines(), each.log);
        EXPECT_EQ(result.failed, *each.errors == 0 ? 0U : 1U);
        EXPECT_EQ(result.deferred, *each.deferred == 0 ? 0U : 1U);
    }
}

TEST_F(Settling, ARestGoesOutWithTheSameTextToNobodyElse) {
    m_gate = UseReportingKind();
    Set("RetrySchedule", "1m");
    MakeFile("SendDaemon/1/b/5.eml",
             " of nothing\r\nno field\r\nX-Lhv-Recipient-Override: a@x,\r\n defer@x, refuse@x\r\nFrom: n@x\r\nTo: "
             "list@x\r\nCC: b@x\r\nSubject: S\r\n\r\nX-Lhv-Recipient-Override: text\r\n");
    ASSERT_TRUE(Start());
    for (m_shift = 0; m_shift < 300; m_shift += 100)
        RunToEnd();
    for (const auto& [folder, recipient] : {std::pair(".Deferred", "defer@x"), std::pair(".Errors", "refuse@x")}) {
        std::string path;
        std::string content;
        CMessageIterator walk;
        ASSERT_TRUE(walk.Start(JoinPath(m_account, folder)) && walk.GetCurrent(path));
        ASSERT_TRUE(ReadWholeFile(path, content));
        EXPECT_EQ(content, "X-Lhv-Recipient-Override: " + std::string(recipient) +
                               "\r\nX-Lhv-Recipients-Only: 1\r\nFrom: n@x\r\nTo: list@x\r\nCC: b@x\r\nSubject: "
                               "S\r\n\r\nX-Lhv-Recipient-Override: text\r\n");
    }
    EXPECT_EQ(CountDelivered("a@x") + CountDelivered("b@x"), 2U);
}

TEST_F(Settling, ACancelledDeliveryKeepsWhatWasAccepted) {
    m_gate = UseReportingKind();
    m_gate->isOpen = false;
    Set("MaxConnections", "2");
    QueueFor("early@x,late@x");
    QueueFor("m@x");
    ASSERT_TRUE(Start());
    m_options.stopRequested = [&] {
        const std::lock_guard guard(m_gate->lock);
        return m_gate->running == 2;
    };
    EXPECT_TRUE(RunUntilStopped(*m_daemon, m_options).wasStopped);
    EXPECT_EQ(NamedIn(AccountFolder::Waiting), "(late@x)(m@x)");
    EXPECT_EQ(LogLines(), "accepted early@x, sent early@x");
    EXPECT_EQ(Counts(), "2 0 1 0 0 0");
}

TEST_F(Settling, NothingGoesOutThatCannotBeRecorded) {
    m_gate = UseReportingKind();
    ASSERT_TRUE(Start());
    QueueFor("a@x");
    QueueFor("b@x");
    {
        const Platform::CFaultPlan diskIsFull(Platform::Operation::Write, 1, Platform::CFaultPlan::After::Stays);
        const CSendResult result = RunToEnd();
        EXPECT_EQ(result.sent, 1U);
        EXPECT_TRUE(result.gaveUp);
        EXPECT_NE(result.reason.find("The delivery log cannot be written"), std::string::npos);
    }
    EXPECT_EQ(RunToEnd().sent, 1U);
    EXPECT_EQ(CountIn(LogLines(), "accepted "), 2U);
    EXPECT_EQ(CountIn(LogLines(), "sent "), 2U);
    QueueFor("c@x");
    {
        const Platform::CFaultPlan diskIsFull(Platform::Operation::Write, 1, Platform::CFaultPlan::After::Stays);
        EXPECT_EQ(RunToEnd().sent, 1U);
        m_daemon.reset();
        EXPECT_TRUE(m_log->Contains(2, "accepted, message "));
        EXPECT_TRUE(m_log->Contains(2, ", c@x"));
    }
    ASSERT_TRUE(Platform::RemoveFile(JoinPath(m_account, "delivery.log")) && Start());
    MakeFile("SendDaemon/1/delivery.log/other", "");
    QueueFor("d@x");
    EXPECT_TRUE(RunToEnd().gaveUp);
    EXPECT_EQ(CountDelivered("d@x"), 0U);
}

TEST_F(Settling, AStartAsksTheLogWhoHasAClaimedMessage) {
    m_gate = UseReportingKind();
    const auto claimed = [&](const char* name, const std::string& id, const std::string& recipients) {
        MakeFile(JoinPath("SendDaemon/1/.Queue/b", name), "Message-ID: <" + id + ">\r\n" + Message(recipients));
    };
    claimed("1.eml", "all", "a@x,b@x");
    claimed("2.eml", "some", "c@x,d@x");
    claimed("3-1700000000-2.eml", "none", "e@x");
    claimed("4.eml", "settled", "f@x");
    claimed("5.eml", "twice", "g@x");
    claimed("6.eml", "twice", "g@x");
    MakeFile("SendDaemon/1/.Queue/b/1.eml.clean", "left over");
    CDeliveryLog log;
    log.SetUp(m_account, 0, 0);
    const auto line = [&](const char* message, const char* recipient, DeliveryStatus status) {
        const CDeliveryLine one = {.time = 1, .status = status, .message = message, .recipient = recipient};
        ASSERT_TRUE(log.Append(std::array{one}, CDeliveryLog::Flush::No));
    };
    for (const auto& [message, recipient] :
         {std::pair{"all", "a@x"}, std::pair{"all", "b@x"}, std::pair{"some", "d@x"}, std::pair{"settled", "f@x"},
          std::pair{"twice", "g@x"}, std::pair{"gone", "h@x"}})
        line(message, recipient, DeliveryStatus::Accepted);
    line("settled", "f@x", DeliveryStatus::Requeued);
    ASSERT_TRUE(Start());
    EXPECT_EQ(NamedIn(AccountFolder::Waiting), "(c@x)(e@x)(f@x)(g@x)");
    EXPECT_EQ(Counts(), "4 0 3 0 0 0");
    EXPECT_EQ(CountIn(LogLines(), "sent "), 5U);  // a, b, d, g, h
    EXPECT_TRUE(m_log->Contains(3, "it is not sent again to a@x and others."));
    EXPECT_TRUE(m_log->Contains(3, "4 messages were being sent when the program stopped"));
    EXPECT_FALSE(Platform::FolderIsThere(JoinPath(m_account, ".Queue/b")));
    const std::string before = LogLines();
    ASSERT_TRUE(Start());
    EXPECT_EQ(LogLines(), before);
}

TEST_F(Settling, AStartThatIsCutOffHasSaidWhatMayArriveTwice) {
    bool wasHit = true;
    for (unsigned n = 1; wasHit; ++n) {
        ASSERT_TRUE(RemoveFolderTree(m_account));
        FillBatch("SendDaemon/1/.Queue/b", 2);
        SetMessageHandler(m_log = std::make_shared<CLogRecorder>());
        {
            const Platform::CFaultPlan plan(Platform::Operation::Any, n, Platform::CFaultPlan::After::Stays);
            Start();
            wasHit = plan.WasHit();
        }
        m_daemon.reset();
        const bool isSaid = m_log->Contains(3, "2 messages were being sent when the program stopped");
        EXPECT_TRUE(isSaid || CountAccountMessages(m_account).claimed == 2) << n;
        EXPECT_EQ(CountFilesUnder(m_account), 2U) << n;
    }
}

// Whoever was taken is nowhere to be sent to, every other recipient is in one
// place from which it will be, or in .Errors.
void Settling::CheckAfterCrash(const std::string& recipients, const std::string& where) {
    const std::string deliverable = Deliverable();
    const std::string errors = NamedIn(AccountFolder::Errors);
    const std::string log = LogLines();
    for (const std::string& recipient : SplitRecipients(recipients)) {
        const std::size_t waiting = CountIn(deliverable, recipient);
        if (CountDelivered(recipient) == 0) {
            const bool isRefused = recipient.starts_with("refuse");
            EXPECT_TRUE(waiting == 1 || (isRefused && waiting == 0 && CountIn(errors, recipient) > 0))
                << where << " " << recipient;
        } else {
            // The only window: the server's answer was not yet on disk.
            EXPECT_EQ(waiting, CountIn(log, "accepted " + recipient) > 0 ? 0U : 1U) << where << " " << recipient;
        }
    }
    EXPECT_EQ(CountAccountMessages(m_account).claimed, 0U) << where;
}

void Settling::CrashAtEveryStep(const std::string& recipients, bool isBeforeReport) {
    const unsigned stride = ByFileSpeed(1U, 5U);
    bool wasHit = true;
    for (unsigned n = 1; wasHit; n += stride) {
        const std::string where = recipients + " " + std::to_string(n);
        std::string config;
        m_daemon.reset();
        ASSERT_TRUE(ReadWholeFile(GetAccountConfigPath(m_account), config));
        ASSERT_TRUE(RemoveFolderTree(m_account));
        MakeFile("SendDaemon/1/account.cfg", config);
        m_gate->delivered.clear();
        m_shift = 0;
        Platform::SetFlushEnabled(false);
        ASSERT_TRUE(Start());
        QueueFor(recipients);
        Platform::SetFlushEnabled(true);  // its operations fail too, where any may
        std::optional<Platform::CFaultPlan> plan;
        const auto crash = [&] { plan.emplace(Platform::Operation::Any, n, Platform::CFaultPlan::After::Stays); };
        (isBeforeReport ? m_gate->beforeReport : m_gate->afterReport) = crash;
        DispatchOne();
        ASSERT_TRUE(plan) << where;
        wasHit = plan->WasHit();
        m_daemon.reset();
        plan.reset();
        Platform::SetFlushEnabled(false);
        m_gate->beforeReport = m_gate->afterReport = {};
        ASSERT_TRUE(Start()) << where << GetLastErrorText();
        CheckAfterCrash(recipients, where);
        const std::string accepted = Join(m_gate->delivered, ",");
        m_shift = 400;
        RunToEnd();
        for (const std::string& recipient : SplitRecipients(accepted)) {
            EXPECT_TRUE(isBeforeReport || CountDelivered(recipient) == 1) << where;
            EXPECT_GE(CountIn(LogLines(), "sent " + recipient), 1U) << where;
        }
        ASSERT_LT(n, 100U);
    }
}

TEST_F(Settling, ACrashAtAnyStepLosesNobodyAndDoublesNobody) {
    m_gate = UseReportingKind();
    for (const char* recipients : {"a@x", "a@x,b@x,refuse@x", "refuse@x,defer@x"})
        CrashAtEveryStep(recipients, false);
    Set("SaveSentMessages", "0");
    for (const char* recipients : {"a@x", "defer@x", "a@x,refuse@x,defer@x"})
        CrashAtEveryStep(recipients, false);
    CrashAtEveryStep("a@x,b@x,defer@x", true);
}

}  // namespace

}  // namespace SendDaemon
