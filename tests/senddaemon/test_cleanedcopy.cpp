// The form in which messages go to a server: which fields, how their values
// are written, what becomes of the body.

#include "platform/clock.h"
#include "platform/faultplan.h"
#include "senddaemon/cleanedcopy.h"
#include "senddaemon/wireheader.h"
#include "senddaemon/wirelines.h"
#include "tests/senddaemon/sendfixture.h"
#include "tests/utility/repeat.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr CCleanOptions With8BitMime{};
constexpr CCleanOptions Without8BitMime{.keepHeaders = {}, .has8BitMime = false};

class CleanedCopy : public CSendFixture {
protected:
    std::string Clean(std::string_view message, const CCleanOptions& options = {}) {
        const std::string source = MakeFile("1.eml", message);
        std::string copy;
        EXPECT_TRUE(WriteCleanedCopy(source, source + ".clean", options, m_result)) << GetLastErrorText();
        EXPECT_TRUE(ReadWholeFile(source + ".clean", copy));
        EXPECT_EQ(m_result.size, copy.size());
        return copy;
    }
    CCleanResult m_result;
};

TEST_F(CleanedCopy, OnlyKeptFieldsInTheirOrder) {
    const std::string message =
        "X-Lhv-Recipient-Override: secret@there.example\r\nX-Lhv-Recipients-Only: 1\r\n"
        "Received: from inside\r\n by outside\r\nMessage-ID: <1@there.example>\r\nsender: s@x.example\r\n"
        "X-Spam: no\r\nX-ZQ-LOOP: loop\r\nX-Zq-Other: 1\r\nSubject : News\r\nTo: a@x.example\r\nbcc: "
        "hidden@x.example\r\n"
        "Resent-Bcc: hidden@x.example\r\nTo: b@x.example\r\nX-Loop: one\r\nX-Loop: two\r\nFrom: n@x.example\r\n"
        "From: other@x.example\r\nSubject: Second\r\nCc: c@x.example\r\nX-Lhv-Broadcast: 1\r\n\r\nText\r\n";
    const std::string kept =
        "From: n@x.example\r\nTo: a@x.example, b@x.example\r\nSubject: News\r\nCc: c@x.example\r\n"
        "X-Loop: one\r\nX-Loop: two\r\nX-ZQ-LOOP: loop\r\nsender: s@x.example\r\n";
    EXPECT_EQ(Clean(message), kept + "\r\nText\r\n");
    EXPECT_EQ(Clean(message, {.keepHeaders = "X-Spam,message-id , Bcc, X-Lhv-Broadcast,X-Zq-Other,Resent-Bcc,"
                                             "x-lhv-recipient-override,,Bad Name,X:Y,X-\r\nZ,to"}),
              kept + "Message-ID: <1@there.example>\r\nX-Spam: no\r\n\r\nText\r\n");
}

TEST_F(CleanedCopy, WhereTheHeaderEnds) {
    const std::pair<std::string, std::string> cases[] = {
        {"To: a@x\n\nBcc: b@x\n", "To: a@x\r\n\r\nBcc: b@x\r\n"},
        {"To: a@x\r\r\n\r\r\nFrom: b@x\r\n", "To: a@x\r\n\r\nFrom: b@x\r\n"},
        {"\nTo: a@x\n", "\r\nTo: a@x\r\n"},  // an empty line first: all is body
        {"To: a@x\r\n", "To: a@x\r\n\r\n"},  // no body
        {"no field at all", "\r\nno field at all\r\n"},
        {"To: a@x\rFrom: b@x\r\n\r\n", "To: a@x From: b@x\r\n\r\n"},  // a bare CR opens no field
        {std::string("To: a@x\0\r\n\r\n", 11), "To: a@x\r\n\r\n"},
        {"To: a@x\r\n \r\n b@x\r\n\r\n", "To: a@x  b@x\r\n\r\n"},  // no line of blanks
        {"", "\r\n"},
    };
    for (const auto& [message, expected] : cases)
        EXPECT_EQ(Clean(message), expected) << message;
}

TEST(WireHeader, Addresses) {
    struct CCase {
        std::string_view value;
        std::string_view expected;
    };
    const CCase cases[] = {
        {"=?utf-8?Q?=22Eva_Nov=C3=A1kov=C3=A1=22?= <eva@x.cz>", "=?utf-8?Q?Eva_Nov=C3=A1kov=C3=A1?= <eva@x.cz>"},
        {"\"Ann (work)\" <ann@x>, Bob <b@x>,c@x (note)", "\"Ann (work)\" <ann@x>, Bob <b@x>,c@x (note)"},
        {"Ji\xC5\x99\xC3\xAD <j@x>, \"Bo, b\" <b@x>", "=?utf-8?Q?Ji=C5=99=C3=AD?= <j@x>, \"Bo, b\" <b@x>"},
        {"\"Nov\xE1k, Jan\" <n@x>", "=?iso-8859-1?Q?Nov=E1k=2C_Jan?= <n@x>"},
        {"Nov\xC3\xA1k, Jan <n@x>", "=?utf-8?Q?Nov=C3=A1k=2C_Jan?= <n@x>"},
        // What the stored form has when a whole line was encoded, its label false.
        {"=?iso-8859-1?Q?\"Ji=C5=99=C3=AD,_jr.\"_<j@x>,_b@x?=", "=?utf-8?Q?Ji=C5=99=C3=AD=2C_jr=2E?= <j@x>, b@x"},
        {"=?iso-8859-1?Q?Ann=3D1?= <a@x>", "=?iso-8859-1?Q?Ann=3D1?= <a@x>"},
        {"=?utf-8?Q?=22Ann_=5C=22B=5C=22=22?= <a@x>", "\"Ann \\\"B\\\"\" <a@x>"},
        {"=?utf-8?Q?Berg,_A?= <a@x>", "=?utf-8?Q?Berg=2C_A?= <a@x>"},
        {"=?utf-8?B?xaA=?= =?utf-8?Q?=C5=A0?= <a@x>", "=?utf-8?B?xaA=?= =?utf-8?Q?=C5=A0?= <a@x>"},
        {"=?utf-8?Q?=C5?= =?utf-8?Q?=A0?= <a@x>", "=?utf-8?Q?=C5=A0?= <a@x>"},  // a character in two words
        {"\"=?koi8-r?B?8NLJ18XU?= (x)\" <a@x>", "=?koi8-r?B?8NLJ18XU?= \"(x)\" <a@x>"},
        // Hidden in a word, this is part of a name, never a recipient.
        {"=?utf-8?Q?=22=2C_evil=40x=2C_=C3=A1?= <a@x>", "=?utf-8?Q?=22=2C_evil=40x=2C_=C3=A1?= <a@x>"},
        {"=?utf-8?B?IiwgZXZpbEB4LCAi?= <a@x>", "\", evil@x,\" <a@x>"},
        {"=?utf-8?Q?x=0D=0A_=0A,_b@x,=C3=A1?= <a@x>", "b@x, =?utf-8?Q?=C3=A1?= <a@x>"},
        {"T\xC3\xBDm: \xC5\xBD <a@x>, b@x;, c@x", "=?utf-8?Q?T=C3=BDm?=: =?utf-8?Q?=C5=BD?= <a@x>, b@x;, c@x"},
        {"undisclosed-recipients:;", "undisclosed-recipients:;"},
        {"a@x (k\xC5\xAF\xC5\x88), b@x", "=?utf-8?Q?k=C5=AF=C5=88?= <a@x>, b@x"},
        {"\"\xC5\xBD <a@x>, b@x", "=?utf-8?Q?=22=C5=BD?= <a@x>, b@x"},  // quotes without end
        {"\xC5\xBD <a@x, b@x>", "=?utf-8?Q?=C5=BD?= <a@x>, b@x"},       // a bracket without end
        {"\xC5\xBD", "=?utf-8?Q?=C5=BD?="},                             // no address
        {"\xC5\xBD <\"a,b\"@x>", "=?utf-8?Q?=C5=BD?= <\"a,b\"@x>"},
    };
    for (const CCase& one : cases) {
        CWireHeaderRules rules;
        const std::string written = WireAddresses(one.value, 4, rules);
        EXPECT_EQ(written, one.expected) << one.value;
        EXPECT_FALSE(rules.needsSmtpUtf8);
    }
}

TEST(WireHeader, AddressesBeyondAscii) {
    for (const bool hasSmtpUtf8 : {true, false}) {
        CWireHeaderRules rules{.hasSmtpUtf8 = hasSmtpUtf8};
        EXPECT_EQ(WireAddresses("\xC5\xBD <\xC5\xBE@x>, b@x", 4, rules),
                  hasSmtpUtf8 ? "=?utf-8?Q?=C5=BD?= <\xC5\xBE@x>, b@x" : "=?utf-8?Q?=C5=BD?= <??@x>, b@x");
        EXPECT_TRUE(rules.needsSmtpUtf8);
    }
    CWireHeaderRules rules{.hasSmtpUtf8 = true};
    EXPECT_EQ(WireAddresses("\xE9@x", 4, rules), "?@x");  // no UTF-8
    EXPECT_FALSE(rules.needsSmtpUtf8);
}

TEST(WireHeader, Texts) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"Re: k\xC5\xAF\xC5\x88 and [k\xC5\xAF\xC5\x88] again",
         "Re: =?utf-8?Q?k=C5=AF=C5=88_and_=5Bk=C5=AF=C5=88=5D?= again"},
        {"caf\xE9 au lait", "=?iso-8859-1?Q?caf=E9?= au lait"},
        {"=?iso-8859-1?Q?caf=E9?= =?utf-8?B?xaA=?=", "=?iso-8859-1?Q?caf=E9?= =?utf-8?B?xaA=?="},
        {"=?iso-8859-1?Q?k=C5=AF=C5=88?= x", "=?utf-8?Q?k=C5=AF=C5=88?= x"},  // a false label
        {"\xC5\xA0 =?utf-8?B?xaA=?=  \xC5\xA0", "=?utf-8?Q?=C5=A0_?= =?utf-8?B?xaA=?=  =?utf-8?Q?__=C5=A0?="},
        {"a =? b =?x?y?z?= =?utf-8?Q?", "a =? b =?x?y?z?= =?utf-8?Q?"},
    };
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(WireText(value, 9), expected) << value;
}

TEST(WireHeader, LongValues) {
    const std::string name = Repeat("\xC5\xBElu\xC5\xA5 ", 60);
    const std::string stored = "=?iso-8859-1?Q?" + Repeat("=C5=BElu=C5=A5_", 60) + "?=";
    const std::string addresses = Repeat("\"Some Name\" <someone@there.example>, ", 200) + "last@there.example";
    const std::string tight = Repeat("someone@there.example,", 200) + "last@there.example";
    const std::pair<std::string_view, std::string> cases[] = {
        {"Subject", name}, {"Subject", stored},    {"To", name + "<a@x>"}, {"To", stored + " <a@x>"},
        {"To", addresses}, {"Subject", addresses}, {"To", tight},          {"Subject", std::string(5000, 'x')},
    };
    for (const auto& [field, value] : cases) {
        CWireHeaderRules rules;
        std::string written;
        AppendWireField(field, " " + value, rules, written);
        const bool canFold = value != tight && value.find(' ') != std::string::npos;
        EXPECT_FALSE(HasHighBytes(written));
        EXPECT_TRUE(written.ends_with("\r\n"));
        for (const std::string_view line : Split(Trim(written), '\n')) {
            EXPECT_LE(TrimRight(line).size(), canFold || value == stored ? 78U : LongestWireLine) << line;
            EXPECT_FALSE(Trim(line).empty());
            for (const std::string_view token : Split(TrimRight(line), ' ')) {
                if (token.starts_with("=?")) {
                    EXPECT_TRUE(token.size() <= 75 && token.ends_with("?=")) << token;
                }
            }
        }
        const std::string unfolded = UnfoldWireValue(written.substr(field.size() + 1));
        if (value == addresses) {
            EXPECT_EQ(unfolded, value);
        }
        if (value == tight) {
            EXPECT_EQ(unfolded.size(), value.size() + 4);  // blanks behind four commas
        }
    }
}

// The bound is a hundred times what it takes, and far below what quadratic work would.
TEST(WireHeader, HostileValuesTakeNoLongerThanOthers) {
    for (const std::string_view piece : {"=?x?Q?", "=?x?Q?a?=b", "=?utf-8?Q?a?= ", "=?utf-8?Q?a@b?= ",
                                         "\xE1 =?utf-8?Q?a?= ", "\"", "(", "<", ",", "\xE1 <a@b>,"}) {
        const std::string value = Repeat(piece, 900000 / piece.size()) + "\xE1 <a@b>";
        const std::uint32_t start = Platform::ClockMilliseconds();
        for (const std::string_view name : {"To", "Subject"}) {
            CWireHeaderRules rules;
            std::string written;
            AppendWireField(name, value, rules, written);
            EXPECT_FALSE(HasHighBytes(written));
        }
        EXPECT_LT(Platform::ClockMilliseconds() - start, 20000U) << piece;
    }
}

TEST(WireHeader, Parameters) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"a/b; name=\"k\xC5\xAF\xC5\x88;1.txt\"; boundary=\"x y\"",
         "a/b; name=\"=?utf-8?Q?k=C5=AF=C5=88=3B1=2Etxt?=\"; boundary=\"x y\""},
        {"a/b; name=caf\xE9; x=y", "a/b; name=\"=?iso-8859-1?Q?caf=E9?=\"; x=y"},
        {"a/\xE9; \xE9; x=\"\xE9", "a/?; ?; x=\"=?iso-8859-1?Q?=E9?=\""},
    };
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(WireParameters(value), expected);
}

struct CBodyCase {
    std::string_view header;
    std::string body;
    std::string_view header8;  // with 8BITMIME
    std::string body8;
    std::string_view header7;
    std::string body7;
};

TEST_F(CleanedCopy, BodiesAreCalledWhatTheyAre) {
    constexpr std::string_view Encoding = "Content-Transfer-Encoding: ";
    const std::string longLine(1200, 'x');
    const std::string longQuoted = Clean("Content-Transfer-Encoding: 7bit\n\n" + longLine);
    const std::string quotedLine = longQuoted.substr(longQuoted.find("\r\n\r\n") + 4);
    EXPECT_TRUE(longQuoted.starts_with("Content-Transfer-Encoding: quoted-printable\r\nMIME-Version: 1.0\r\n\r\nxxx"));
    const CBodyCase cases[] = {
        {"", "k\xC5\xAF\n", "8bit", "k\xC5\xAF\r\n", "quoted-printable", "k=C5=AF\r\n"},
        {"7BIT", "caf\xE9 \n.\n", "8bit", "caf\xE9 \r\n.\r\n", "quoted-printable", "caf=E9 =\r\n\r\n=2E\r\n"},
        {"8bit (sure)", "caf\xE9", "8bit (sure)", "caf\xE9\r\n", "quoted-printable", "caf=E9\r\n"},
        {"7bit", "plain = text \n", "7bit", "plain = text \r\n", "7bit", "plain = text \r\n"},
        {"8bit", "plain", "8bit", "plain\r\n", "8bit", "plain\r\n"},
        {"8bit", std::string("a\0b\xE9", 4), "quoted-printable", "a=00b=E9\r\n", "quoted-printable", "a=00b=E9\r\n"},
        {"", longLine + "\n\xE9", "quoted-printable", quotedLine + "=E9\r\n", "quoted-printable",
         quotedLine + "=E9\r\n"},
        {"quoted-printable", "a=\nb=C3=A9\xE9\n", "quoted-printable", "a=\r\nb=C3=A9\xE9\r\n", "quoted-printable",
         "a=\r\nb=C3=A9=E9\r\n"},
        {"base64", "YWJj\xE9\nYQ==", "base64", "YWJj\xE9\r\nYQ==\r\n", "base64", "YWJj\r\nYQ==\r\n"},
    };
    for (const CBodyCase& one : cases) {
        const std::string message = "To: a@x\n" +
                                    (one.header.empty() ? "" : std::string(Encoding) + std::string(one.header) + "\n") +
                                    "\n" + one.body;
        const auto expected = [&](std::string_view encoding, const std::string& body) {
            return "To: a@x\r\n" + std::string(Encoding) + std::string(encoding) + "\r\nMIME-Version: 1.0\r\n\r\n" +
                   body;
        };
        EXPECT_EQ(Clean(message, With8BitMime), expected(one.header8, one.body8));
        EXPECT_EQ(m_result.is8Bit, HasHighBytes(one.body8));
        EXPECT_EQ(Clean(message, Without8BitMime), expected(one.header7, one.body7));
        EXPECT_FALSE(m_result.is8Bit);
    }
    EXPECT_EQ(Clean("To: a@x\n\nplain"), "To: a@x\r\n\r\nplain\r\n");
}

// What has no fault stays, byte for byte, beside what has.
TEST_F(CleanedCopy, LeavesOfMultiparts) {
    const std::string message =
        "Content-Type: multipart/mixed; boundary=\"B B\"\r\nMIME-Version: 1.0\r\nContent-Transfer-Encoding: "
        "8bit\r\n\r\n"
        "pre\xC3\xA9\r\n--B B\r\nContent-Type:  text/plain;\r\n\tcharset=x\r\n\r\nplain \r\n"
        "--B BB\r\n --B B\r\n--B B \t\r\nContent-Type: multipart/alternative;boundary=C\r\n\r\n--C\r\n"
        "X:   1\r\ncontent-transfer-encoding:7bit\r\nContent-Disposition: attachment; "
        "filename=\"\xC3\xA9\"\r\n\r\n\xC3\xA9\r\n--C--\r\n"
        "epilogue\r\n--B B\r\n\r\n\xC3\xA9\r\n--B B\r\nContent-Type: message/rfc822\r\nContent-Transfer-Encoding: "
        "8bit\r\n\r\nSubject: \xC3\xA9\r\n\r\n\xC3\xA9\r\n"
        "--B B--\r\n--B B\r\nend";
    EXPECT_EQ(Clean(message, With8BitMime),
              "Content-Type: multipart/mixed; boundary=\"B B\"\r\nContent-Transfer-Encoding: 8bit\r\nMIME-Version: "
              "1.0\r\n\r\n"
              "pre\xC3\xA9\r\n--B B\r\nContent-Type:  text/plain;\r\n\tcharset=x\r\n\r\nplain \r\n"
              "--B BB\r\n --B B\r\n--B B \t\r\nContent-Type: "
              "multipart/alternative;boundary=C\r\nContent-Transfer-Encoding: 8bit\r\n\r\n--C\r\n"
              "X:   1\r\ncontent-transfer-encoding: 8bit\r\nContent-Disposition: attachment; "
              "filename=\"\xC3\xA9\"\r\n\r\n\xC3\xA9\r\n--C--\r\n"
              "epilogue\r\n--B B\r\nContent-Transfer-Encoding: 8bit\r\n\r\n\xC3\xA9\r\n--B B\r\nContent-Type: "
              "message/rfc822\r\nContent-Transfer-Encoding: 8bit\r\n\r\n"
              "Subject: \xC3\xA9\r\nContent-Transfer-Encoding: 8bit\r\n\r\n\xC3\xA9\r\n--B B--\r\n--B B\r\nend\r\n");
    EXPECT_EQ(Clean(message, Without8BitMime),
              "Content-Type: multipart/mixed; boundary=\"B B\"\r\nContent-Transfer-Encoding: 7bit\r\nMIME-Version: "
              "1.0\r\n\r\n"
              "pre??\r\n--B B\r\nContent-Type:  text/plain;\r\n\tcharset=x\r\n\r\nplain \r\n"
              "--B BB\r\n --B B\r\n--B B \t\r\nContent-Type: multipart/alternative;boundary=C\r\n\r\n--C\r\n"
              "X:   1\r\ncontent-transfer-encoding: quoted-printable\r\nContent-Disposition: attachment; "
              "filename=\"=?utf-8?Q?=C3=A9?=\"\r\n\r\n=C3=A9\r\n--C--\r\n"
              "epilogue\r\n--B B\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n=C3=A9\r\n--B "
              "B\r\nContent-Type: message/rfc822\r\nContent-Transfer-Encoding: 7bit\r\n\r\n"
              "Subject: =?utf-8?Q?=C3=A9?=\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n=C3=A9\r\n--B "
              "B--\r\n--B B\r\nend\r\n");
}

TEST_F(CleanedCopy, MultipartsThatCannotBeSplit) {
    const std::string head = "Content-Type: multipart/mixed; boundary=B\r\n";
    EXPECT_EQ(Clean(head + "\r\n--C\r\n\xE9\r\n", Without8BitMime),
              "Content-Type: text/plain\r\nContent-Transfer-Encoding: quoted-printable\r\nMIME-Version: "
              "1.0\r\n\r\n--C\r\n=E9\r\n");
    std::string deep;
    for (int i = 0; i < 200; ++i)
        deep += "Content-Type: multipart/mixed; boundary=B" + std::to_string(i) + "\r\n\r\n--B" + std::to_string(i) +
                "\r\n";
    const std::string copy = Clean(deep + "\r\n\xE9\r\n", Without8BitMime);
    EXPECT_FALSE(HasHighBytes(copy));
    EXPECT_NE(copy.find("boundary=3DB199"), std::string::npos);
    EXPECT_TRUE(copy.ends_with("\r\n=E9\r\n"));
}

// Line ends, delimiters and escapes wherever the blocks of reading end.
TEST_F(CleanedCopy, BlocksMayEndAnywhere) {
    const std::string head = "To: a@x\r\nContent-Type: multipart/mixed; boundary=B\r\n";
    const std::string tail = "a\r\r\nb\rc\nd\r\n\xC3\xA9\n--B\n\n\xC3\xA9\r--B--";
    const std::string tail8 =
        "a\r\nb\r\nc\r\nd\r\n\xC3\xA9\r\n--B\r\nContent-Transfer-Encoding: 8bit\r\n\r\n\xC3\xA9\r\n--B--\r\n";
    const std::string lines = Repeat(std::string(78, 'x') + "\r\n", 2 * CMessageReader::BlockSize / 80 - 2);
    const std::string front = head + "\r\n--B\r\n\r\n";
    for (std::size_t before = 0; before < 40; ++before) {
        const std::size_t missing = 2 * CMessageReader::BlockSize - front.size() - lines.size() - before;
        const std::string fill = lines + std::string(missing - 2, 'y') + "\r\n";
        EXPECT_TRUE(Clean(front + fill + tail) == head +
                                                      "Content-Transfer-Encoding: 8bit\r\nMIME-Version: "
                                                      "1.0\r\n\r\n--B\r\nContent-Transfer-Encoding: 8bit\r\n\r\n" +
                                                      fill + tail8)
            << before;
        EXPECT_TRUE(Clean(head + "\r\n" + fill + "a\r\r\nb\rc\n") == head + "\r\n" + fill + "a\r\nb\r\nc\r\n")
            << before;
    }
}

TEST_F(CleanedCopy, AFailureLeavesNoFile) {
    const std::string source = MakeFile("1.eml", "To: a@x\r\n\r\n" + std::string(1000000, 'x') + "\xE9");
    const std::string target = MakeFile("1.eml.clean", "an older one");
    EXPECT_FALSE(WriteCleanedCopy(InFolder("none.eml"), target, {}, m_result));
    EXPECT_FALSE(
        WriteCleanedCopy(MakeFile("2.eml", "To: " + Repeat("a@x,\n ", 300000) + "\r\n\r\n"), target, {}, m_result));
    EXPECT_EQ(GetLastErrorText(), "The header of the message is too large.");
    for (const auto operation : {Platform::Operation::Read, Platform::Operation::Write}) {
        for (unsigned n = 1; n < 100; ++n) {
            const Platform::CFaultPlan plan(operation, n);
            ClearLastErrorText();
            const bool isWritten = WriteCleanedCopy(source, target, {}, m_result);
            ASSERT_EQ(isWritten, !plan.WasHit()) << n;
            if (isWritten) break;
            EXPECT_NE(GetLastErrorText(), "");
            if (operation == Platform::Operation::Write) {
                EXPECT_FALSE(Platform::FileIsThere(target));
            }
        }
    }
}

}  // namespace

}  // namespace SendDaemon
