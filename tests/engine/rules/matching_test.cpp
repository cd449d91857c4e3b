// The pieces of rules: words, addresses, expressions, parse fields, and how a
// message is read for them.

#include <gtest/gtest.h>

#include <chrono>

#include "engine/customfields.h"
#include "engine/datafields.h"
#include "engine/rules/addressmatch.h"
#include "engine/rules/boundedregex.h"
#include "engine/rules/incomingmessage.h"
#include "engine/rules/wordmatch.h"
#include "tests/engine/messagefixture.h"

namespace {

class MatchingTest : public MessageTest {
protected:
    CIncomingMessage Read(const std::string& text) {
        CIncomingMessage message;
        EXPECT_TRUE(ReadIncomingMessage(WriteMessage(text), {"news@harbour.example"}, message));
        return message;
    }
};

TEST_F(MatchingTest, WordsAreWholeAndInAnyCase) {
    const RuleWordOptions any;
    const RuleWordOptions all{true, false, false};
    const RuleWordOptions only{true, true, false};
    const RuleWordOptions regex{false, false, true};
    const RuleWordOptions onlyRegex{true, true, true};
    const struct {
        std::vector<std::string> words;
        RuleWordOptions options;
        const char* text;
        bool matches;
    } rows[] = {
        {{"subscribe"}, any, "unsubscribe", false},
        {{"sub", "b"}, any, "subscribe me", false},
        {{"re"},
         any,
         "r\xC3\xA9"
         "e",
         false},  // a letter beyond ASCII is one of the word
        {{"a", "b"}, all, "b", false},
        {{"b c", "a"}, all, "A  b\n c d", true},
        {{"digest on"}, only, " Digest \t ON ", true},
        {{"digest on"}, only, "Re: digest on", false},
        {{"digest on"}, only, "digest on on", false},
        {{"a b", "b c"}, only, "a b c", true},
        {{""}, only, "", false},
        {{"^order-\\d+$"}, regex, "Order-12", true},
        {{"("}, regex, "(", false},
        {{"\\d+", "[a-z]+"}, onlyRegex, "ab 12!", false},
        {{"^$(List-Name)$"}, regex, "a.b (C)", true},  // the name stands for itself
        {{"^$(List-Name)$"}, regex, "axb c", false},
    };
    SetDataField("List-Name", "A.B (c)");
    for (const auto& row : rows) {
        std::string why;
        EXPECT_EQ(MatchWords(row.words, row.options, row.text, why), row.matches) << row.text << ": " << why;
    }
}

TEST_F(MatchingTest, AddressesAreListed) {
    SetDataField("Authorized-Email", "boss@harbour.example");
    const struct {
        std::vector<std::string> entries;
        bool isRegex;
        const char* address;
        bool isListed;
    } rows[] = {
        {{"x@y.example, Anna <a@b.example>"}, false, "a@b.example", true},
        {{"*@b.example"}, false, "a@B.example", true},
        {{"*@*.b.example"}, false, "a@c.B.example", true},
        {{"*@*.b.example"}, false, "a@b.example", false},
        {{"$(Authorized-Email)"}, false, "boss@harbour.example", true},
        {{".*@b\\.example"}, true, "a@b.example", true},
        {{".*@b\\.example"}, true, "a@b.example.evil.example", false},
        {{"$(Authorized-Email)"}, true, "boss@harbourXexample", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(!FindListedAddress(row.entries, row.isRegex, row.address).empty(), row.isListed) << row.address;
}

TEST_F(MatchingTest, RunawayExpressionsEnd) {
    const std::string text(std::size_t{1} << 20, 'a');
    for (const char* pattern : {"(a+)+b", "(a|aa)+$", "(a?){50}a{50}b", "(.*)*\\d", "(.+)\\1\\1b", "(?<=a{1000})b"}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(SearchPattern(text, pattern, PatternCase::Ignored)) << pattern;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << pattern;
    }
    EXPECT_TRUE(SearchPattern(text + "b", "ab$", PatternCase::Exact));
    std::string value;
    EXPECT_FALSE(ExtractPattern(text, "a+", "$&$&", PatternCase::Exact, value));  // too long
}

TEST_F(MatchingTest, FormFieldsComeBackFromTheirPatterns) {
    for (const CFormField& form : {CFormField{"Phone", false, ""}, CFormField{"Phone (work)", false, ""},
                                   CFormField{"E-Mail?", true, ";"}, CFormField{"a:[[:blank:]]*(.*?)b", true, "$"}}) {
        CParseField field;
        std::string reason;
        ASSERT_TRUE(MakeParseField(form, &field, reason));
        EXPECT_TRUE(CheckPattern(field.pattern, reason)) << reason;
        CFormField again;
        EXPECT_TRUE(RecognizeFormField(field.pattern, again)) << field.pattern;
        EXPECT_EQ(again, form);
    }
    CParseField field;
    std::string reason;
    MakeParseField({"Phone (a-b)", false, ""}, &field, reason);
    EXPECT_EQ(field.pattern, "^[[:blank:]]*Phone \\(a-b\\):[[:blank:]]*(.*?)[[:blank:]]*$");
    EXPECT_FALSE(MakeParseField({}, &field, reason));
    EXPECT_EQ(reason, "Name of the form field to parse is not defined.");
    for (const char* byHand : {"^[[:blank:]]*A|B:[[:blank:]]*(.*?)[[:blank:]]*$", "Phone: (.*)"}) {
        CFormField form;
        EXPECT_FALSE(RecognizeFormField(byHand, form)) << byHand;
    }
}

TEST_F(MatchingTest, ParseFieldsTakeLinesOfHeaderAndBody) {
    const std::uint32_t list = MakeList("Harbour", {});
    CCustomFields customFields;
    customFields.Load(list);
    customFields.Set(1, {"City", "", CustomFieldKind::Text});
    const std::vector<CParseField> fields = {{CParseField::Email, true, "^Mail: (.*)$", "$1", true},
                                             {CParseField::Name, true, "^Last: (.*)\\nFirst: (.*)$", "$2 $1", true},
                                             {CParseField::FirstSlot + 1, false, "^X-Town:(.*)$", "$1", true}};
    const CIncomingMessage message =
        Read("From: form@x.example\nX-Town: Kiel\n\nMail: <anna@x.example>\r\nTown: no\nLast: Berg \nFirst: Anna\n");
    CMember member;
    std::string email;
    EXPECT_TRUE(ExtractParseFields(fields, message, customFields, member, email));
    EXPECT_EQ(email, "anna@x.example");
    EXPECT_EQ(member.name, "Anna Berg");
    EXPECT_EQ(member.GetField(1), "Kiel");
}

TEST_F(MatchingTest, APartDoesNotSpeakForItsMessage) {
    // The only part of a multipart becomes the root, with what it says of itself.
    const CIncomingMessage message = Read(
        "From: real@x.example\nSubject: Real\nX-Lhv-Received: 5\nX-Lhv-Server-Id: abc\n"
        "Content-Type: multipart/mixed; boundary=b\n\n--b\nFrom: forged@x.example\nAuto-Submitted: no\n"
        "X-Lhv-To-Override: a@b.example\nX-ZQ-Loop: x\nX-Zq-Update-Attachments: 1\n\nText\n--b--\n");
    const CMimeHeader& header = message.message.GetRoot()->GetHeader();
    EXPECT_EQ(message.sender.address, "real@x.example");
    EXPECT_EQ(header.GetField("From"), "real@x.example");
    for (const char* name : {"X-Lhv-To-Override", "X-Lhv-Received", "X-Zq-Update-Attachments", "X-ZQ-Loop"})
        EXPECT_FALSE(header.HasField(name)) << name;
    EXPECT_EQ(message.received, 5);
    EXPECT_EQ(message.headerText.find("X-Lhv"), std::string::npos);
    EXPECT_EQ(message.GetBodyText(), "Text");
}

TEST_F(MatchingTest, HeadersAreReadAsPeopleMeanThem) {
    const CIncomingMessage folded = Read(
        "From: J\xC3\xBCrgen <j@x.example>\nSubject: =?utf-8?Q?Re:_Hall=C3?=\n =?utf-8?Q?=B6_[LHV-AAAAAAAA?=\n"
        " =?utf-8?q?AAAAAAAAAAAAAAA]?=\nCc: c@x.example\nTo: a@x.example, \"B, C\" <b@x.example>\n\n");
    EXPECT_EQ(folded.signedSubject, "Re: Hall\xC3\xB6 [LHV-AAAAAAAAAAAAAAAAAAAAAAA]");
    EXPECT_EQ(folded.subject, "Re: Hall\xC3\xB6");
    EXPECT_EQ(folded.sender, (CMailbox{"J\xC3\xBCrgen", "j@x.example"}));
    ASSERT_EQ(folded.to.size(), 3U);
    EXPECT_EQ(Read("Return-Path: <r@x.example>\n\n").sender.address, "r@x.example");
    EXPECT_EQ(Read("").sender.address, "");
    EXPECT_EQ(Read("Content-Type: text/html\n\n<p>a<br>b</p>").GetBodyText(), "a\nb\n");
}

TEST_F(MatchingTest, ProgramsAreKnown) {
    const struct {
        const char* line;
        Automatic automatic;
    } rows[] = {
        {"Auto-Submitted: auto-replied (vacation)", Automatic::Reply},
        {"Auto-Submitted: (by cron) auto-generated", Automatic::Generated},
        {"Auto-Submitted: (a person) No", Automatic::No},
        {"Auto-Submitted: auto-generated; owner-email=\"a@b.example\"", Automatic::Generated},
        {"Precedence: LIST", Automatic::Generated},
        {"Precedence: bulk\nX-Autoreply: yes", Automatic::Reply},
        {"X-Auto-Response-Suppress: DR, OOF", Automatic::Generated},
        {"X-Auto-Response-Suppress: DR", Automatic::No},
        {"List-Id: <a.b.example>", Automatic::Generated},
    };
    for (const auto& row : rows) {
        const CIncomingMessage message = Read(std::string("From: a@b.example\n") + row.line + "\n\nHello\n");
        EXPECT_EQ(message.automatic, row.automatic) << row.line;
        EXPECT_EQ(WhyAutomatic(message).empty(), row.automatic == Automatic::No) << row.line;
    }
    for (const char* header : {"From: Mailer-Daemon@b.example\n\n", "From: a@b.example\nReturn-Path: <>\n\n"})
        EXPECT_NE(WhyAutomatic(Read(header)), "") << header;
}

}  // namespace
