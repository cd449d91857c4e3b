#include <gtest/gtest.h>

#include <vector>

#include "platform/faultplan.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/profilefile.h"
#include "temporaryfolder.h"

using namespace Platform;

TEST(ProfileFile, ReadsWhatALineSays) {
    struct Row {
        const char* content;
        const char* text;  // of [Section] Key, "default" when missing
        int number;        // 7 when missing
    };
    const Row rows[] = {
        {"[Section]\nKey=12\n", "12", 12},
        {"[section]\r\nKEY = 12 \r\n", "12", 12},
        {"  [ Section ]  ; note\n\tKey\t=\t12\t", "12", 12},
        {"\xEF\xBB\xBF[Section]\nKey=12", "12", 12},
        {"[Section]\nKey=\n", "", 0},
        {"[Section]\nKey=\" 12 \"\n", " 12 ", 12},
        {"[Section]\nKey='a\"b'\n", "a\"b", 0},
        {"[Section]\nKey=\"12'\n", "\"12'", 0},
        {"[Section]\nKey=\"\n", "\"", 0},
        {"[Section]\nKey=''\n", "", 0},
        {"[Section]\nKey=a=b;c\n", "a=b;c", 0},
        {"[Section]\nKey=1\nKey=2\n", "1", 1},
        {"[Section]\nOther=1\n[Section]\nKey=2\n", "default", 7},
        {"[Section\nKey=1\n", "default", 7},
        {"Key=1\n[Section]\n;Key=2\n[Else]\nKey=3\n", "default", 7},
        {"[Section]\nKey\n=1\nno key\n", "default", 7},
        {"[Section]\nKey=-5 apples\n", "-5 apples", -5},
        {"[Section]\nKey=+5\n", "+5", 5},
        {"[Section]\nKey=99999999999\n", "99999999999", 2147483647},
        {"[Section]\nKey=-99999999999\n", "-99999999999", -2147483647 - 1},
        {"", "default", 7},
    };
    const CTemporaryFolder folder;
    int number = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.content);
        const std::string path = folder / std::to_string(++number);
        Put(path, row.content);
        EXPECT_EQ(ReadProfileText(path, "Section", "Key", "default"), row.text);
        EXPECT_EQ(ReadProfileNumber(path, "Section", "Key", 7), row.number);
    }
    EXPECT_EQ(ReadProfileText(folder / "missing", "Section", "Key", "default", 3), "def");
}

TEST(ProfileFile, ChangesOneLineAndKeepsTheRest) {
    struct Row {
        const char* before;
        const char* after;  // [S] k=v written
    };
    const Row rows[] = {
        {"", "[S]\nk=v\n"},
        {"[S]\nk=old\n", "[S]\nk=v\n"},
        {"; c\r\n[s]\r\n  K =  old \r\nz\r\n", "; c\r\n[s]\r\n  K =  v\r\nz\r\n"},
        {"[S]\nk=", "[S]\nk=v"},
        {"[S]\nk=  \nb=1\n", "[S]\nk=v\nb=1\n"},
        {"[S]\na=1\n\n; of T\n[T]\nk=t\n", "[S]\na=1\nk=v\n\n; of T\n[T]\nk=t\n"},
        {"[S]\r\na=1", "[S]\r\na=1\r\nk=v\r\n"},
        {"[T]\r\nk=t\r\n", "[T]\r\nk=t\r\n\r\n[S]\r\nk=v\r\n"},
        {"stray\nk=0", "stray\nk=0\n\n[S]\nk=v\n"},
        {"[S]\nk=1\nk=2\n[S]\nk=3\n", "[S]\nk=v\nk=2\n[S]\nk=3\n"},
    };
    const CTemporaryFolder folder;
    const std::string path = folder / "p.ini";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.before);
        Put(path, row.before);
        ASSERT_TRUE(WriteProfileText(path, "S", "k", "v"));
        EXPECT_EQ(Get(path), row.after);
    }
    ASSERT_TRUE(RemoveProfileKey(path, "s", "K"));
    EXPECT_EQ(Get(path), "[S]\nk=2\n[S]\nk=3\n");
    ASSERT_TRUE(RemoveProfileKey(path, "S", "nothing"));
    ASSERT_TRUE(RemoveProfileKey(folder / "missing", "S", "k"));
    EXPECT_FALSE(FileIsThere(folder / "missing"));
    EXPECT_EQ(ReadProfileKeys(path, "S"), std::vector<std::string>{"k"});
}

TEST(ProfileFile, RefusesWhatCouldNotBeReadBack) {
    struct Row {
        std::string section, key, value;
    };
    const CTemporaryFolder folder;
    const std::string path = folder / "p.ini";
    Put(path, "[S]\nk=1\n");
    for (const Row& row :
         {Row{"S", "k", "a\nb"}, Row{"S", "k", "a\r"}, Row{"S", "k", std::string("a\0b", 3)}, Row{"S", "k=", "a"},
          Row{"S", ";k", "a"}, Row{"S", "[k", "a"}, Row{"S", " ", "a"}, Row{"S]", "k", "a"}, Row{"S\n", "k", "a"}})
        EXPECT_FALSE(WriteProfileText(path, row.section, row.key, row.value)) << row.key;
    EXPECT_EQ(Get(path), "[S]\nk=1\n");

    const std::string binary("[S]\nk=1\n\0x", 10);
    Put(path, binary);
    EXPECT_FALSE(WriteProfileText(path, "S", "k", "2"));
    EXPECT_FALSE(RemoveProfileKey(path, "S", "k"));
    EXPECT_EQ(Get(path), binary);
}

TEST(ProfileFile, FindsTheFirstFaultyLine) {
    struct Row {
        std::string content;
        std::size_t line;  // 0: none
    };
    const CTemporaryFolder folder;
    for (const Row& row : {Row{"", 0}, Row{"; c\n\n[S]\r\na=1\n ;=\n", 0}, Row{"[S]\na=1\nnothing\n", 3},
                           Row{"[S\n", 1}, Row{"[S]\n=1", 2}, Row{std::string("[S]\na=\0\n", 8), 2}}) {
        Put(folder / "p", row.content);
        const auto fault = CheckProfileFile(folder / "p");
        EXPECT_EQ(fault ? fault->line : 0, row.line) << row.content;
    }
    EXPECT_FALSE(CheckProfileFile(folder / "missing"));
}

// Whatever fails: the old file or the new one, no other file left, and the
// values read are those in the file.
TEST(ProfileFile, SurvivesEveryFault) {
    const CTemporaryFolder folder;
    const std::string path = folder / "p.ini";
    const std::string before = "[S]\nk=old\n";
    bool done = false;
    for (unsigned n = 1; !done; ++n) {
        SCOPED_TRACE(n);
        ASSERT_LT(n, 50U);
        Put(path, before);
        {
            const CFaultPlan plan(Operation::Any, n);
            const bool written = WriteProfileText(path, "S", "k", "new");
            done = !plan.WasHit();
            EXPECT_EQ(written, done);
        }
        const std::string after = Get(path);
        EXPECT_TRUE(after == before || after == "[S]\nk=new\n") << after;
        EXPECT_EQ(ReadProfileText(path, "S", "k", ""), after == before ? "old" : "new");
        const std::filesystem::directory_iterator files(folder.GetPath());
        EXPECT_EQ(std::distance(begin(files), end(files)), 1);
    }
    EXPECT_EQ(Get(path), "[S]\nk=new\n");
}

TEST(ProfileFile, SeesWhatOthersWriteAtOnce) {
    const CTemporaryFolder folder;
    const std::string path = folder / "p.ini";
    // Size, identity and time stamp repeat, as with two changes within one tick of the clock.
    const std::int64_t stamp = NanosecondsSince1970() + 60'000'000'000;
    for (int value = 1000; value < 1010; ++value) {
        Put(path, "[S]\nk=" + std::to_string(value) + "\n");
        ASSERT_TRUE(SetFileTimes(path, {stamp, stamp}));
        ASSERT_EQ(ReadProfileNumber(path, "S", "k", 0), value);
    }
    // An old file that is replaced by another old one of the same size.
    for (int value = 2000; value < 2010; ++value) {
        Put(folder / "next", "[S]\nk=" + std::to_string(value) + "\n");
        ASSERT_TRUE(SetFileTimes(folder / "next", {1'000'000'000'000'000'000, 1'000'000'000'000'000'000}));
        ASSERT_TRUE(RenameReplacing(folder / "next", path));
        ASSERT_EQ(ReadProfileNumber(path, "S", "k", 0), value);
    }
    ASSERT_TRUE(RemoveFile(path));
    EXPECT_EQ(ReadProfileNumber(path, "S", "k", 0), 0);
}
