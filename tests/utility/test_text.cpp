#include <gtest/gtest.h>

#include <algorithm>

#include "utility/paths.h"
#include "utility/terminaltext.h"
#include "utility/text.h"

using namespace std::string_literals;

TEST(Text, ComparesAndFindsWithoutCase) {
    EXPECT_EQ(CompareNoCase("Content-TYPE", "content-type"), 0);
    EXPECT_LT(CompareNoCase("ab", "ABC"), 0);
    EXPECT_GT(CompareNoCase("\xE9", "z"), 0);  // as unsigned bytes
    EXPECT_FALSE(EqualNoCase("\xC4", "\xE4"));
    EXPECT_EQ(FindNoCase("xx<BODY><body>", "<body>"), 2U);
    EXPECT_EQ(FindNoCase("xx<BODY><body>", "<body>", 3), 8U);
    EXPECT_EQ(FindNoCase("abc", "abcd"), std::string_view::npos);
    EXPECT_EQ(FindNoCase("abc", "", 4), std::string_view::npos);
    EXPECT_EQ(Trim(" \t\r\n a b\n"), "a b");
    EXPECT_EQ(Trim(" \n"), "");
}

TEST(Text, Numbers) {
    const struct {
        std::string_view text;
        std::optional<std::int64_t> whole;
        std::int32_t leading;
    } table[] = {
        {"0", 0, 0},
        {"-12", -12, -12},
        {"+7", std::nullopt, 7},
        {" 42 kb", std::nullopt, 42},
        {"", std::nullopt, 0},
        {"-", std::nullopt, 0},
        {"0x10", std::nullopt, 0},
        {"9999999999", 9999999999, 2147483647},
        {"-99999999999999999999", std::nullopt, -2147483647 - 1},
        {"1.5", std::nullopt, 1},
    };
    for (const auto& row : table) {
        EXPECT_EQ(ParseNumber(row.text), row.whole) << row.text;
        EXPECT_EQ(LeadingNumber(row.text), row.leading) << row.text;
    }
}

TEST(Text, Utf8Validity) {
    for (const char* good :
         {"", "abc", "\xC2\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80"})
        EXPECT_TRUE(IsValidUtf8(good)) << good;
    for (const char* bad : {"\x80", "\xC0\x80", "\xC1\xBF", "\xC2", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
                            "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "a\xE2\x82", "\xE2\x82z", "\xFF"})
        EXPECT_FALSE(IsValidUtf8(bad));
    EXPECT_EQ(Latin1ToUtf8("a\xE9\x80"), "a\xC3\xA9\xC2\x80");
    EXPECT_EQ(Windows1252ToUtf8("\x80\x93\xE9"), "\xE2\x82\xAC\xE2\x80\x9C\xC3\xA9");
    std::string all;
    for (int i = 0; i < 256; ++i)
        all += static_cast<char>(i);
    EXPECT_TRUE(IsValidUtf8(Windows1252ToUtf8(all)));
}

TEST(Text, NothingHarmfulReachesATerminal) {
    const std::pair<const char*, const char*> cases[] = {
        {"J\xc3\xb6rg \xe2\x80\x93 \xd7\xa9\xe2\x80\x8f", "J\xc3\xb6rg \xe2\x80\x93 \xd7\xa9\xe2\x80\x8f"},
        {"\x1b]0;x\x07\t\x7f\n", "?]0;x? ??"},
        {"\xc2\x9b"
         "31m\xc2\xa0",
         "?31m\xc2\xa0"},
        {"\x9b"
         "31m\xff",
         "?31m\xc3\xbf"},
        {"\xe2\x80\xa8\xe2\x80\xae\xe2\x81\xa6\xe2\x81\xa9\xe2\x80\xaf", "????\xe2\x80\xaf"},
    };
    for (const auto& [text, shown] : cases)
        EXPECT_EQ(Printable(text), shown);
}

TEST(Paths, TakenApartAndJoined) {
    EXPECT_EQ(JoinPath("a", "b"), JoinPath("a/", "/b"));
    EXPECT_EQ(JoinPath("", "b"), "b");
    EXPECT_EQ(JoinPath("/", "b"), "/b");
    EXPECT_EQ(WithSeparator("a//"), WithSeparator("a"));
    EXPECT_EQ(WithSeparator(""), "");
    EXPECT_EQ(WithoutSeparator("/"), "/");
    EXPECT_EQ(LastPathComponent("a/b/"), "b");
    EXPECT_EQ(LastPathComponent("a\\b"), "b");
    EXPECT_EQ(ParentFolder("/a"), "/");
    EXPECT_EQ(ParentFolder("a/b//"), "a");
    EXPECT_EQ(ParentFolder("a"), "");
    EXPECT_EQ(ParentFolder("/"), "");
    EXPECT_TRUE(SamePath("a/b/", "a\\b"));
    EXPECT_FALSE(SamePath("a/b", "a/bc"));
}

TEST(Paths, NamesOfStrangersAreMadeSafe) {
    const std::string accents = "\xC3\xA9";
    std::string longAccents = "x";
    while (longAccents.size() < 300)
        longAccents += accents;
    const struct {
        std::string in, out;
    } table[] = {
        {"report.pdf", "report.pdf"},
        {"../../etc/passwd", "passwd"},
        {"C:\\x\\con.txt", "_con.txt"},
        {"a\0b"s, "ab"},
        {"...", "unnamed"},
        {"", "unnamed"},
        {"a/", "unnamed"},
        {" . .profile ", "profile"},
        {"a\r\nb\x7F.txt", "ab.txt"},
        {"what?<is>\"this\"|*:", "what__is__this____"},
        {"LPT1", "_LPT1"},
        {"aux .c", "_aux .c"},
        {"CONIN$", "_CONIN$"},
        {"console.txt", "console.txt"},
        {"name. . ", "name"},
        {std::string(300, 'a'), std::string(200, 'a')},
        {"nul." + std::string(300, 'a'), "_nul." + std::string(195, 'a')},
        {longAccents, longAccents.substr(0, 199)},
    };
    for (const auto& row : table)
        EXPECT_EQ(SafeFileName(row.in), row.out) << row.in;
}
