#include "engine/deliveries.h"

#include <filesystem>

#include "engine/broadcastjob.h"
#include "engine/listaccount.h"
#include "engine/rules/listcreation.h"
#include "platform/faultplan.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "tests/engine/messagefixture.h"

namespace {

using SendDaemon::CDeliveryLine;
using enum SendDaemon::DeliveryStatus;
using SendDaemon::DeliveryStatus;

class Deliveries : public MessageTest {
protected:
    Deliveries() : m_root(GetAccountRoot(1)) {
        EXPECT_TRUE(EnsureFolder(m_root));
        m_log.SetUp(m_root, 0, 0);
    }
    void Add(DeliveryStatus status, const std::string& message, const std::string& recipient,
             const std::string& broadcast = "7") {
        const CDeliveryLine line{
            .time = ++m_time, .status = status, .broadcast = broadcast, .message = message, .recipient = recipient};
        ASSERT_TRUE(m_log.Append({&line, 1}, SendDaemon::CDeliveryLog::Flush::No));
    }
    // A message that failed, with its line.
    void Fail(const std::string& name, const std::string& message, const std::string& to,
              const std::string& broadcast = "7", const std::string& folder = ".Errors") {
        const std::string batch = JoinPath(JoinPath(m_root, folder), "5");
        ASSERT_TRUE(EnsureFolder(batch));
        ASSERT_TRUE(WriteFileAtomically(JoinPath(batch, name), "X-Lhv-Broadcast: " + broadcast + "\r\nMessage-ID: <" +
                                                                   message + ">\r\nFrom: a@x.example\r\nTo: " + to +
                                                                   "\r\n\r\nText\r\n"));
        if (folder == ".Errors") Add(Failed, message, to, broadcast);
    }
    CRetryResult Retry(RetryScope scope = RetryScope::Failed) {
        CRetryResult result;
        EXPECT_TRUE(RetryFailed(m_root, "7", scope, 1700000000, result)) << DescribeLastError();
        return result;
    }
    std::string Show(const CDeliveryFilter& filter) const {
        std::string text;
        EXPECT_TRUE(ForEachDelivery(m_root, filter, [&](const CDeliveryLine& line) {
            text += line.message + ":" + std::string(GetDeliveryStatusName(line.status)) + " ";
            return true;
        }));
        return text;
    }
    std::string Queued() const {
        std::string names;
        for (const std::string& path : QueuedFiles(m_root))
            names += LastPathComponent(path) + " ";
        return names;
    }
    std::string m_root;
    SendDaemon::CDeliveryLog m_log;
    std::int64_t m_time = 0;
};

TEST_F(Deliveries, TheLastLineIsTheState) {
    Add(Deferred, "1", "a@x.example");
    Add(Failed, "2", "b@x.example");
    Add(Accepted, "1", "a@x.example");
    Add(Accepted, "3", "a@x.example", "8");
    Add(Sent, "1", "a@x.example");
    Add(Requeued, "2", "b@x.example");
    Add(Failed, "2", "c@x.example");
    const std::pair<CDeliveryFilter, const char*> cases[] = {
        {{}, "3:accepted 1:sent 2:requeued 2:failed "},
        {{.broadcast = "7"}, "1:sent 2:requeued 2:failed "},
        {{.recipient = "A@X.Example"}, "3:accepted 1:sent "},
        {{.statuses = {Failed, Deferred}}, "2:failed "},
        {{.statuses = {Failed, Deferred}, .everyLine = true}, "1:deferred 2:failed 2:failed "},
        {{.broadcast = "9"}, ""},
    };
    for (const auto& [filter, expected] : cases)
        EXPECT_EQ(Show(filter), expected);
}

TEST_F(Deliveries, CopiesThatNoLineSpeaksOfWait) {
    CBroadcastJobs jobs;
    const std::uint32_t list = MakeList("One", {MakeMember("a@x.example"), MakeMember("b@x.example"),
                                                MakeMember("c@x.example"), MakeMember("d@x.example")});
    m_root = GetAccountRoot(list);
    m_log.SetUp(m_root, 0, 0);
    std::string id;
    BroadcastInfo info;
    ASSERT_TRUE(jobs.Create(WriteMessage("From: a@x.example\r\nSubject: Hello\r\n\r\nText\r\n"), {list}, {}, id));
    ASSERT_TRUE(jobs.Run(id, {}, {}, info));
    Add(Sent, "0", "old@x.example", "6");
    Add(Accepted, "1", "a@x.example", id);
    Add(Failed, "2", "b@x.example", id);
    const auto remove = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            ASSERT_TRUE(Platform::RemoveFile(QueuedFiles(m_root).front()));
    };
    const auto summarize = [&] {
        std::vector<CBroadcastDeliveries> all;
        EXPECT_TRUE(SummarizeDeliveries(list, all)) << DescribeLastError();
        std::string text;
        for (const auto& counts : all) {
            text += counts.subject;
            for (const auto count : {counts.copies, counts.sent, counts.failed, counts.waiting})
                text += " " + std::to_string(count);
            text += ";";
        }
        return text;
    };
    remove(2);
    EXPECT_EQ(summarize(), " 1 1 0 0;Hello 4 1 1 2;");
    Add(Requeued, "2", "b@x.example", id);
    remove(2);  // by hand: what is not there does not wait
    EXPECT_EQ(summarize(), " 1 1 0 0;Hello 2 1 0 1;");
}

TEST_F(Deliveries, FailedOnesGoBackOnce) {
    Fail("11-1600000000-2.eml", "m1", "a@x.example");
    Fail("12.eml", "m2", "b@x.example");
    Fail("13.eml", "m2", "b@x.example");  // the same copy
    Fail("14.eml", "m3", "c@x.example", "8");
    Fail("15.eml", "m4", "d@x.example", "7", ".Expired");  // no line at all
    for (const auto& [name, status] : std::map<std::string, DeliveryStatus>{
             {"21.eml", Accepted}, {"22.eml", Sent}, {"23.eml", Deferred}, {"24.eml", Parked}}) {
        Fail(name, name, "e@x.example");
        Add(status, name, "e@x.example");
    }
    CRetryResult result = Retry();
    EXPECT_EQ(result.messages, 2U);
    EXPECT_EQ(result.recipients, 2U);
    EXPECT_EQ(result.doubles, 1U);
    EXPECT_EQ(result.settled, 4U);
    EXPECT_EQ(Show({.recipient = "a@x.example"}), "m1:requeued ");
    EXPECT_EQ(Show({.recipient = "b@x.example"}), "m2:requeued ");
    const std::string queued = Queued();
    EXPECT_TRUE(queued == "11-1700000000.eml 12-1700000000.eml " || queued == "11-1700000000.eml 13-1700000000.eml ")
        << queued;

    result = Retry(RetryScope::FailedAndExpired);  // the double is still there, and so is what waits
    EXPECT_EQ(result.messages, 1U);
    EXPECT_EQ(result.settled, 5U);
    EXPECT_EQ(QueuedFiles(m_root).size(), 3U);
}

TEST_F(Deliveries, AStopAtAnyPointDoublesAndLosesNothing) {
    Fail("11.eml", "m1", "a@x.example");
    Add(Requeued, "m1", "a@x.example");  // the program died before the move
    EXPECT_EQ(Retry().messages, 1U);
    EXPECT_EQ(Queued(), "11-1700000000.eml ");

    Fail("12.eml", "m2", "b@x.example");
    {
        const Platform::CFaultPlan plan(Platform::Operation::Rename, 1);
        const CRetryResult result = Retry();
        EXPECT_EQ(result.failures, 1U);
        EXPECT_NE(result.failure, "");
    }
    EXPECT_EQ(Show({.statuses = {Failed}}), "m2:failed ");
    {
        const Platform::CFaultPlan plan(Platform::Operation::Flush, 1);
        CRetryResult result;
        EXPECT_FALSE(RetryFailed(m_root, "7", RetryScope::Failed, 1, result));
    }
    EXPECT_EQ(Queued(), "11-1700000000.eml ");
    EXPECT_EQ(Retry().messages, 1U);
    EXPECT_EQ(Queued(), "11-1700000000.eml 12-1700000000.eml ");
}

TEST_F(Deliveries, NewListsTryAgain) {
    NewList list;
    list.name = "New";
    const std::uint32_t number = GetCatalogue().GetListNumber(CreateList(list));
    const SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(GetAccountRoot(number)));
    EXPECT_EQ(config.GetText("RetryTemporary"), "1");
    list.name = "Never";
    {
        const Platform::CFaultPlan plan(Platform::Operation::Rename, 1, Platform::CFaultPlan::After::Stays);
        EXPECT_ANY_THROW(CreateList(list));
    }
    EXPECT_EQ(GetCatalogue().FindByName("Never"), CCatalogue::None);
}

}  // namespace
