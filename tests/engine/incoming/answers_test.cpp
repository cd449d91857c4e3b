#include "engine/incoming/answers.h"

#include <gtest/gtest.h>

#include "engine/datafields.h"
#include "engine/incoming/originalfields.h"
#include "engine/incoming/subjectline.h"
#include "engine/messagetemplate.h"
#include "tests/engine/incoming/outgoingfixture.h"

namespace {

using Answers = OutgoingTest;

TEST_F(Answers, NothingTheSenderWroteIsExpandedOrOpensALine) {
    SetDataField("Password", "swordfish");
    const CIncomingMessage original = Incoming(
        "From: \"$(Password) =?utf-8?Q?a=0D=0ABcc:_x=40y?=\" <eve@evil.example>\n"
        "Subject: Re: RE: $(List-Usage) $(Password) =?utf-8?Q?=0D=0AX-Bad:_1?=\n"
        "Message-ID: <1$(Password)@evil.example>\nReferences: <a@b> <x y> <$(Password)> <c@d>\n\nbody\n");
    const CMimeMessage reply = Message(
        "Content-Type: text/html\n\n<p><!Original-From-Name!> &lt;!List-Name!&gt; $(Original-Subject)\n"
        "<!Nothing!> $(List-Usage)</p>\n<pre>$(Original-Header)</pre>\n");
    CAnswerMaker maker(list);
    std::string text;
    ASSERT_EQ(maker.MakeReply(reply, original, 1700000000, text), CopyResult::Made) << GetLastErrorText();
    EXPECT_EQ(text.find("swordfish"), std::string::npos) << text;
    ExpectFields(text, {{"Subject", "Re: $(List-Usage) $(Password)  X-Bad: 1"},
                        {"From", "\"Harbour (West)\" <news-do@harbour.example>"},
                        {"To", "eve@evil.example"},
                        {"Auto-Submitted", "auto-replied"},
                        {"In-Reply-To", ""},
                        {"References", "<a@b> <c@d>"},
                        {"X-Loop", "news-do@harbour.example"},
                        {"X-Bad", ""},
                        {"Bcc", ""},
                        {ControlHeader::ReturnPathOverride, "<>"}});
    const std::string body = Message(text).GetRoot()->GetBody();
    EXPECT_NE(body.find("<p>$(Password) A Bcc: X@y Harbour (West) Re: RE: $(List-Usage)"), std::string::npos) << body;
    EXPECT_NE(body.find("<!Nothing!> &quot;UNSUBSCRIBE&quot;"), std::string::npos) << body;
    EXPECT_NE(body.find("&quot;$(Password)"), std::string::npos) << body;
}

TEST_F(Answers, SubjectsSignaturesAndRecipients) {
    CAnswerMaker maker(list);
    CIncomingMessage original = Incoming(
        "From: =?koi8-r?B?5tXO?= <a@b.example>\nSubject: re: =?utf-8?Q?Gr=C3=BC=C3=9Fe?= [ID:0123abcd]\n"
        "Message-ID: <1@b>\n\nx\n");
    std::string text;
    const struct {
        const char* message;
        const char* subject;
    } rows[] = {
        {"X-A: b\n\nHello $(Original-From-Name)",
         "Re: Gr\xC3\xBC\xC3\x9F"
         "e"},
        {"Subject: Re: $(Original-Subject)!\n\nx",
         "Re: Gr\xC3\xBC\xC3\x9F"
         "e!"},
        {"Subject: Welcome to $(List-Name)\n\nx", "Welcome to Harbour (West)"},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(maker.MakeReply(Message(row.message), original, 1700000000, text), CopyResult::Made);
        EXPECT_EQ(Message(text).GetRoot()->GetField("Subject"), row.subject);
        EXPECT_EQ(Message(text).GetRoot()->GetField("To"), "\"\xD0\xA4\xD1\x83\xD0\xBD\" <a@b.example>");
        EXPECT_EQ(Message(text).GetRoot()->GetField("References"), "<1@b>");
    }
    ASSERT_EQ(maker.MakeReply(Message("X-Lhv-Should-Sign: YES\nSubject: Confirm\n\nx"), original, 1700000000, text),
              CopyResult::Made);
    EXPECT_TRUE(Message(text).GetRoot()->GetField("Subject").starts_with("Confirm [LHV-"));

    ASSERT_EQ(maker.MakeMessageTo(Message("Subject: Note\n\n$(Original-From-Email)"), "Anna <$(Command-Email)>",
                                  original, 1700000000, text),
              CopyResult::Made);
    EXPECT_EQ(Message(text).GetRoot()->GetField("To"), "\"Anna\" <news-do@harbour.example>");
    EXPECT_EQ(Message(text).GetRoot()->GetBody(), "a@b.example");
    EXPECT_EQ(Message(text).GetRoot()->GetField("In-Reply-To"), "");

    ASSERT_EQ(maker.MakeRedirected(original, "owner@b.example", 1700000000, text), CopyResult::Made);
    EXPECT_TRUE(
        text.starts_with("X-Lhv-Recipient-Override: owner@b.example\r\nX-Lhv-Return-Path-Override: <>\r\n"
                         "Resent-From: news-do@harbour.example\r\n"
                         "From: =?koi8-r?B?5tXO?= <a@b.example>\r\n"))
        << text;
    EXPECT_EQ(maker.MakeRedirected(original, "News@Harbour.example", 1700000000, text), CopyResult::Skipped);
    for (const char* address : {"", "no address", "a@b\r\nX: y", "$(Password)@b"}) {
        original.sender.address = address;
        EXPECT_EQ(maker.MakeReply(Message("Subject: x\n\nx"), original, 1700000000, text), CopyResult::Skipped)
            << address;
    }
}

TEST(SubjectLine, TagsAndIdentifiersStandOnce) {
    const struct {
        const char* subject;
        const char* tagged;
    } rows[] = {
        {"x", "[T] x"},
        {"Re: [T] Re: [T] x", "[T] Re: x"},
        {"[t][T]  AW: x [T]", "[T] AW: x"},
        {"RE[2]: Re^3: x", "[T] Re: x"},
        {"", "[T]"},
        {"[T]", "[T]"},
        {"Result: [Tx]", "[T] Result: [Tx]"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(TagSubject(row.subject, " [T] "), row.tagged) << row.subject;
    const std::string once = WithSubjectId("Hello");
    EXPECT_EQ(once.size(), std::string("Hello [ID:01234567]").size());
    EXPECT_NE(WithSubjectId("Re: " + once + " again"), once);
    EXPECT_EQ(WithoutSubjectIds("Re: " + once + " again " + once), "Re: Hello again Hello");
    EXPECT_EQ(WithoutSubjectIds("[ID:0123456] [ID:0123456g] [ID:"), "[ID:0123456] [ID:0123456g] [ID:");
}

}  // namespace
