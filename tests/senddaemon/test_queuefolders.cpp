// Queue folders: adding, limits, moving, walking.

#include <set>

#include "platform/faultplan.h"
#include "senddaemon/batchfolder.h"
#include "senddaemon/messagefile.h"
#include "senddaemon/messageiterator.h"
#include "tests/senddaemon/sendfixture.h"

namespace SendDaemon {

namespace {

using Transfer = CBatchFolder::Transfer;
using Times = CBatchFolder::Times;

class QueueFolders : public CSendFixture {
protected:
    std::multiset<std::string> Walk(const std::string& queue) {
        std::multiset<std::string> names;
        CMessageIterator iterator;
        EXPECT_TRUE(iterator.Start(queue));
        std::string path;
        while (iterator.GetCurrent(path)) {
            std::replace(path.begin(), path.end(), Platform::PathSeparator(), '/');
            names.insert(path.substr(queue.size() + 1));
            if (!iterator.Next()) break;
        }
        EXPECT_EQ(GetLastErrorText(), names.empty() ? "No current message." : "No more messages.");
        return names;
    }
};

TEST_F(QueueFolders, ABatchTakesOneMoreThanItsLimit) {
    const std::string batch = InFolder("queue/b");
    ASSERT_TRUE(EnsureFolder(batch));
    for (std::uint32_t i = 1; i < CBatchFolder::BatchLimit; ++i) {
        Platform::CFile file;
        ASSERT_TRUE(file.Open(JoinPath(batch, std::to_string(i) + ".eml"), Platform::FileMode::CreateNew));
    }
    CBatchFolder queue;
    ASSERT_TRUE(queue.Open(InFolder("queue")));
    std::vector<std::string> folders;
    for (int i = 0; i < 4; ++i) {
        std::string newPath;
        ASSERT_TRUE(queue.AddMessageText("x", newPath));
        folders.push_back(ParentFolder(newPath));
    }
    EXPECT_EQ(folders[0], batch);  // the 5000th
    EXPECT_EQ(folders[1], batch);  // the 5001st
    EXPECT_NE(folders[2], batch);
    EXPECT_EQ(folders[3], folders[2]);
    std::uint32_t total = 0;
    EXPECT_TRUE(queue.CountMessages(total));
    EXPECT_EQ(total, 5003U);
}

TEST_F(QueueFolders, ABatchThatVanishesIsReplaced) {
    CBatchFolder queue;
    std::string first;
    std::string second;
    ASSERT_TRUE(queue.Open(InFolder("queue")) && queue.AddMessageText("x", first));
    const std::string source = MakeFile("message.eml", "y");
    ASSERT_TRUE(RemoveFolderTree(ParentFolder(first)));
    ASSERT_TRUE(queue.AddMessage(source, Transfer::Move, Times::Keep, {}, second)) << GetLastErrorText();
    EXPECT_TRUE(Platform::FileIsThere(second));
    EXPECT_FALSE(queue.AddMessage(source, Transfer::Move, Times::Keep, {}, second));  // gone: reported, no loop
}

TEST_F(QueueFolders, AddingKeepsOrRenewsTimesAndPrependsHeaders) {
    struct CCase {
        Transfer transfer;
        Times times;
        std::string headers;
        std::string content;
        bool isOld;
        bool isSourceLeft;
    };
    const CCase cases[] = {
        {Transfer::Copy, Times::Keep, "", "To: a\r\n", true, true},
        {Transfer::Copy, Times::Renew, "X: 1", "X: 1\nTo: a\r\n", false, true},
        {Transfer::Move, Times::Keep, "", "To: a\r\n", true, false},
        {Transfer::Move, Times::Renew, "", "To: a\r\n", false, false},
        {Transfer::Move, Times::Keep, "X: 1\n", "X: 1\nTo: a\r\n", true, false},
    };
    CBatchFolder queue;
    ASSERT_TRUE(queue.Open(InFolder("queue")));
    for (const CCase& each : cases) {
        const std::string source = MakeFile("in/message.eml", "To: a\r\n");
        MakeOlder(InFolder("in"), 5000);
        std::string newPath;
        ASSERT_TRUE(queue.AddMessage(source, each.transfer, each.times, each.headers, newPath));
        std::string content;
        Platform::FileStatus status;
        ASSERT_TRUE(ReadWholeFile(newPath, content) && Platform::GetFileStatus(newPath, status));
        EXPECT_EQ(content, each.content);
        EXPECT_EQ(Platform::NanosecondsSince1970() - status.times.modified > 4000LL * 1000000000, each.isOld);
        EXPECT_EQ(Platform::FileIsThere(source), each.isSourceLeft);
    }
}

TEST_F(QueueFolders, AFailedAddLeavesExactlyOneMessage) {
    for (const auto operation : {Platform::Operation::Rename, Platform::Operation::Write, Platform::Operation::Flush,
                                 Platform::Operation::FlushFolder, Platform::Operation::Remove}) {
        for (const std::string_view headers : {"", "X: 1\n"}) {
            bool wasHit = true;
            for (unsigned n = 1; wasHit; ++n) {
                ASSERT_TRUE(RemoveFolderTree(InFolder("queue")));
                const std::string source = MakeFile("in/message.eml", "To: a\r\n");
                CBatchFolder queue;
                ASSERT_TRUE(queue.Open(InFolder("queue")));
                std::string newPath;
                bool isAdded = false;
                {
                    const Platform::CFaultPlan plan(operation, n);
                    isAdded = queue.AddMessage(source, Transfer::Move, Times::Keep, headers, newPath);
                    wasHit = plan.WasHit();
                }
                EXPECT_EQ(CountFilesUnder(InFolder("queue")) + CountFilesUnder(InFolder("in")), 1U)
                    << static_cast<int>(operation) << " " << n;
                EXPECT_EQ(Platform::FileIsThere(source), !isAdded);
                EXPECT_EQ(CountFilesUnder(InFolder("queue"), ".tmp"), 0U);
            }
        }
    }
}

TEST_F(QueueFolders, MovingMessagesRemovesOnlyBatchesThatAreEmpty) {
    const std::string batch = FillBatch("queue/one", 3);
    MakeFile("queue/one/leftover.tmp", "half");
    FillBatch("queue/.Sent/x", 1);
    CBatchFolder queue;
    CBatchFolder target;
    ASSERT_TRUE(queue.Open(InFolder("queue")) && target.Open(InFolder("target")));
    EXPECT_TRUE(queue.MoveMessageTo(JoinPath(batch, "0.eml"), target));
    EXPECT_TRUE(queue.MoveMessageTo(JoinPath(batch, "1.eml"), target));
    EXPECT_TRUE(queue.MoveMessageTo(JoinPath(batch, "2.eml"), target));
    EXPECT_TRUE(Platform::FolderIsThere(batch));  // the .tmp file is somebody's
    ASSERT_TRUE(Platform::RemoveFile(JoinPath(batch, "leftover.tmp")));
    FillBatch("queue/one", 1);
    EXPECT_TRUE(queue.MoveMessageTo(JoinPath(batch, "0.eml"), target));
    EXPECT_FALSE(Platform::FolderIsThere(batch));

    FillBatch("queue/two", 2);
    EXPECT_TRUE(queue.Load() && queue.MoveAllTo(target));
    EXPECT_EQ(Walk(InFolder("target")).size(), 6U);
    EXPECT_EQ(CountFilesUnder(InFolder("queue")), 1U);  // the one in .Sent
    EXPECT_FALSE(queue.RemoveBatch(InFolder("queue/three")));
    EXPECT_TRUE(queue.RemoveBatch(InFolder("queue/TWO")));
    EXPECT_TRUE(target.RemoveAll());
    EXPECT_EQ(CountFilesUnder(InFolder("target")), 0U);
}

TEST_F(QueueFolders, WalksSkipWhatIsNoMessage) {
    CMessageIterator iterator;
    EXPECT_FALSE(iterator.Start(""));
    FillBatch("queue/.Queue/b", 1);
    MakeFile("queue/account.cfg", "x");
    ASSERT_TRUE(iterator.Start(InFolder("queue")));
    EXPECT_FALSE(iterator.Reset());
    EXPECT_EQ(GetLastErrorText(), "No batch folders.");
    ASSERT_TRUE(EnsureFolder(InFolder("queue/folders/a.eml")));
    EXPECT_FALSE(iterator.Reset());
    EXPECT_EQ(GetLastErrorText(), "No more messages.");
    FillBatch("queue/b", 2);
    FillBatch("queue/c", 1);
    MakeFile("queue/c/half.tmp", "x");
    MakeFile("queue/c/upper.EML", "x");
    EXPECT_EQ(Walk(InFolder("queue")), (std::multiset<std::string>{"b/0.eml", "b/1.eml", "c/0.eml", "c/upper.EML"}));

    std::string path;
    ASSERT_TRUE(iterator.Reset() && iterator.GetCurrent(path));
    ASSERT_TRUE(Platform::RemoveFile(path));
    EXPECT_FALSE(iterator.GetCurrent(path));
    EXPECT_EQ(GetLastErrorText(), "No current message.");
    EXPECT_TRUE(iterator.Next());
}

}  // namespace

}  // namespace SendDaemon
