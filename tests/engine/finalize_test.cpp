#include "engine/finalize.h"

#include "engine/blockedaddresses.h"
#include "engine/datafields.h"
#include "engine/expandmessage.h"
#include "engine/messagefields.h"
#include "engine/messagetemplate.h"
#include "engine/signature.h"
#include "platform/clock.h"
#include "tests/engine/messagefixture.h"
#include "utility/lhvexception.h"

namespace {

TEST(FinalizeDate, ZonesKeepTheSignOfTheirMinutes) {
    const struct {
        int bias;
        const char* text;
    } rows[] = {{300, "-0500"}, {210, "-0330"}, {-330, "+05-30"}, {0, "+0000"}, {-60, "+0100"}, {-570, "+09-30"}};
    for (const auto& row : rows)
        EXPECT_EQ(FormatZone(row.bias), row.text) << row.bias;
}

TEST(FinalizeDate, NamesAreEnglishAndTheZoneIsTheOneOfThatDay) {
    const std::int64_t noon = 1'772'452'800;  // Monday, 2 March 2026, 12:00 UTC
    const std::int64_t bias = Platform::TimeZoneBias(noon);
    const std::string date = FormatMessageDate(noon + bias * 60);
    EXPECT_EQ(date.substr(0, 26), "Mon, 02 Mar 2026 12:00:00 ");
    EXPECT_EQ(date.substr(26), FormatZone(static_cast<int>(bias)));
}

class Finalize : public MessageTest {
protected:
    // Finalises, and loads what was written; empty when nothing was.
    CMimeMessage Finalized(const std::string& text, FinalizeResult expected = FinalizeResult::Written) {
        CMimeMessage message;
        EXPECT_TRUE(message.LoadText(text));
        const std::string queue = JoinPath(m_folder.GetPath(), "queue" + std::to_string(++m_queues));
        EXPECT_EQ(FinalizeMessage(&message, queue, "{A}"), expected) << DescribeLastError();
        const auto files = QueuedFiles(queue);
        EXPECT_EQ(files.size(), expected == FinalizeResult::Written ? 1u : 0u);
        CMimeMessage written;
        if (files.size() == 1) written.LoadOrThrow(files[0]);
        return written;
    }

    int m_queues = 0;
};

TEST_F(Finalize, OverridesReplaceTheLinesAndAreCleared) {
    const CMimeMessage copy = Finalized(
        "From: a@x.example\nTo: \"Anna\" <anna@x.example>\nSubject: old\nSender: s@x.example\n"
        "X-Lhv-To-Override: All <all@y.example>\nX-Lhv-From-Override: b@y.example\nX-Lhv-Reply-To-Override: "
        "r@y.example\n"
        "X-Lhv-Subject-Override: new\nX-Lhv-Subject-Override: newer\nX-Lhv-Sender-Override: t@y.example\n\nbody\n");
    const auto& root = *copy.GetRoot();
    const struct {
        const char* field;
        const char* value;
    } rows[] = {{"To", "All <all@y.example>"},
                {ControlHeader::RecipientOverride, "\"Anna\" <anna@x.example>"},
                {"From", "b@y.example"},
                {"Reply-To", "r@y.example"},
                {"Subject", "new"},
                {"Sender", "t@y.example"},
                {ControlHeader::ToOverride, ""},
                {ControlHeader::FromOverride, ""},
                {ControlHeader::ReplyToOverride, ""},
                {ControlHeader::SubjectOverride, ""},
                {ControlHeader::SenderOverride, ""},
                {"X-Loop", "b@y.example"},
                {"X-ZQ-Loop", "b@y.example"},
                {"Mime-Version", "1.0"},
                {"X-Mailer", "Vantorel Listhaven 3.0.1"}};
    for (const auto& row : rows)
        EXPECT_EQ(root.GetField(row.field), row.value) << row.field;
    EXPECT_TRUE(root.GetField("Message-ID").ends_with("@y.example>"));
    EXPECT_EQ(root.GetField("Date").size(), 31u);
}

TEST_F(Finalize, TheAddresseeAndTheMailerComeFromTheirPlaces) {
    WriteSettingText("Service", "Mailer", "Post 7");
    const CMimeMessage copy = Finalized(
        "From: a@x.example\nTo: \"anna von Berg\" <anna@x.example>, second@x.example\nMessage-ID: <old@x>\n"
        "Subject: $(Sender-Email)|$(name)|$(First-Name)|$(Last-Name)\n\nx\n");
    EXPECT_EQ(copy.GetRoot()->GetField("Subject"), "anna@x.example|anna von Berg|anna|von Berg");
    EXPECT_EQ(copy.GetRoot()->GetField("X-Mailer"), "Post 7");
    EXPECT_NE(copy.GetRoot()->GetField("Message-ID"), "<old@x>");
    const CDataFieldScope scope;
    SetDataField("List-Email", "news@z.example");
    const CMimeMessage answer = Finalized("From: \"Z\" <$(List-Email)>\nTo: b@x.example\n\nx\n");
    EXPECT_TRUE(answer.GetRoot()->GetField("Message-ID").ends_with("@z.example>"));
    EXPECT_EQ(GetDataField("Email"), "") << "the table is as it was before";
}

TEST_F(Finalize, OnlyYesInCapitalsSigns) {
    for (const char* value : {"yes", "Yes", "YES!", "1"}) {
        const std::string head = std::string("From: a@x\nTo: b@x\nSubject: s\nX-Lhv-Should-Sign: ") + value;
        EXPECT_EQ(Finalized(head + "\n\nx\n").GetRoot()->GetField("Subject"), "s") << value;
    }
    const CMimeMessage copy = Finalized(
        "From: a@x\nTo: all@x\nSubject: s\nX-Lhv-Recipient-Override: Anna <Anna@x>\nX-Lhv-Should-Sign: YES\n\nx\n");
    CSigner signer;
    ASSERT_TRUE(signer.Load(m_folder.GetPath()));
    const std::string subject = copy.GetRoot()->GetField("Subject");
    const std::int64_t later = 4'000'000'000;
    EXPECT_TRUE(signer.Verify(subject, "{A}", "anna@x", later, later)) << subject;
    EXPECT_FALSE(signer.Verify(subject, "{A}", "all@x", later, later));
}

TEST_F(Finalize, ABlockedRecipientGetsNothingWhereverItStands) {
    CBlockedAddresses().Add("*@blocked.example");
    const char* heads[] = {
        "To: b@blocked.example\n",
        "To: \"B\" <B@Blocked.Example>\nX-Lhv-To-Override: a@x.example\n",
        "To: a@x.example\nX-Lhv-Recipient-Override: b@blocked.example\n",
        "To: a@x.example, b@blocked.example\n",
        "To: a@x.example\nCC: b@blocked.example\n",
        "To: a@x.example\nBcc: c@x.example, b@blocked.example\n",
    };
    for (const char* head : heads) {
        Finalized(std::string("From: a@x.example\nSubject: s\n") + head + "\nx\n", FinalizeResult::Blocked);
    }
    std::string log;
    ASSERT_TRUE(ReadWholeFile(JoinPath(m_folder.GetPath(), "log.txt"), log));
    EXPECT_NE(
        log.find("[ERROR]       Rejected message \"s\" to b@blocked.example because the recipient's email address "
                 "is on the list of blocked addresses."),
        std::string::npos);
    Finalized("From: b@blocked.example\nTo: a@x.example\n\nx\n");
}

TEST_F(Finalize, ValuesOfStrangersStartNoHeaderLine) {
    const CDataFieldScope scope;
    SetDataField("Evil", "x\r\nBcc: victim@x.example\n\n<b>body</b>");
    SetDataField("Zero", std::string_view("a\0b", 3));
    const CMimeMessage copy = Finalized(
        "From: $(Evil) <a@x.example>\nTo: b@x.example\nSubject: $(Evil)$(Zero)\nX-Note: $(Evil)\n"
        "Content-Type: text/html\n\n<p>$(Evil)</p>\n");
    EXPECT_FALSE(copy.GetRoot()->HasField("Bcc"));
    EXPECT_EQ(copy.GetRoot()->GetField("Subject"), "x  Bcc: victim@x.example  <b>body</b>a b");
    EXPECT_EQ(copy.GetRoot()->GetBody(), "<p>x\nBcc: victim@x.example\n\n&lt;b&gt;body&lt;/b&gt;</p>");
}

TEST_F(Finalize, AddressesComeBackBesideNamesThatAreEncoded) {
    const CMimeMessage copy = Finalized(
        "From: a@x.example\nTo: b@x.example\nX-Lhv-From-Override: \"Hafen K\xC3\xB6ln\" <news_a=b@x.example>\n\nx\n");
    EXPECT_EQ(copy.GetRoot()->GetField("From"), "\"Hafen K\xC3\xB6ln\" <news_a=b@x.example>");
    EXPECT_EQ(copy.GetRoot()->GetField("X-Loop"), "news_a=b@x.example");
    EXPECT_EQ(copy.GetRoot()->GetHeader().FindStored("From").find('\xC3'), std::string_view::npos);
}

TEST_F(Finalize, NamesOfSenderAndRecipientAreSplitAndCapitalised) {
    const CDataFieldScope scope;
    CMimeMessage message;
    ASSERT_TRUE(message.LoadText("From: \"MCDONALD, RONALD J.\" <r@x>\nTo: anna <A@x>\nSubject: s\nDate: d\n\nx\n"));
    SetMessageFields(message);
    std::string text =
        "$(From-First-Name)|$(From-Middle-Name)|$(From-Last-Name)|$(From-Name)|$(From-Email)|$(To-Name)|"
        "$(To-Last-Name)|$(To-Email)|$(Subject)|$(Date)|$(To)";
    ExpandDataFields(&text, false);
    EXPECT_EQ(text, "Ronald|J.|McDonald|Ronald J. McDonald|r@x|Anna||A@x|s|d|anna <A@x>");
    WriteSetting("Service", "CapitalizeNames", 0);
    SetMessageFields(message);
    EXPECT_EQ(GetDataField("To-Name"), "anna");
}

TEST_F(Finalize, ReadOnlyTemplatesCanBeNeitherSavedNorDeleted) {
    const std::string path = WriteMessage("From: a@x\r\nX-Lhv-Should-Sign: YES\r\n\r\nx\r\n");
    CMessageTemplate builtIn(path, TemplateAccess::ReadOnly);
    EXPECT_THROW(builtIn.Save(), CLhvException);
    EXPECT_THROW(builtIn.Delete(), CLhvException);
    CMessageTemplate own(path, TemplateAccess::ReadWrite);
    EXPECT_EQ(own.GetControl(ControlHeader::ShouldSign), "YES");
    own.SetControl(ControlHeader::ShouldSign, "");
    own.Save();
    EXPECT_EQ(CMessageTemplate(path, TemplateAccess::ReadOnly).GetControl(ControlHeader::ShouldSign), "");
    own.Delete();
    EXPECT_NO_THROW(own.Delete()) << "a file that is gone already";
    EXPECT_THROW(CMessageTemplate(path, TemplateAccess::ReadWrite), CLhvException);
    EXPECT_THROW(ExpandMessage(nullptr), CLhvException);
}

}  // namespace
