// The lines of SMTP, without a server.

#include <gtest/gtest.h>

#include "net/smtpgrammar.h"
#include "utility/text.h"

using namespace Net;
using Step = CSmtpReplyParser::Step;
using Lines = std::vector<std::string>;

TEST(SmtpGrammar, RepliesAreTakenLineByLine) {
    const struct {
        Lines lines;
        Step last;
        int code;
        std::string enhanced, text;
    } Cases[] = {
        {{"250 2.1.0 ok"}, Step::Done, 250, "2.1.0", "ok"},
        {{"250"}, Step::Done, 250, "", ""},
        {{"250-"}, Step::More, 250, "", ""},
        {{"550-5.1.1 No such", "550-5.1.1   user", "550 5.1.1 here"}, Step::Done, 550, "5.1.1", "No such user here"},
        {{"550-5.1.1 a", "550 5.7.1 b"}, Step::Done, 550, "5.1.1", "a 5.7.1 b"},
        {{"421 4.321.210 later"}, Step::Done, 421, "4.321.210", "later"},
        {{"550 2.0.0 of another class"}, Step::Done, 550, "", "2.0.0 of another class"},
        {{"550 5.1.1234 too long"}, Step::Done, 550, "", "5.1.1234 too long"},
        {{"550 5.1"}, Step::Done, 550, "", "5.1"},
        {{"354 3.0.0 go"}, Step::Done, 354, "", "3.0.0 go"},
        {{std::string("250 a\0b\tc\x1b[1m\x7f", 14)}, Step::Done, 250, "", "a b c [1m "},
        {{"250 gr\xc3\xbc\xc3\x9f"}, Step::Done, 250, "", "gr\xc3\xbc\xc3\x9f"},
        {{"250 gr\xfc\xdf"}, Step::Done, 250, "", "gr??"},
        {{"250-a", "251 b"}, Step::Bad, 250, "", "a"},
        {{"250-a", "250\tb"}, Step::Bad, 250, "", "a"},
    };
    CSmtpReplyParser parser;
    for (const char* line : {"199 a", "600 a", "25 a", "+OK POP3", ""}) {
        parser.Start();
        EXPECT_EQ(parser.Add(line), Step::Bad) << line;
    }
    for (const auto& test : Cases) {
        parser.Start();
        Step step = Step::More;
        for (const std::string& line : test.lines)
            step = parser.Add(line);
        EXPECT_EQ(step, test.last) << test.lines.back();
        EXPECT_EQ(parser.GetReply().code, test.code) << test.lines.back();
        EXPECT_EQ(parser.GetReply().enhanced, test.enhanced) << test.lines.back();
        EXPECT_EQ(parser.GetReply().text, test.text) << test.lines.back();
    }
}

TEST(SmtpGrammar, RepliesHaveLimits) {
    CSmtpReplyParser parser;
    parser.Start();
    const std::string longest = "250-" + std::string(MaxReplyLine - 4, 'x');
    for (std::size_t i = 0; i < MaxReplyLines; ++i)
        ASSERT_EQ(parser.Add(longest), Step::More);
    EXPECT_LE(parser.GetReply().text.size(), MaxReplyText);
    EXPECT_EQ(parser.Add("250 end"), Step::Bad);
    parser.Start();
    EXPECT_EQ(parser.Add(longest + "x"), Step::Bad);
    // The cut does not go through a character.
    EXPECT_EQ(CleanReplyText("ab\xc3\xbc", 3), "ab");
}

TEST(SmtpGrammar, CapabilitiesOfTheServer) {
    const SmtpCapabilities all = ParseCapabilities({"mx.example at your service", "PIPELINING", "8bitmime", "StartTLS",
                                                    "SIZE 10240000", "DSN", "SMTPUTF8", "ENHANCEDSTATUSCODES",
                                                    "AUTH PLAIN  login", "AUTH=LOGIN CRAM-MD5", "X-OTHER 1 2"});
    EXPECT_EQ(all.serverName, "mx.example");
    EXPECT_TRUE(all.isExtended && all.hasPipelining && all.has8BitMime && all.hasStartTls && all.hasDsn &&
                all.hasSmtpUtf8 && all.hasEnhancedCodes && all.hasSize);
    EXPECT_EQ(all.sizeLimit, 10240000u);
    EXPECT_EQ(all.authMechanisms, (Lines{"PLAIN", "LOGIN", "CRAM-MD5"}));

    // The first line names the server, whatever it looks like.
    const SmtpCapabilities few = ParseCapabilities({"STARTTLS", "SIZE", "AUTH PLAIN CRAM-MD5", "AUTHLOGIN"});
    EXPECT_FALSE(few.hasStartTls);
    EXPECT_TRUE(few.hasSize);
    EXPECT_EQ(few.sizeLimit, 0u);
    EXPECT_FALSE(few.HasAuth("LOGIN"));
    EXPECT_EQ(ParseCapabilities({"x", "SIZE -1"}).sizeLimit, 0u);
    EXPECT_EQ(ParseCapabilities({"x", "SIZE 99999999999999999999"}).sizeLimit, 0u);
}

TEST(SmtpGrammar, AddressesThatCanBeSaid) {
    const std::string label(63, 'a');
    const std::vector<std::string> good = {"a@b",
                                           "a.b..c.@mx.example",
                                           "o'neil+list=x@example.org",
                                           "\"a b,c@d\"@example.org",
                                           "\"a\\\"b\"@example.org",
                                           "a@[192.0.2.1]",
                                           "a@[IPv6:2001:db8::1]",
                                           "Postmaster",
                                           "a@" + label + ".example"};
    for (const std::string& address : good)
        EXPECT_EQ(CheckAddress(address), AddressSyntax::Good) << address;
    for (const char* address : {"gr\xc3\xbc\xc3\x9f@example.org", "a@b\xc3\xbc.example"})
        EXPECT_EQ(CheckAddress(address), AddressSyntax::NeedsSmtpUtf8) << address;
    std::vector<std::string> bad;
    for (const std::string_view address : Split(
             "gr\xfc@example.org||a|@b|a@|a@b@c|a@b..c|a@-b|a@[192.0.2.1|a b@c|a@b c|<a@b>|a@b> NOTIFY=NEVER|\"a>b\"@c|"
             "\"a\"b@c|\"a@c|\"a\\|a@b\r\nDATA|\"a\r\nRSET\"@b|\"a\\\nb\"@c|a,b@c",
             '|'))
        bad.emplace_back(address);
    bad.push_back("a@" + label + "a.example");
    bad.push_back(std::string(600, 'a') + "@b");
    for (const std::size_t zero : {1, 3})
        bad.push_back(std::string("a@b").insert(zero, 1, '\0'));
    for (const std::string& address : bad) {
        std::string commands = "RSET\r\n";
        EXPECT_EQ(CheckAddress(address), AddressSyntax::Bad) << address;
        EXPECT_FALSE(AppendRecipient(commands, address, false)) << address;
        EXPECT_EQ(commands, "RSET\r\n") << address;
    }
}

TEST(SmtpGrammar, CommandsAsTheyGoOut) {
    std::string commands;
    EXPECT_TRUE(AppendMailFrom(commands, "", {}));
    EXPECT_TRUE(AppendMailFrom(commands, "a@b", {.size = 18446744073709551615u, .is8Bit = true, .isSmtpUtf8 = true}));
    EXPECT_TRUE(AppendRecipient(commands, "c@d", true));
    EXPECT_TRUE(AppendCommand(commands, "EHLO", "[127.0.0.1]"));
    EXPECT_EQ(commands,
              "MAIL FROM:<>\r\nMAIL FROM:<a@b> SIZE=18446744073709551615 BODY=8BITMIME SMTPUTF8\r\n"
              "RCPT TO:<c@d> NOTIFY=NEVER\r\nEHLO [127.0.0.1]\r\n");
    for (const std::string& bad : {std::string("a\r\nb"), std::string("a b"), std::string("a\0", 2)})
        EXPECT_FALSE(AppendCommand(commands, "EHLO", bad)) << bad;
    const std::pair<std::string, std::string> Encoded[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xff\xfe\xfd!", "//79IQ=="}};
    for (const auto& [bytes, text] : Encoded)
        EXPECT_EQ(EncodeBase64(bytes), text);
}
