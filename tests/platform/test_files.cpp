#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <set>
#include <vector>

#include "platform/directorysearch.h"
#include "platform/errorcodes.h"
#include "platform/faultplan.h"
#include "platform/file.h"
#include "platform/filemode.h"
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

// Every name is the name of a file of its own, which the search finds by it,
// or it is refused: none is cut, changed or taken for a device.
TEST(File, NamesInAnyScriptAndWithEitherSeparator) {
    const CTemporaryFolder folder;
    const std::string names[] = {
        "Gr\xC3\xBC\xC3\x9F"
        "e.eml",
        "u\xCC\x88.eml",
        "\xE6\x97\xA5\xE6\x9C\xAC",
        "\xF0\x9F\x93\xA7 mail",
        "a'b;c",
        "CON",
        "nul.eml",
        "dot.",
        "blank ",
        "is:stream",
        std::string(200, 'x'),
    };
    Put(folder / "is", "as it was");
    std::set<std::string> made = {"is"};
    for (const std::string& name : names) {
        CFile file;
        if (!file.Open(folder / name, FileMode::CreateNew)) {
            EXPECT_EQ(name, "is:stream");
            continue;
        }
        made.insert(name);
        EXPECT_TRUE(file.Write(name) && file.Close());
        ASSERT_TRUE(file.Open(folder.GetPath() + '\\' + name, FileMode::Read));
        std::string content(name.size(), ' ');
        EXPECT_TRUE(file.ReadAt(0, content.data(), content.size()));
        EXPECT_EQ(content, name);
    }
    std::set<std::string> found;
    CDirectorySearch search;
    DirectoryEntry entry;
    ASSERT_TRUE(search.Open(folder.GetPath(), "*"));
    while (search.Next(entry) == CDirectorySearch::Step::Entry)
        if (!entry.isFolder) found.insert(entry.name);
    EXPECT_EQ(found, made);
    CFile file;
    EXPECT_FALSE(file.Open(folder / std::string("cut\0off", 7), FileMode::CreateNew));
    EXPECT_FALSE(FileIsThere(folder / "cut"));
    EXPECT_FALSE(file.Open("", FileMode::OpenOrCreate));
    EXPECT_TRUE(IsNotFound(LastSystemError()));
}

// Each operation on names of some 800 bytes, full and relative to the working folder.
TEST(File, NamesBeyondTheOldLimits) {
    const CTemporaryFolder folder;
    const std::string former = WorkingFolder();
    ASSERT_TRUE(ChangeToFolder(folder.GetPath()));
    std::string relative = ".";
    for (const char* letter : {"\xC3\xA4", "b", "\xF0\x9F\x93\xA7", "d"}) {
        relative += "/./";
        for (int times = 0; times < 60; ++times)
            relative += letter;
        ASSERT_TRUE(MakeFolder(relative)) << relative;
    }
    for (const std::string& deep : {relative, folder / relative}) {
        const std::string a = deep + "/a.eml";
        const std::string b = deep + "\\sub/../b.eml";
        ASSERT_TRUE(MakeFolder(deep + "/sub"));
        CFile file;
        ASSERT_TRUE(file.Open(a, FileMode::CreateNew) && file.Write("A") && file.Flush() && file.Close());
        EXPECT_TRUE(FlushFolder(deep));
        EXPECT_TRUE(SetFileTimes(a, {1'000'000'000, 1'000'000'000}));
        EXPECT_TRUE(RenameNew(a, b));
        EXPECT_TRUE(RenameReplacing(b, a));
        EXPECT_TRUE(LinkFile(a, b));
        EXPECT_TRUE(CopyFileMode(a, b));
        FileStatus status;
        EXPECT_TRUE(GetFileStatus(a, status) && FolderIsThere(deep) && MayWrite(deep));
        EXPECT_EQ(status.times.modified, 1'000'000'000);
        CDirectorySearch search;
        DirectoryEntry entry;
        int found = 0;
        ASSERT_TRUE(search.Open(deep, "*.eml"));
        while (search.Next(entry) == CDirectorySearch::Step::Entry)
            ++found;
        search.Close();
        EXPECT_EQ(found, 2);
        EXPECT_TRUE(RemoveFile(a) && RemoveFile(b) && RemoveEmptyFolder(deep + "/sub"));
    }
    EXPECT_EQ(NameForLibraries(relative), NameForLibraries(folder.GetPath() + "\\" + relative));
    ASSERT_TRUE(ChangeToFolder(former));
    EXPECT_EQ(WorkingFolder(), former);
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

    CFile first, second;
    ASSERT_TRUE(first.Open(folder / "data", FileMode::Append) && second.Open(folder / "data", FileMode::Append));
    EXPECT_TRUE(first.SetSize(0) && first.Write("one") && second.Write("two") && first.Write("three"));
    EXPECT_EQ(Get(folder / "data"), "onetwothree");
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

TEST(File, LinkIsAnotherNameOfTheSameFile) {
    const CTemporaryFolder folder;
    Put(folder / "a", "A");
    ASSERT_TRUE(LinkFile(folder / "a", folder / "b"));
    EXPECT_FALSE(LinkFile(folder / "a", folder / "b"));
    EXPECT_TRUE(IsAlreadyThere(LastSystemError()));
    CFile file;
    EXPECT_TRUE(file.Open(folder / "b", FileMode::Append) && file.Write("B") && file.Close());
    EXPECT_TRUE(RemoveFile(folder / "b"));
    EXPECT_EQ(Get(folder / "a"), "AB");
    EXPECT_FALSE(LinkFile(folder / "b", folder / "c"));
    EXPECT_TRUE(IsNotFound(LastSystemError()));
}

TEST(File, ReadOnlyFilesAreReplacedAndRemoved) {
    const CTemporaryFolder folder;
    const auto makeReadOnly = [&](const char* name) {
        Put(folder / name, name);
        std::filesystem::permissions(folder / name, std::filesystem::perms::owner_read);
        return folder / name;
    };
    const auto isReadOnly = [](const std::string& path) {
        return (std::filesystem::status(path).permissions() & std::filesystem::perms::owner_write) ==
               std::filesystem::perms::none;
    };
    const std::string a = makeReadOnly("a");
    const std::string b = makeReadOnly("b");
    EXPECT_TRUE(RenameReplacing(a, b));
    EXPECT_EQ(Get(b), "a");
    EXPECT_TRUE(isReadOnly(b));
    Put(folder / "c", "C");
    EXPECT_TRUE(CopyFileMode(b, folder / "c"));
    EXPECT_TRUE(isReadOnly(folder / "c"));
    EXPECT_TRUE(SetFileTimes(b, {1'000'000'000, 1'000'000'000}));
    EXPECT_TRUE(RemoveFile(b) && RemoveFile(folder / "c"));
    EXPECT_FALSE(FileIsThere(b) || FileIsThere(folder / "c"));
}

// The name is free at once, and who has the file open keeps what he has.
TEST(File, OpenFilesAreMovedAndRemoved) {
    const CTemporaryFolder folder;
    const std::string path = folder / "open";
    std::vector<CFile> open(3);
    for (CFile& file : open) {
        const std::string name(1, static_cast<char>('0' + (&file - open.data())));
        ASSERT_TRUE(file.Open(path, FileMode::CreateNew) && file.Write(name));
        EXPECT_TRUE(&file == &open[0] ? RenameNew(path, path + "ed") : RemoveFile(path));
        EXPECT_FALSE(FileIsThere(path));
    }
    EXPECT_EQ(Get(path + "ed"), "0");
    for (const CFile& file : open) {
        char digit = ' ';
        EXPECT_TRUE(file.ReadAt(0, &digit, 1));
        EXPECT_EQ(digit - '0', &file - open.data());
    }
    open.clear();
    EXPECT_TRUE(RemoveFile(path + "ed"));
    const std::filesystem::directory_iterator files(folder.GetPath());
    EXPECT_EQ(std::distance(begin(files), end(files)), 0);
}

// At once, or as soon as the other one closes it.
TEST(File, OpenFilesAreReplaced) {
    const CTemporaryFolder folder;
    Put(folder / "new", "new");
    Put(folder / "old", "old");
    CFile other;
    ASSERT_TRUE(other.Open(folder / "old", FileMode::Read));
    auto replaced = std::async(std::launch::async, [&] { return RenameReplacing(folder / "new", folder / "old"); });
    if (replaced.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) other.Close();
    EXPECT_TRUE(replaced.get());
    EXPECT_EQ(Get(folder / "old"), "new");
    EXPECT_FALSE(FileIsThere(folder / "new"));
}

TEST(File, FoldersTakeThePlaceOfEmptyOnesOnly) {
    const CTemporaryFolder folder;
    for (const char* name : {"full", "empty", "other"})
        ASSERT_TRUE(MakeFolder(folder / name));
    Put(folder / "full/file", "");
    Put(folder / "file", "");
    EXPECT_FALSE(RenameReplacing(folder / "other", folder / "full"));
    EXPECT_TRUE(IsNotEmpty(LastSystemError()));
    EXPECT_FALSE(RenameReplacing(folder / "file", folder / "empty"));
    EXPECT_FALSE(RemoveFile(folder / "empty"));
    EXPECT_TRUE(RenameReplacing(folder / "full", folder / "empty"));
    EXPECT_TRUE(FileIsThere(folder / "empty/file"));
    EXPECT_FALSE(FolderIsThere(folder / "full"));
    CFile file;
    EXPECT_FALSE(file.Open(folder / "other", FileMode::Read));
    EXPECT_FALSE(file.Open(folder / "other", FileMode::ReadWrite));
    EXPECT_FALSE(IsAccessDenied(LastSystemError()) || IsNotFound(LastSystemError()));
    EXPECT_FALSE(RemoveEmptyFolder(folder / "file"));
    EXPECT_TRUE(FileIsThere(folder / "file"));
}

TEST(SystemError, TextsAreOneLine) {
    for (const SystemError each : {NoSpaceError(), InvalidArgumentError(), SystemError{4'000'000'000}}) {
        const std::string text = SystemErrorText(each);
        EXPECT_TRUE(!text.empty() && text.back() != ' ' && text.find_first_of("\r\n") == text.npos) << text;
    }
    EXPECT_NE(SystemErrorText(4'000'000'000).find("Unknown error"), std::string::npos);
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
