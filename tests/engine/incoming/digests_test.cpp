#include "engine/incoming/digests.h"

#include "engine/broadcastjob.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/listaccount.h"
#include "platform/faultplan.h"
#include "platform/filestatus.h"
#include "senddaemon/batchfolder.h"
#include "tests/engine/messagefixture.h"
#include "tests/platform/filespeed.h"

namespace {

class Digests : public MessageTest {
protected:
    void Collect(const std::string& mark) {
        CBatchFolder folder;
        std::string path;
        ASSERT_TRUE(folder.Open(GetDigestEntryFolder(m_list)));
        ASSERT_TRUE(folder.AddMessageText("From: a@x.example\r\nSubject: s\r\n\r\nentry-" + mark + "\r\n", path));
    }

    // How often the entries are in all broadcasts together; then there are none.
    std::map<std::string, int> TakeBroadcasts() {
        std::map<std::string, int> entries;
        std::vector<BroadcastInfo> jobs;
        EXPECT_TRUE(CBroadcastJobs().List(jobs));
        m_jobs = jobs.size();
        for (const BroadcastInfo& job : jobs) {
            std::string text;
            EXPECT_TRUE(ReadWholeFile(JoinPath(GetBroadcastsFolder(), job.id + "/message.eml"), text));
            for (std::size_t at = text.find("entry-"); at != std::string::npos; at = text.find("entry-", at + 1))
                ++entries[text.substr(at + 6, 1)];
        }
        EXPECT_TRUE(RemoveFolderTree(GetBroadcastsFolder()));
        return entries;
    }

    const std::uint32_t m_list = MakeList("News", {MakeMember("d@x.example", "", DeliveryMode::Digest)});
    std::size_t m_jobs = 0;
};

TEST_F(Digests, AfterAFaultAtAnyPointEveryEntryIsInOneDigest) {
    std::size_t number = 0;
    bool sent = false;
    bool wasHit = true;
    for (unsigned n = 1; wasHit; n += ByFileSpeed(1U, 7U)) {
        Collect("a");
        Collect("b");
        {
            const Platform::CFaultPlan plan(Platform::Operation::Any, n);
            SendDigest(m_list, 1000, sent);
            wasHit = plan.WasHit();
        }
        Collect("c");
        ASSERT_TRUE(SendDigest(m_list, 2000, sent)) << n << DescribeLastError();
        ASSERT_EQ(TakeBroadcasts(), (std::map<std::string, int>{{"a", 1}, {"b", 1}, {"c", 1}})) << n;
        CDigestState state;
        ASSERT_TRUE(ReadDigestState(m_list, state) && state.entries.empty());
        EXPECT_EQ(state.lastSent, 2000);
        EXPECT_EQ(state.number, number + m_jobs) << n;
        number = state.number;
    }
    EXPECT_TRUE(SendDigest(m_list, 3000, sent));
    EXPECT_FALSE(sent) << "nothing collected, nothing sent";
}

TEST_F(Digests, WaitForMembersThatWereLost) {
    Collect("a");
    ASSERT_TRUE(Platform::RemoveFile(GetDataFolder() + std::to_string(m_list) + ".MBR"));
    bool sent = false;
    EXPECT_FALSE(SendDigest(m_list, 1000, sent));
    EXPECT_EQ(TakeBroadcasts().size(), 0U);
    CMemberStore store;
    store.Open(m_list);
    store.Add(MakeMember("D@x.example", "", DeliveryMode::Digest));
    EXPECT_TRUE(SendDigest(m_list, 2000, sent)) << GetLastErrorText();
    EXPECT_EQ(TakeBroadcasts(), (std::map<std::string, int>{{"a", 1}}));
}

// Of one transaction, so within one tick of the clock that stamps files.
TEST_F(Digests, KeepTheOrderOfThePosts) {
    CCycleState cycle;
    ASSERT_TRUE(cycle.Open(m_list) && cycle.Recover());
    CCycleTransaction transaction(cycle);
    for (int i = 0; i < 20; ++i) {
        transaction.KeepOrder();
        ASSERT_TRUE(transaction.AddMessage(GetDigestEntryFolder(m_list), std::to_string(i)));
    }
    ASSERT_TRUE(transaction.Commit());
    CDigestState state;
    ASSERT_TRUE(ReadDigestState(m_list, state));
    ASSERT_EQ(state.entries.size(), 20u);
    for (std::size_t i = 0; i < 20; ++i)
        EXPECT_EQ(Get(state.entries[i]), std::to_string(i));
}

TEST_F(Digests, AreDueByTimeOrByCount) {
    const std::int32_t index = GetCatalogue().FindByNumber(m_list);
    const std::int64_t now = Platform::SecondsSince1970();
    bool sent = true;
    Collect("a");
    EXPECT_TRUE(SendDigestIfDue(m_list, now + 999999999, sent));
    EXPECT_FALSE(sent) << "neither";
    GetCatalogue().SetFlag(index, ListColumn::DigestByTime, true);
    GetCatalogue().SetNumber(index, ListColumn::DigestHours, 2);
    const struct {
        std::int64_t after;  // seconds
        int entries;
        bool isSent;
    } rows[] = {{7000, 0, false},  {7300, 0, true},                       // two hours since the first entry
                {14400, 1, false}, {14500, 0, true},                      // two hours since the last digest
                {99999, 0, false}, {14501, 1, false}, {14502, 1, true}};  // nothing; too early; two are enough
    for (const auto& row : rows) {
        GetCatalogue().SetFlag(index, ListColumn::DigestByCount, row.after == 14502);
        GetCatalogue().SetNumber(index, ListColumn::DigestCount, 2);
        for (int i = 0; i < row.entries; ++i)
            Collect("x");
        EXPECT_TRUE(SendDigestIfDue(m_list, now + row.after, sent));
        EXPECT_EQ(sent, row.isSent) << row.after;
    }
}

}  // namespace
