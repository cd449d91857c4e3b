#include "engine/incoming/bouncerecords.h"

#include <gtest/gtest.h>

#include <string>

#include "engine/incoming/cycletransaction.h"
#include "platform/filestatus.h"
#include "senddaemon/batchfolder.h"
#include "tests/engine/memberfixture.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t Now = 1795273980;
constexpr std::int64_t Day = 24 * 60 * 60;
constexpr std::uint32_t List = 7;

CBouncedRecipient Bounced(BounceClass bounceClass) {
    CBouncedRecipient bounce;
    bounce.address = "Ann@Example.com";
    bounce.bounceClass = bounceClass;
    bounce.evidence = "552 5.2.2 over quota";
    return bounce;
}

class BounceRecordsTest : public CDataFolderTest {
protected:
    // Behind the record stands what a stranger wrote, record lines included.
    static std::string Keep(BounceEffect effect, const CMember* removed, std::int64_t time = Now) {
        const std::string text =
            MakeBounceRecord(Bounced(BounceClass::Hard), NoticeKind::Bounce, effect, removed, time) +
            "X-Lhv-Bounce-Undone: 1\nX-Lhv-Bounce-Effect: removed\nX-Lhv-Bounce-Member: eA==\n"
            "Subject: x\n\nX-Lhv-Bounce-Undone: 0\n";
        CBatchFolder folder;
        std::string path;
        EXPECT_TRUE(folder.Open(GetBouncesFolder(List)));
        EXPECT_TRUE(folder.AddMessageText(LfToCrLf(text), path));
        return path;
    }

    static bool Find(CMember& member) {
        CMemberStore store;
        store.Open(List);
        const std::int32_t index = store.Find("ann@example.com");
        return index != CMemberStore::None && store.Read(index, member);
    }
};

TEST_F(BounceRecordsTest, SoftBouncesAreCountedUntilAMonthWithoutOne) {
    const struct {
        std::int64_t day;
        BounceClass bounceClass;
        NoticeKind kind;
        const char* count;
        bool deactivates;
    } rows[] = {
        {0, BounceClass::Soft, NoticeKind::Bounce, "1", false},
        {20, BounceClass::Soft, NoticeKind::Bounce, "2", false},
        {30, BounceClass::Hard, NoticeKind::Bounce, "2", false},
        {51, BounceClass::Soft, NoticeKind::Bounce, "1", false},
        {52, BounceClass::Soft, NoticeKind::Delay, "1", false},
        {52, BounceClass::Soft, NoticeKind::Bounce, "2", false},
        {82, BounceClass::Soft, NoticeKind::Bounce, "3", true},
        {83, BounceClass::Soft, NoticeKind::Bounce, "4", false},
        {84, BounceClass::Blocked, NoticeKind::AbuseReport, "4", false},
    };
    CMember member = MakeMember("ann@example.com");
    for (const auto& row : rows) {
        EXPECT_EQ(CountBounce(member, Bounced(row.bounceClass), row.kind, Now + row.day * Day, 3), row.deactivates)
            << row.day;
        EXPECT_EQ(member.GetProperty("Bounces"), row.count) << row.day;
    }
    EXPECT_EQ(member.GetProperty("Inactive"), "3 soft bounces, the last one: 552 5.2.2 over quota");
    CMember other = MakeMember("bob@example.com");
    EXPECT_FALSE(CountBounce(other, Bounced(BounceClass::Soft), NoticeKind::Bounce, Now, 0)) << "no limit";
    EXPECT_TRUE(CountBounce(other, Bounced(BounceClass::Blocked), NoticeKind::AbuseReport, Now, 0));
}

TEST_F(BounceRecordsTest, ARemovedMemberComesBackAsHeWas) {
    CMember member = MakeMember("ann@example.com");
    member.name = "Ann \xC3\x9C. 7:x";
    member.mode = DeliveryMode::Digest;
    member.SetField(0, "12:34");
    member.SetField(63, std::string(500, '\xE4'));
    member.SetProperty("Subscribed", "1234");
    CMember counted = member;
    counted.SetProperty("Bounces", "3");
    counted.SetProperty("Inactive", "3 soft bounces");
    Keep(BounceEffect::Counted, nullptr, Now - Day);
    Keep(BounceEffect::Removed, &counted);

    const auto records = ListBounces(List);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].bounce.bounceClass, BounceClass::Hard);
    EXPECT_EQ(records[1].bounce.evidence, "552 5.2.2 over quota");
    EXPECT_TRUE(records[1].hasMember && !records[0].hasMember);

    EXPECT_TRUE(UndoBounce(List, "ann@example.com"));
    CMember found;
    ASSERT_TRUE(Find(found));
    EXPECT_EQ(found.name, member.name);
    EXPECT_EQ(found.mode, member.mode);
    EXPECT_EQ(found.properties, member.properties);
    for (const int slot : {0, 1, 63})
        EXPECT_EQ(found.GetField(slot), member.GetField(slot));
    CMemberStore store;
    store.Open(List);
    store.Remove(store.Find("ann@example.com"));
    EXPECT_TRUE(UndoBounce(List, "ann@example.com"));
    EXPECT_FALSE(Find(found)) << "who has left since then stays away";
    EXPECT_FALSE(UndoBounce(List, "bob@example.com"));

    CBounceRecord record;
    ASSERT_TRUE(FindBounce(List, records[1].id, record));
    EXPECT_TRUE(record.isUndone && record.hasMember);
    EXPECT_FALSE(FindBounce(List, "../" + records[1].id, record));
}

TEST_F(BounceRecordsTest, WhoIsThereAgainStaysAsHeIs) {
    CMember member = MakeMember("ann@example.com");
    member.SetProperty("Bounces", "5");
    member.SetProperty("Inactive", "5 soft bounces");
    CMember old = member;
    old.name = "Former";
    CMemberStore store;
    store.Open(List);
    store.Add(member);
    Keep(BounceEffect::Removed, &old, Now - Day);
    EXPECT_TRUE(UndoBounce(List, "ANN@example.com"));
    ASSERT_TRUE(Find(member));
    EXPECT_EQ(member.name, "");
    EXPECT_TRUE(member.IsInactive()) << "that bounce did not do it";
    Keep(BounceEffect::Deactivated, nullptr);
    EXPECT_TRUE(UndoBounce(List, "ann@example.com"));
    ASSERT_TRUE(Find(member));
    EXPECT_EQ(member.properties, "");
}

TEST_F(BounceRecordsTest, OldOnesArePruned) {
    const std::string old = Keep(BounceEffect::None, nullptr, Now - 400 * Day);
    constexpr std::int64_t Nanoseconds = 1'000'000'000;
    const std::int64_t today = Platform::SecondsSince1970();
    ASSERT_TRUE(Platform::SetFileTimes(old, {(today - 400 * Day) * Nanoseconds, (today - 400 * Day) * Nanoseconds}));
    Platform::SetFlushEnabled(false);
    for (int i = 0; i < 3; ++i)
        Keep(BounceEffect::Counted, nullptr);
    EXPECT_EQ(PruneBounces(List, today), 1u);
    EXPECT_EQ(ListBounces(List).size(), 3u);
}

}  // namespace
