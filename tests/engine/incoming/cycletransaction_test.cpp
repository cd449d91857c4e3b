#include "engine/incoming/cycletransaction.h"

#include <filesystem>
#include <map>
#include <memory>
#include <set>

#include "engine/broadcastjob.h"
#include "engine/eventlog.h"
#include "engine/incoming/cycleparts.h"
#include "engine/incoming/preparedfiles.h"
#include "engine/listaccount.h"
#include "platform/faultplan.h"
#include "senddaemon/batchfolder.h"
#include "tests/engine/messagefixture.h"
#include "tests/platform/filespeed.h"
#include "utility/text.h"
#include "utility/uniquename.h"

namespace {

using After = Platform::CFaultPlan::After;
using Platform::Operation;

constexpr const char* Post = "From: a@x.example\r\nSubject: post\r\n\r\nx\r\n";

class CycleTransaction : public MessageTest {
protected:
    static bool Fetch(CCycleState& state, std::uint32_t list) {
        std::string known;
        if (state.GetMark(MarkKind::ServerMessage, "uid", known)) return true;
        CCycleTransaction transaction(state);
        CNewFile file;
        if (!transaction.BeginMessage(GetInboxFolder(list), file) || !file.Write("Subject: ") || !file.Write("one") ||
            !transaction.FinishMessage(file) || !transaction.AddTwin(GetReceivedFolder(list)) ||
            !transaction.AddMessage(GetInboxFolder(list), "two")) {
            return false;
        }
        transaction.SetMark(MarkKind::ServerMessage, "uid", "delete");
        return transaction.Commit();
    }

    static bool Process(CCycleState& state, std::uint32_t list) {
        const auto inbox = QueuedFiles(GetInboxFolder(list));
        if (inbox.empty()) return true;
        CCycleTransaction transaction(state);
        std::string id;
        for (const std::string& path : inbox) {
            std::string text;
            if (!ReadWholeFile(path, text)) return false;
            if (text == "two") {
                transaction.MoveMessage(path, GetFailedFolder(list));
                continue;
            }
            if (!transaction.AddMessage(GetAccountRoot(list), "reply") ||
                !transaction.AddCopy(GetBouncesFolder(list), path, "X-Kept: 1\n") ||
                !transaction.AddBroadcast(Post, {}, id)) {
                return false;
            }
            transaction.PutMember(MakeMember("new@x.example"));
            transaction.PutMember(MakeMember("OLD@x.example", "Changed", DeliveryMode::Digest));
            transaction.PutMember(MakeMember("away@x.example"));
            transaction.RemoveMember("Away@x.example");
            transaction.RemoveMessage(path);
        }
        transaction.SetMark(MarkKind::Answer, "rule", "now");
        return transaction.Commit();
    }

    static bool Work(CCycleState& state, std::uint32_t list) {
        try {
            return state.Open(list) && state.Recover() && Fetch(state, list) && Process(state, list);
        } catch (const std::exception&) {  // a mark that cannot be read
            return false;
        }
    }

    // Contents of the queue, however named.
    static std::map<std::string, int> Contents(const std::string& queue) {
        std::map<std::string, int> contents;
        if (!std::filesystem::exists(queue)) return contents;
        for (const std::string& path : QueuedFiles(queue)) {
            std::string text;
            EXPECT_TRUE(ReadWholeFile(path, text));
            ++contents[text];
        }
        return contents;
    }

    static void CheckAll(std::uint32_t list, const std::string& where) {
        using Counts = std::map<std::string, int>;
        EXPECT_EQ(Contents(GetInboxFolder(list)), Counts()) << where;
        EXPECT_EQ(Contents(GetReceivedFolder(list)), (Counts{{"Subject: one", 1}})) << where;
        EXPECT_EQ(Contents(GetAccountRoot(list)), (Counts{{"reply", 1}})) << where;
        EXPECT_EQ(Contents(GetBouncesFolder(list)), (Counts{{"X-Kept: 1\r\nSubject: one", 1}})) << where;
        EXPECT_EQ(Contents(GetFailedFolder(list)), (Counts{{"two", 1}})) << where;
        CMemberStore store;
        store.Open(list, CMemberStore::Access::ReadOnly);
        std::map<std::string, std::string> members;
        store.ForEach(NoSlots, [&](std::int32_t, const CMember& member) {
            members[LowerAscii(member.address)] = member.name + std::string(DeliveryModeName(member.mode));
            return true;
        });
        EXPECT_EQ(members, (std::map<std::string, std::string>{{"new@x.example", "regular"},
                                                               {"old@x.example", "Changeddigest"},
                                                               {"stays@x.example", "regular"}}))
            << where;
        std::vector<BroadcastInfo> jobs;
        ASSERT_TRUE(CBroadcastJobs().List(jobs));
        EXPECT_EQ(std::count_if(jobs.begin(), jobs.end(), [&](const auto& job) { return job.lists[0] == list; }), 1)
            << where;
    }

    // The file of another program in the queue, and nothing of ours.
    static void CheckTemporaryFiles(const std::string& where) {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(GetDataFolder())) {
            if (entry.path().extension() == ".tmp") found.push_back(entry.path().filename().string());
        }
        EXPECT_EQ(found, std::vector<std::string>{"foreign.tmp"}) << where;
    }
};

TEST_F(CycleTransaction, AfterAFaultAtAnyPointEverythingIsThereOnce) {
    const struct {
        Operation operation;
        After after;
        unsigned step;
    } rows[] = {{Operation::Any, After::Stays, 1},   {Operation::Any, After::Recovers, 2},
                {Operation::Write, After::Stays, 1}, {Operation::Rename, After::Stays, 1},
                {Operation::Flush, After::Stays, 3}, {Operation::FlushFolder, After::Recovers, 1}};
    for (const auto& row : rows) {
        unsigned failed = 0;
        bool wasHit = true;
        for (unsigned n = 1; wasHit && !HasFailure(); n += row.step * ByFileSpeed(1U, 7U)) {
            Platform::SetFlushEnabled(false);
            const CTemporaryDataFolder folder;
            const std::string where = std::to_string(static_cast<int>(row.operation)) + " at " + std::to_string(n);
            const std::uint32_t list = MakeList(
                "News", {MakeMember("old@x.example"), MakeMember("away@x.example"), MakeMember("stays@x.example")});
            const std::string batch = JoinPath(GetAccountRoot(list), "1");
            ASSERT_TRUE(EnsureFolder(batch));
            Put(JoinPath(batch, "foreign.tmp"), "of another program");
            Platform::SetFlushEnabled(row.operation == Operation::Flush || row.operation == Operation::FlushFolder);
            auto state = std::make_unique<CCycleState>();
            {
                const Platform::CFaultPlan plan(row.operation, n, row.after);
                failed += Work(*state, list) ? 0 : 1;
                wasHit = plan.WasHit();
                if (row.after == After::Stays) state.reset();
            }
            if (!state) state = std::make_unique<CCycleState>();
            ASSERT_TRUE(Work(*state, list)) << where << ": " << DescribeLastError();
            ASSERT_TRUE(Work(*state, list)) << where << ": " << DescribeLastError();
            CheckAll(list, where);
            CheckTemporaryFiles(where);
        }
        EXPECT_GE(failed, ByFileSpeed(5U, 1U));
    }
    Platform::SetFlushEnabled(true);
}

// A name that cannot be given leaves a record; then the recovery fails at each point.
TEST_F(CycleTransaction, ARecoveryThatFailsAnywhereIsMadeAgain) {
    Platform::SetFlushEnabled(false);
    for (const unsigned crash : {2U, 5U}) {  // of what is fetched, of what is processed
        bool wasHit = true;
        for (unsigned n = 1; wasHit && !HasFailure(); n += ByFileSpeed(1U, 5U)) {
            const CTemporaryDataFolder folder;
            const std::string where = std::to_string(crash) + " and then " + std::to_string(n);
            const std::uint32_t list = MakeList(
                "News", {MakeMember("old@x.example"), MakeMember("away@x.example"), MakeMember("stays@x.example")});
            ASSERT_TRUE(EnsureFolder(JoinPath(GetAccountRoot(list), "1")));
            Put(JoinPath(GetAccountRoot(list), "1/foreign.tmp"), "of another program");
            for (const auto& [operation, at] : {std::pair(Operation::Rename, crash), std::pair(Operation::Any, n)}) {
                CCycleState state;
                const Platform::CFaultPlan plan(operation, at, After::Recovers);
                Work(state, list);
                wasHit = plan.WasHit();
            }
            CCycleState state;
            ASSERT_TRUE(Work(state, list)) << where << ": " << DescribeLastError();
            CheckAll(list, where);
            CheckTemporaryFiles(where);
        }
    }
    Platform::SetFlushEnabled(true);
}

// So many that other threads write them; the larger ones make the caller wait.
TEST_F(CycleTransaction, OfManyFilesAllAreThereOrNone) {
    constexpr std::size_t Count = 600;
    const auto textOf = [](std::size_t i) { return std::to_string(i) + std::string(i % 50 == 0 ? 900'000 : i, 'x'); };
    const std::pair<Operation, unsigned> rows[] = {
        {Operation::Open, 1},    {Operation::Open, 300},  {Operation::Write, 2},    {Operation::Write, 700},
        {Operation::Flush, 1},   {Operation::Flush, 150}, {Operation::Flush, 599},  {Operation::FlushFolder, 6},
        {Operation::Rename, 10}, {Operation::Write, 9},   {Operation::Rename, 601},
    };
    for (const auto& [operation, n] : rows) {
        const CTemporaryDataFolder folder;
        const std::string where = std::to_string(static_cast<int>(operation)) + " at " + std::to_string(n);
        const std::string queues[] = {JoinPath(GetDataFolder(), "First"), JoinPath(GetDataFolder(), "Second")};
        CCycleState state;
        ASSERT_TRUE(state.Open(7) && state.Recover());
        Platform::SetFlushEnabled(operation == Operation::Flush || operation == Operation::FlushFolder);
        bool isDone = true;
        {
            const Platform::CFaultPlan plan(operation, n);
            CCycleTransaction transaction(state);
            for (std::size_t i = 0; i < Count && isDone; ++i)
                isDone = transaction.AddMessage(queues[i % 2], textOf(i));
            isDone = isDone && transaction.Commit();
            EXPECT_EQ(isDone, !plan.WasHit()) << where;
        }
        Platform::SetFlushEnabled(false);
        ASSERT_TRUE(state.Recover()) << where;
        std::multiset<std::string> expected;
        std::multiset<std::string> found;
        for (std::size_t i = 0; i < Count && (isDone || operation == Operation::Rename); ++i)
            expected.insert(textOf(i));
        for (const auto& entry : std::filesystem::recursive_directory_iterator(GetDataFolder())) {
            if (entry.path().extension() == ".tmp") ADD_FAILURE() << where << ": " << entry.path().string();
            if (entry.path().extension() == ".eml") found.insert(Get(entry.path().string()));
        }
        EXPECT_TRUE(found == expected) << where << ": " << found.size();
    }
    Platform::SetFlushEnabled(true);
}

TEST_F(CycleTransaction, HoweverFewFilesMayBeOpenAllAreWritten) {
    constexpr std::size_t Count = 300;
    Platform::SetFlushEnabled(false);
    for (const std::size_t mostOpen : {1U, 2U, 5U, 40U}) {
        const CTemporaryDataFolder folder;
        CPreparingList preparing;
        CBatchFolder queue;
        ASSERT_TRUE(preparing.Open(JoinPath(GetDataFolder(), "names")));
        ASSERT_TRUE(queue.Open(JoinPath(GetDataFolder(), "Queue")));
        CPreparedFiles files(preparing, mostOpen);
        for (std::size_t i = 0; i < Count; ++i)
            ASSERT_TRUE(files.Add(queue, std::to_string(i))) << DescribeLastError();
        std::vector<CNewFile> written;
        ASSERT_TRUE(files.Finish(written)) << DescribeLastError();
        for (std::size_t i = 0; i < Count; ++i)
            ASSERT_EQ(Get(written.at(i).GetTemporaryPath()), std::to_string(i)) << mostOpen;
    }
    Platform::SetFlushEnabled(true);
}

TEST_F(CycleTransaction, ADamagedStateIsSetAsideAndWorkGoesOn) {
    const std::uint32_t list = MakeList("News", {});
    const std::string path = JoinPath(GetInboxFolder(list), ".state");
    for (int i = 1; i <= 4; ++i) {
        {
            CCycleState state;
            ASSERT_TRUE(state.Open(list) && state.Recover()) << DescribeLastError();
            std::string value;
            EXPECT_FALSE(state.GetMark(MarkKind::ServerMessage, "uid", value)) << i;
            ASSERT_TRUE(Fetch(state, list)) << DescribeLastError();
            EXPECT_TRUE(state.GetMark(MarkKind::ServerMessage, "uid", value));
        }
        std::string bytes = Get(path);
        const std::size_t sizes[] = {0, 3, 5000, 8192};
        if (i == 1) bytes.assign(bytes.size(), 'x');
        if (i > 1) bytes.resize(sizes[i - 1]);
        Put(path, bytes);
    }
    CCycleState state;
    ASSERT_TRUE(state.Open(list) && state.Recover());
    EXPECT_TRUE(std::filesystem::exists(path + ".damaged-4"));
    const std::string log = Get(GetLogFileName());
    EXPECT_EQ(Split(log, '\n').size(), 5u) << log;
    EXPECT_EQ(QueuedFiles(GetInboxFolder(list)).size(), 8u);
}

TEST_F(CycleTransaction, MarksAreManyAndOneWorksAtATime) {
    Platform::SetFlushEnabled(false);
    const CCycleLock lock(7);
    EXPECT_TRUE(lock.IsHeld());
    EXPECT_FALSE(CCycleLock(7).IsHeld());
    EXPECT_TRUE(CCycleLock(8).IsHeld());
    CCycleState state;
    ASSERT_TRUE(state.Open(7));
    CCycleTransaction transaction(state);
    transaction.SetMark(MarkKind::Attempts, "1", "1");
    EXPECT_FALSE(transaction.Commit());  // what was interrupted comes first
    ASSERT_TRUE(state.Recover());
    const std::string longKey(600, 'k');
    constexpr int Count = 40000;  // more than the first map holds
    for (int i = 0; i < Count; ++i)
        transaction.SetMark(MarkKind::ServerMessage, std::to_string(i), std::string(600, 'v'));
    transaction.SetMark(MarkKind::Answer, longKey, "x");
    transaction.SetMark(MarkKind::Answer, longKey + "2", "y");
    ASSERT_TRUE(transaction.Commit()) << DescribeLastError();
    std::string value;
    EXPECT_TRUE(state.GetMark(MarkKind::Answer, longKey, value) && value == "x");
    transaction.SetMark(MarkKind::Attempts, "1", "");
    EXPECT_FALSE(transaction.GetMark(MarkKind::Attempts, "1", value));
    ASSERT_TRUE(transaction.Commit());
    EXPECT_FALSE(state.GetMark(MarkKind::Attempts, "1", value));
    ASSERT_TRUE(state.DropMarks(MarkKind::ServerMessage,
                                [](std::string_view key, std::string_view) { return key.back() % 2 == 0; }));
    int left = 0;
    ASSERT_TRUE(state.ForEachMark(MarkKind::ServerMessage, [&](std::string_view key, std::string_view text) {
        EXPECT_TRUE(key.back() % 2 == 1 && text.size() == 600);
        return ++left > 0;
    }));
    EXPECT_EQ(left, Count / 2);
    EXPECT_TRUE(state.GetMark(MarkKind::Answer, longKey + "2", value) && value == "y");
    Platform::SetFlushEnabled(true);
}

}  // namespace
