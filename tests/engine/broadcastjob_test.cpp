#include "engine/broadcastjob.h"

#include <filesystem>
#include <map>

#include "engine/blockedaddresses.h"
#include "engine/broadcastfiles.h"
#include "engine/listaccount.h"
#include "mime/mailbox.h"
#include "mime/mimemessage.h"
#include "platform/faultplan.h"
#include "platform/filestatus.h"
#include "tests/engine/messagefixture.h"
#include "tests/platform/filespeed.h"

namespace {

class BroadcastJob : public MessageTest {
protected:
    using Copies = std::map<std::string, int>;  // by address

    BroadcastJob() {
        m_message = WriteMessage("From: a@x.example\r\nSubject: \"Hello\" $(To-Email)\r\n\r\nDear $(To-Name)\r\n");
    }

    static std::vector<CMember> Members(int count, const std::string& prefix = "m") {
        std::vector<CMember> members;
        for (int i = 0; i < count; ++i)
            members.push_back(MakeMember(prefix + std::to_string(i) + "@x.example"));
        return members;
    }

    std::string Create(const std::vector<std::uint32_t>& lists, const BroadcastModes& modes = {}) {
        std::string id;
        EXPECT_TRUE(m_jobs.Create(m_message, lists, modes, id)) << DescribeLastError();
        return id;
    }

    BroadcastInfo Run(const std::string& id, const BroadcastStop& stop = {}) {
        BroadcastInfo info;
        EXPECT_TRUE(m_jobs.Run(id, stop, {}, info)) << DescribeLastError();
        return info;
    }

    // Takes copies out of the queue as the daemon does: every one, or every other one.
    static void Send(std::uint32_t list, std::size_t step, Copies& copies) {
        const auto files = QueuedFiles(GetAccountRoot(list));
        for (std::size_t i = 0; i < files.size(); i += step) {
            CMimeMessage copy;
            ASSERT_TRUE(copy.Load(files[i]));
            ASSERT_EQ(copy.GetRoot()->GetField("Subject").substr(0, 7), "\"Hello\"");
            ++copies[ParseMailboxes(copy.GetRoot()->GetField("To")).at(0).address];
            ASSERT_TRUE(Platform::RemoveFile(files[i]));
        }
    }

    static std::size_t TemporaryFiles(std::uint32_t list) {
        std::size_t count = 0;  // one without a byte in it cannot be told from another program's
        for (const auto& entry : std::filesystem::recursive_directory_iterator(GetAccountRoot(list)))
            count += entry.path().extension() == ".tmp" && entry.file_size() > 0 ? 1 : 0;
        return count;
    }

    std::string m_message;
    CBroadcastJobs m_jobs;
};

TEST_F(BroadcastJob, AfterAFaultAtAnyPointEveryMemberGetsOneCopy) {
    constexpr int MemberCount = 40;  // more than a group
    using After = Platform::CFaultPlan::After;
    const struct {
        Platform::Operation operation;
        After after;
        unsigned step;
    } rows[] = {{Platform::Operation::Any, After::Stays, 3},
                {Platform::Operation::Any, After::Recovers, 3},
                {Platform::Operation::Rename, After::Stays, 5},
                {Platform::Operation::Flush, After::Stays, 13},
                {Platform::Operation::FlushFolder, After::Recovers, 1}};
    const std::uint32_t list = MakeList("News", Members(MemberCount));
    for (const auto& row : rows) {
        const bool isFlush =
            row.operation == Platform::Operation::Flush || row.operation == Platform::Operation::FlushFolder;
        unsigned interrupted = 0;
        bool wasHit = true;
        for (unsigned n = 1; wasHit; n += row.step * ByFileSpeed(1U, 9U)) {
            const std::string id = Create({list});
            Copies copies;
            BroadcastInfo info;
            Platform::SetFlushEnabled(isFlush);
            {
                const Platform::CFaultPlan plan(row.operation, n, row.after);
                m_jobs.Run(id, {}, {}, info);
                wasHit = plan.WasHit();
            }
            Platform::SetFlushEnabled(false);
            Send(list, 2, copies);
            ASSERT_TRUE(m_jobs.Get(id, info));
            if (info.state == BroadcastState::Interrupted) {
                ++interrupted;
                info = Run(id);
            }
            Send(list, 1, copies);
            EXPECT_EQ(info.state, BroadcastState::Done);
            EXPECT_EQ(info.counts.copies, static_cast<std::uint64_t>(MemberCount)) << n;
            EXPECT_EQ(copies.size(), static_cast<std::size_t>(MemberCount)) << n;
            for (const auto& [address, count] : copies)
                ASSERT_EQ(count, 1) << address << " at " << n;
            ASSERT_EQ(TemporaryFiles(list), 0u) << n;
        }
        EXPECT_GT(interrupted, ByFileSpeed(2U, 0U));
    }
    Platform::SetFlushEnabled(true);
}

TEST_F(BroadcastJob, AFaultWhileItIsCreatedLeavesNothing) {
    const std::uint32_t list = MakeList("News", Members(3));
    for (unsigned n = 1;; ++n) {
        std::string id;
        const Platform::CFaultPlan plan(Platform::Operation::Any, n);
        if (m_jobs.Create(m_message, {list}, {}, id)) {
            if (!plan.WasHit()) break;
            continue;  // a fault that did not matter
        }
        EXPECT_NE(GetLastErrorText(), "");
        std::vector<BroadcastInfo> jobs;
        ASSERT_TRUE(m_jobs.List(jobs));
        for (const BroadcastInfo& job : jobs)
            EXPECT_EQ(job.total, 3u) << n;
    }
}

TEST_F(BroadcastJob, StoppedIsResumedAndCancelledStays) {
    const std::uint32_t list = MakeList("News", Members(50));
    const std::string id = Create({list});
    int asked = 0;
    const auto stopAt = [&asked](int member) { return [&asked, member] { return ++asked > member; }; };
    BroadcastInfo info = Run(id, stopAt(40));
    EXPECT_EQ(info.state, BroadcastState::Interrupted);
    EXPECT_EQ(info.position, 40u);
    EXPECT_EQ(QueuedFiles(GetAccountRoot(list)).size(), 40u);

    const std::string other = Create({list});
    std::vector<BroadcastInfo> ran;
    const BroadcastProgress cancelAt = [&](std::uint64_t position, std::uint64_t) {
        BroadcastInfo second;
        if (position != 45 || !m_jobs.Get(id, second) || second.state != BroadcastState::Running) return;
        EXPECT_FALSE(m_jobs.Run(id, {}, {}, second)) << "it is being run already";
        EXPECT_TRUE(m_jobs.Cancel(id));
    };
    EXPECT_TRUE(m_jobs.ResumeAll({}, cancelAt, ran));
    ASSERT_EQ(ran.size(), 2u);
    ASSERT_TRUE(m_jobs.Get(id, info));
    EXPECT_EQ(info.state, BroadcastState::Cancelled);
    EXPECT_EQ(info.counts.copies, 45u);
    EXPECT_FALSE(m_jobs.Cancel(id));
    EXPECT_FALSE(m_jobs.Run(id, {}, {}, info));
    ASSERT_TRUE(m_jobs.Get(other, info));
    EXPECT_EQ(info.state, BroadcastState::Done);
    EXPECT_EQ(QueuedFiles(GetAccountRoot(list)).size(), 95u);

    const std::string third = Create({list});
    EXPECT_TRUE(m_jobs.Cancel(third)) << "one that nobody runs";
    ASSERT_TRUE(m_jobs.Get(third, info));
    EXPECT_EQ(info.state, BroadcastState::Cancelled);
    EXPECT_EQ(info.subject, "\"Hello\" $(To-Email)");

    const std::string fourth = Create({list});
    std::size_t pruned = 0;
    const std::int64_t now = Platform::SecondsSince1970();
    EXPECT_TRUE(m_jobs.PruneDone(now - 60, pruned));
    EXPECT_EQ(pruned, 0u);
    EXPECT_TRUE(m_jobs.PruneDone(now + 60, pruned));
    EXPECT_EQ(pruned, 3u);
    EXPECT_TRUE(m_jobs.Get(fourth, info)) << "it has not ended";
}

TEST_F(BroadcastJob, EachAddressOfSeveralListsGetsOneCopyUnlessItMayNot) {
    CMember inactive = MakeMember("inactive@x.example");
    inactive.SetProperty("Inactive", "bounced");
    CBlockedAddresses().Add("blocked@x.example");
    const std::uint32_t first = MakeList("First", {MakeMember("both@x.example"), inactive, MakeMember("a@x.example"),
                                                   MakeMember("digest@x.example", "", DeliveryMode::Digest)});
    const std::uint32_t second = MakeList(
        "Second", {MakeMember("BOTH@x.example"), MakeMember("blocked@x.example"), MakeMember("digest@x.example"),
                   MakeMember("inactive@x.example"), MakeMember("gone@x.example"), MakeMember("quiet@x.example")});
    const std::string id = Create({first, second, first});
    CMemberStore store;
    store.Open(second);
    store.Remove(store.Find("gone@x.example"));
    CMember quiet = MakeMember("quiet@x.example");
    quiet.SetProperty("Inactive", "asked");
    store.Update(store.Find("quiet@x.example"), quiet);
    store.Add(MakeMember("late@x.example"));

    const BroadcastInfo info = Run(id);
    EXPECT_EQ(info.counts.copies, 4u);
    EXPECT_EQ(info.counts.blocked, 1u);
    EXPECT_EQ(info.counts.skipped, 5u);  // inactive, digest, doubled; then gone and quiet
    EXPECT_EQ(info.total, 7u);
    EXPECT_EQ(info.lists, (std::vector<std::uint32_t>{first, second}));
    Copies copies;
    Send(first, 1, copies);
    EXPECT_EQ(copies, (Copies{{"both@x.example", 1}, {"a@x.example", 1}}));
    Send(second, 1, copies);
    EXPECT_EQ(copies,
              (Copies{{"both@x.example", 1}, {"a@x.example", 1}, {"digest@x.example", 1}, {"inactive@x.example", 1}}));
}

TEST_F(BroadcastJob, WhatCannotBeSentIsNoJob) {
    const std::uint32_t list = MakeList("News", Members(1));
    const struct {
        const char* text;
        const char* reason;
    } rows[] = {{"", "empty"},
                {"\r\n\r\njust text\r\n", "no header"},
                {"Subject: s\r\nContent-Type: multipart/mixed\r\n\r\nno boundary\r\n", "boundary"}};
    std::string id;
    for (const auto& row : rows) {
        EXPECT_FALSE(m_jobs.Create(WriteMessage(row.text), {list}, {}, id)) << row.reason;
        EXPECT_NE(GetLastErrorText().find(row.reason), std::string::npos) << GetLastErrorText();
    }
    const std::string good = WriteMessage("Subject: s\r\n\r\nx\r\n");
    EXPECT_FALSE(m_jobs.Create(good, {list, 99}, {}, id));
    EXPECT_FALSE(m_jobs.Create(good, {}, {}, id));
    EXPECT_FALSE(m_jobs.Create(good, {list}, {false, false, false}, id));
    EXPECT_FALSE(m_jobs.Create(good + ".missing", {list}, {}, id));
    BroadcastInfo info;
    for (const char* name : {"", "..", "17", "../17"})
        EXPECT_FALSE(m_jobs.Get(name, info)) << name;
    EXPECT_TRUE(FolderIsEmpty(GetBroadcastsFolder()) || !Platform::FolderIsThere(GetBroadcastsFolder()));
}

TEST_F(BroadcastJob, ATornMarkLeavesTheOneBefore) {
    const std::string path = JoinPath(m_folder.GetPath(), "position");
    CBroadcastPosition position;
    ASSERT_TRUE(position.Create(path));
    BroadcastMark mark;
    for (std::uint64_t i = 1; i <= 3; ++i) {
        mark.sequence = i;
        mark.offset = i << 33;
        mark.group.push_back({static_cast<std::uint32_t>(i), "123/456"});
        ASSERT_TRUE(position.Write(mark));
    }
    std::string bytes;
    ASSERT_TRUE(ReadWholeFile(path, bytes));
    ASSERT_EQ(bytes.size(), 2 * CBroadcastPosition::SlotSize);
    ++bytes[CBroadcastPosition::SlotSize + 70];
    Put(path, bytes);
    ASSERT_TRUE(position.Open(path));
    BroadcastMark read;
    ASSERT_TRUE(position.Read(read));
    EXPECT_EQ(read.sequence, 2u);
    EXPECT_EQ(read.offset, std::uint64_t{2} << 33);
    ASSERT_EQ(read.group.size(), 2u);
    EXPECT_EQ(read.group[1].name, "123/456");
    Put(path, std::string(bytes.size(), 'x'));
    ASSERT_TRUE(position.Open(path));
    EXPECT_FALSE(position.Read(read));
}

}  // namespace
