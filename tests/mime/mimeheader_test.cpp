#include "mime/mimeheader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mime/encodedword.h"
#include "utility/lhvexception.h"

namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;

CMimeHeader Parsed(std::string_view text) {
    CMimeHeader header;
    EXPECT_TRUE(header.Parse(text));
    return header;
}

Fields Stored(const CMimeHeader& header) {
    Fields fields;
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i)
        fields.emplace_back(header.GetStoredField(i).name, header.GetStoredField(i).value);
    return fields;
}

TEST(EncodedWord, Encodes) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"", ""},
        {"a\tb\nc", "a\tb\nc"},
        {"Caf\xE9", "=?iso-8859-1?Q?Caf=E9?="},
        {"a b=", "=?iso-8859-1?Q?a_b=3D?="},
        {"\x7F", "=?iso-8859-1?Q?=7F?="},
        {".\xE9", "=?iso-8859-1?Q?=2E=E9?="},
        {"=?utf-8?B?YQ==?= \xE9", "=?utf-8?B?YQ==?= \xE9"},
        {std::string(100, 'a') + '\x01', "=?iso-8859-1?Q?" + std::string(100, 'a') + "=01?="},
    };
    for (const auto& [text, word] : table)
        EXPECT_EQ(EncodeHeaderWord(text), word) << text;
}

TEST(EncodedWord, Decodes) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"plain", "plain"},
        {"=?x?Q?Caf=E9_au?= lait", "Caf\xE9 au lait"},
        {"a =?x?Q?b?= =?x?Q?c?=", "a b c"},
        {"=?utf-8?b?YWJj?=", "abc"},
        {"=?utf-8?q?YWJj?=", "abc"},
        {"=?utf-8?B?YQBi?=", "a"},
        {"=?x?Q?open", "=?x?Q?open"},
        {"=?x?QQ?a?=", "=?x?QQ?a?="},
        {"=?x?Q?a? =?x?Q?b?=", "=?x?Q?a? b"},
        {"=?", "=?"},
        {"=?=?x?Q?a?=", "=?a"},
        {"=??Q?"
         "?=",
         ""},
    };
    for (const auto& [text, decoded] : table)
        EXPECT_EQ(DecodeHeaderText(text), decoded) << text;
}

TEST(MimeHeader, Parses) {
    const std::vector<std::pair<std::string, Fields>> table = {
        {"", {}},
        {"Subject: a\n\tb\n", {{"Subject", "a\n\tb"}}},
        {"Subject: a\r\n  \t b\r\n", {{"Subject", "a\n b"}}},
        {"Subject: a\nFoo\n", {{"Subject", "a\nFFoo"}}},
        {" ignored\nalso ignored\nA : b ", {{"A", "b"}}},
        {"Received: 1\nreceived:2\n", {{"Received", "1"}, {"received", "2"}}},
        {": no name\n goes away\nB:", {{"", "no name"}, {"B", ""}}},
        {"Subject: caf\xE9\n caf\xE9\n", {{"Subject", "=?iso-8859-1?Q?caf=E9?=\n =?iso-8859-1?Q?caf=E9?="}}},
        {"X-Other: caf\xE9\n", {{"X-Other", "caf\xE9"}}},
        {"A: b\n \n\tc\n", {{"A", "b\n \n\tc"}}},
    };
    for (const auto& [text, fields] : table)
        EXPECT_EQ(Stored(Parsed(text)), fields) << text;
}

TEST(MimeHeader, ReadsValuesUnfoldedAndDecoded) {
    const CMimeHeader header = Parsed("SUBJECT: a\n\tb\nX: =?x?Q?c?=\n d\nX: second\n");
    EXPECT_EQ(header.GetField("subject"), "a b");
    EXPECT_EQ(header.GetField("x"), "c d");
    EXPECT_EQ(header.DecodeField(2), "second");
    EXPECT_EQ(header.GetField("none"), "");
    EXPECT_EQ(CMimeHeader::Unfold("a\n\n\n\tb\n\t\tc\nd\n"), "a b \tc\nd\n");
    EXPECT_EQ(header.GetText(), "SUBJECT: a\n\tb\nX: =?x?Q?c?=\n d\nX: second\n");
}

TEST(MimeHeader, SetsAndRemoves) {
    CMimeHeader header = Parsed("A: 1\nB: 2\nA: 3\n");
    header.SetField("a", "4");
    header.SetField("C", "caf\xE9");
    header.SetField("to", "caf\xE9 <a@b>");
    EXPECT_EQ(Stored(header),
              (Fields{{"A", "4"}, {"B", "2"}, {"A", "3"}, {"C", "caf\xE9"}, {"to", "=?iso-8859-1?Q?caf=E9_<a@b>?="}}));
    header.SetField("A", "");
    header.SetField("missing", "");
    EXPECT_EQ(header.GetField("A"), "3");
    EXPECT_THROW(header.GetStoredField(4), CLhvException);
    EXPECT_THROW(header.SetFieldAt(4, "x"), CLhvException);
}

TEST(MimeHeader, ValuesCannotOpenALine) {
    CMimeHeader header;
    header.SetField("Subject", "a\r\nBcc: b");
    header.AddField("X", std::string_view("a\nb\r\0c\r\n d\n", 11));
    EXPECT_EQ(header.GetText(), "Subject: a Bcc: b\nX: a b  c\n d \n");
    header.SetField("Subject", "caf\xE9\n\tb");
    EXPECT_EQ(header.GetStoredField(0).value, "=?iso-8859-1?Q?caf=E9?=\n\tb");
}

TEST(MimeHeader, CopiesWhatIsMissing) {
    CMimeHeader header = Parsed("A: 1\nContent-Type: x\n");
    header.CopyMissingFields(Parsed("a: 2\nB: 3\nCONTENT-Language: en\nB: 4\n"));
    EXPECT_EQ(Stored(header), (Fields{{"A", "1"}, {"Content-Type", "x"}, {"B", "3"}, {"B", "4"}}));
}

TEST(MimeHeader, FindsParameters) {
    struct Case {
        std::string value, name, result;
    };
    const std::vector<Case> table = {
        {"text/plain; charset=\"iso-8859-1\"; name=\"x.txt\"", "charset", "iso-8859-1"},
        {"text/plain; charset=\"iso-8859-1\"; name=\"x.txt\"", "NAME", "x.txt"},
        {"attachment; filename=a b.txt ; size=3", "filename", "a b.txt"},
        {"attachment; filename=a.txt", "name", "a.txt"},
        {"x; name\t=\n 'a;b'", "name", "a;b"},
        {"x; name=\"a\\\"b\"", "name", "a\\\"b"},
        {"x; name=\"a", "name", ""},
        {"x; name=\"a\n\tb\"", "name", "a b"},
        {"x; names; name = y", "name", "y"},
        {"x; name", "name", ""},
        {"x; name=", "name", ""},
        {"", "name", ""},
    };
    for (const Case& c : table)
        EXPECT_EQ(CMimeHeader::GetParameter(c.value, c.name), c.result) << c.value;
}

}  // namespace
