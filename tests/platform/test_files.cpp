#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "platform/directorysearch.h"
#include "platform/faultplan.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "temporaryfolder.h"

using namespace Platform;

TEST(File, ModesOnMissingAndExistingFiles) {
    struct Row {
        FileMode mode;
        bool opensMissing;
        bool opensExisting;
        std::string after;  // of the existing one, once "x" was written
    };
    const Row rows[] = {
        {FileMode::Read, false, true, "abc"},        {FileMode::ReadWrite, false, true, "xbc"},
        {FileMode::OpenOrCreate, true, true, "xbc"}, {FileMode::CreateNew, true, false, "abc"},
        {FileMode::CreateOrEmpty, true, true, "x"},  {FileMode::Append, true, true, "abcx"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.mode));
        const CTemporaryFolder folder;
        const std::string there = folder / "there";
        Put(there, "abc");
        CFile file;
        EXPECT_EQ(file.Open(folder / "missing", row.mode), row.opensMissing);
        EXPECT_TRUE(row.opensMissing || IsNotFound(LastSystemError()));
        EXPECT_EQ(file.Open(there, row.mode), row.opensExisting);
        if (row.opensExisting) {
            EXPECT_EQ(file.Write("x"), row.mode != FileMode::Read);
        } else {
            EXPECT_TRUE(IsAlreadyThere(LastSystemError()));
        }
        EXPECT_TRUE(file.Close());
        EXPECT_EQ(Get(there), row.after);
    }
}

TEST(File, NamesInAnyScriptAndWithEitherSeparator) {
    const CTemporaryFolder folder;
    const std::string names[] = {
        "Gr\xC3\xBC\xC3\x9F"
        "e.eml",
        "\xE6\x97\xA5\xE6\x9C\xAC", "\xF0\x9F\x93\xA7 mail", "a'b\"c"};
    for (const std::string& name : names) {
        ASSERT_TRUE(MakeFolder(folder / name)) << name;
        CFile file;
        ASSERT_TRUE(file.Open(folder.GetPath() + '\\' + name + "\\" + name, FileMode::CreateNew)) << name;
        EXPECT_TRUE(FileIsThere(folder / (name + '/' + name)));
    }
    CFile file;
    EXPECT_FALSE(file.Open(folder / std::string("cut\0off", 7), FileMode::CreateNew));
    EXPECT_FALSE(FileIsThere(folder / "cut"));
}

TEST(File, ReadsAndWritesAtOffsets) {
    const CTemporaryFolder folder;
    CFile file;
    ASSERT_TRUE(file.Open(folder / "data", FileMode::CreateNew));
    constexpr std::uint64_t Far = 5'000'000'000;
    ASSERT_TRUE(file.Write("begin"));
    ASSERT_TRUE(file.WriteAt(Far, "end", 3));
    ASSERT_TRUE(file.Write("ning"));  // where Write() was, not where WriteAt() was
    std::uint64_t size = 0;
    EXPECT_TRUE(file.GetSize(size));
    EXPECT_EQ(size, Far + 3);

    std::string read(9, ' ');
    ASSERT_TRUE(file.ReadAt(0, read.data(), 9));
    EXPECT_EQ(read, "beginning");
    std::size_t got = 0;
    EXPECT_FALSE(file.ReadAt(Far, read.data(), 9, &got));
    EXPECT_EQ(LastSystemError(), 0U);
    EXPECT_EQ(read.substr(0, got), "end");

    ASSERT_TRUE(file.SetSize(2));
    ASSERT_TRUE(file.SetSize(4));
    EXPECT_EQ(Get(folder / "data"), std::string("be\0\0", 4));
}

TEST(File, RenameNewNeverReplaces) {
    const CTemporaryFolder folder;
    Put(folder / "a", "A");
    Put(folder / "b", "B");
    EXPECT_FALSE(RenameNew(folder / "a", folder / "b"));
    EXPECT_TRUE(IsAlreadyThere(LastSystemError()));
    EXPECT_EQ(Get(folder / "a") + Get(folder / "b"), "AB");
    EXPECT_TRUE(RenameNew(folder / "a", folder / "c"));
    EXPECT_TRUE(RenameReplacing(folder / "c", folder / "b"));
    EXPECT_EQ(Get(folder / "b"), "A");
    EXPECT_FALSE(RenameReplacing(folder / "c", folder / "b"));
    EXPECT_TRUE(IsNotFound(LastSystemError()));
    EXPECT_FALSE(RemoveEmptyFolder(folder.GetPath()));
    EXPECT_TRUE(IsNotEmpty(LastSystemError()));
    EXPECT_FALSE(MakeFolder(folder.GetPath()));
    EXPECT_TRUE(IsAlreadyThere(LastSystemError()));
}

TEST(FaultPlan, FailsTheOperationItCountsTo) {
    const CTemporaryFolder folder;
    CFile file;
    ASSERT_TRUE(file.Open(folder / "f", FileMode::CreateNew));
    const auto flushes = [&] {
        std::string results;
        for (int time = 0; time < 4; ++time) {
            SetLastSystemError(0);
            results += file.Flush() ? '+' : IsNoSpace(LastSystemError()) ? '-' : '?';
            if (!file.Write("x")) results += 'w';
        }
        return results;
    };
    {
        const CFaultPlan plan(Operation::Flush, 2);
        EXPECT_EQ(flushes(), "+-++");
        EXPECT_TRUE(plan.WasHit());
    }
    {
        const CFaultPlan plan(Operation::Flush, 3, CFaultPlan::After::Stays);
        EXPECT_EQ(flushes(), "++--");
    }
    {
        const CFaultPlan plan(Operation::Flush, 1);
        SetFlushEnabled(false);
        EXPECT_EQ(flushes(), "++++");
        SetFlushEnabled(true);
        EXPECT_FALSE(plan.WasHit());
    }
    const CFaultPlan plan(Operation::Rename, 1);
    EXPECT_FALSE(RenameReplacing(folder / "f", folder / "g"));
    EXPECT_TRUE(FileIsThere(folder / "f"));
}

TEST(FileStatus, TellsWhatWasSet) {
    const CTemporaryFolder folder;
    Put(folder / "f", "12345");
    Put(folder / "g", "");
    const FileTimes times{1'000'000'000'123'456'700, 1'000'000'000'123'456'700};
    ASSERT_TRUE(SetFileTimes(folder / "f", times));
    FileStatus f, g;
    ASSERT_TRUE(GetFileStatus(folder / "f", f));
    ASSERT_TRUE(GetFileStatus(folder / "g", g));
    EXPECT_EQ(f.size, 5U);
    EXPECT_EQ(f.times.modified, times.modified);
    EXPECT_EQ(f.times.created, times.created);
    EXPECT_NE(f.identity, g.identity);
    EXPECT_LT(std::abs(g.times.modified - NanosecondsSince1970()), 60'000'000'000);
    EXPECT_FALSE(FolderIsThere(folder / "f"));
    EXPECT_FALSE(FileIsThere(folder.GetPath()));
    EXPECT_TRUE(FolderIsThere(folder.GetPath()));
    EXPECT_FALSE(GetFileStatus(folder / "f/g", f));
    EXPECT_TRUE(IsNotFound(LastSystemError()));
}

TEST(DirectorySearch, FindsByPattern) {
    const CTemporaryFolder folder;
    for (const char* name : {"1.eml", "2.EML", "3.eml.tmp", "eml", "x.emla"})
        Put(folder / name, "");
    ASSERT_TRUE(MakeFolder(folder / "sub.eml"));
    struct Row {
        const char* pattern;
        std::set<std::string> names;
    };
    const std::set<std::string> all = {".", "..", "1.eml", "2.EML", "3.eml.tmp", "eml", "sub.eml", "x.emla"};
    for (const Row& row : {Row{"*", all}, Row{"*.*", all}, Row{"*.eml", {"1.eml", "2.EML", "sub.eml"}},
                           Row{"*.TMP", {"3.eml.tmp"}}, Row{"*.cfg", {}}}) {
        CDirectorySearch search;
        ASSERT_TRUE(search.Open(folder.GetPath(), row.pattern));
        std::set<std::string> found;
        DirectoryEntry entry;
        CDirectorySearch::Step step;
        while ((step = search.Next(entry)) == CDirectorySearch::Step::Entry) {
            found.insert(entry.name);
            EXPECT_EQ(entry.isFolder,
                      entry.name == "sub.eml" || entry.name.find_first_not_of('.') == std::string::npos);
        }
        EXPECT_EQ(step, CDirectorySearch::Step::NoMoreFiles);
        EXPECT_EQ(found, row.names) << row.pattern;
    }
    CDirectorySearch search;
    DirectoryEntry entry;
    EXPECT_FALSE(search.Open(folder / "missing", "*"));
    EXPECT_TRUE(IsNotFound(LastSystemError()));
    EXPECT_EQ(search.Next(entry), CDirectorySearch::Step::Failed);
    EXPECT_FALSE(search.Open(folder.GetPath(), "a*b"));
}
