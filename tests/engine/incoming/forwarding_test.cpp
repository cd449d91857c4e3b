#include "engine/incoming/forwarding.h"

#include <gtest/gtest.h>

#include <chrono>

#include "engine/customfields.h"
#include "engine/incoming/digestmessage.h"
#include "engine/messagetemplate.h"
#include "mime/mimemultipart.h"
#include "mime/mimewalk.h"
#include "tests/engine/incoming/outgoingfixture.h"

namespace {

constexpr std::int64_t Now = 1700000000;
const std::string Rule(80, '-');

class Forwarding : public OutgoingTest {
protected:
    Forwarding() {
        CCustomFields fields;
        fields.Load(list.number);
        fields.Set(0, {"Password", "", CustomFieldKind::Text});
        rule.fromOptions.members.subscribers = true;
        rule.subjectTag = true;
        rule.toOverride = rule.replyToOverride = {true, "$(List-Display-Name) <$(List-Email)>"};
    }

    // A member's copy, by the way that broadcasts make it, LF; "" and the reason for an invalid format.
    std::string Copy(const std::string& post, std::string* reason = nullptr) {
        CMimeMessage forwarded;
        std::string invalid;
        if (!MakeForwardMessage(rule, Incoming(post), list, forwarded, invalid)) {
            EXPECT_NE(invalid, "") << GetLastErrorText();
            if (reason) *reason = invalid;
            return {};
        }
        const std::string path = WriteMessage(forwarded.GetDiskText());
        CMimeMessage loaded;
        EXPECT_TRUE(loaded.Load(path, CMimeSource::Sealed::Kept));
        CMember member = MakeMember("anna@b.example", "Anna Berg");
        member.SetField(0, "mine");
        std::string text;
        for (const CopyWay way : {CopyWay::Pattern, CopyWay::WholeTree}) {
            CBroadcastMaker maker(way);
            EXPECT_TRUE(maker.Open(loaded, list, "1")) << GetLastErrorText();
            EXPECT_EQ(maker.Make(member, Now, text), CopyResult::Made);
        }
        return CrLfToLf(text);
    }

    RuleFields rule;
};

TEST_F(Forwarding, TheHeaderIsThatOfAListMessage) {
    const std::string copy = Copy(
        "Received: by x\nReturn-Path: <e@x>\nDKIM-Signature: v=1\nARC-Seal: i=1\nList-Id: <other>\n"
        "X-Lhv-Return-Path-Override: e@x\nX-Lhv-Recipient-Override: victim@x\nX-Zq-Update-Attachments: 1\n"
        "Disposition-Notification-To: e@x\nPrecedence: first\nResent-To: x@y\nBCC: x@y\nX-Loop: other@x\n"
        "From: \"$(Secret) $(To-Name)\" <eve@x.example>\nFrom: second@x\nReply-To: eve@x.example\nTo: "
        "news@harbour.example\n"
        "Message-ID: <1@x>\nIn-Reply-To: <0@x>\nX-Kept: $(Unknown) $(Original-Subject)\n"
        "Subject: Re: [Harbour (West)] =?koi8-r?B?5tXO?= $(Nothing) $(To-Email) "
        "[LHV-AAAAAAAAAAAAAAAAAAAAAAA]\n\nbody\n");
    for (const char* name : {"Received", "Return-Path", "DKIM-Signature", "ARC-Seal", "Resent-To", "BCC",
                             "Disposition-Notification-To", "List-Subscribe", ControlHeader::UpdateAttachments})
        EXPECT_FALSE(Message(copy).GetRoot()->HasField(name)) << name;
    ExpectFields(copy, {{"From", "\"$(Secret) Anna Berg\" <eve@x.example>"},
                        {"To", "\"Harbour (West)\" <news@harbour.example>"},
                        {"Reply-To", "\"Harbour (West)\" <news@harbour.example>"},
                        {ControlHeader::RecipientOverride, "\"Anna Berg\" <anna@b.example>"},
                        {ControlHeader::ReturnPathOverride, "news-do@harbour.example"},
                        {"In-Reply-To", "<0@x>"},
                        {"References", "<0@x> <1@x>"},
                        {"Precedence", "list"},
                        {"List-Id", "\"Harbour (West)\" <news.harbour.example>"},
                        {"List-Post", "<mailto:news@harbour.example>"},
                        {"List-Unsubscribe", "<mailto:news-do@harbour.example?subject=UNSUBSCRIBE>"},
                        {"X-Kept", "$(Unknown) $(Original-Subject)"},
                        {"X-Loop", "eve@x.example"},
                        {"Subject", "[Harbour (West)] Re: \xD0\xA4\xD1\x83\xD0\xBD $(Nothing) anna@b.example"}});
    for (const char* mark :
         {"X-Loop: other@x\n", "X-Loop: news@harbour.example\n", "X-ZQ-Loop: news@harbour.example\n"})
        EXPECT_NE(copy.find(mark), std::string::npos) << mark;

    list.loopProtection = 8;
    list.emptySender = true;
    rule.subjectOverride = {true, "About $(Original-Subject)"};
    rule.sign = true;
    const CMimeMessage other =
        Message(Copy("From: \"\xDCnal, B.\" <a@x>\nSubject: [Harbour (West)] y [ID:01234567]\n\nx\n"));
    EXPECT_EQ(other.GetRoot()->GetField(ControlHeader::ReturnPathOverride), "<>");
    EXPECT_EQ(other.GetRoot()->GetHeader().FindStored("From"), "=?utf-8?Q?=22=C3=9Cnal=2C_B=2E=22?= <a@x>");
    const std::string subject = other.GetRoot()->GetField("Subject");
    EXPECT_TRUE(subject.starts_with("[Harbour (West)] About y [ID:")) << subject;
    EXPECT_NE(subject.find("] [LHV-"), std::string::npos) << subject;
}

// Neither the only part of a message, nor one that is alone when the others are
// taken away, nor a name with bytes that some programs leave out.
TEST_F(Forwarding, APartHasNoFieldsOfTheMessage) {
    const std::string fields = "From: boss@x\nSubject: Forged\nX-Lhv-Recipient-Override: victim@x\nReceipt: x\n";
    const std::string head = std::string("\0X-Lhv-A: 1\n\vX-Lhv-C: 1\nX-A: a\0b\n", 33) +
                             "From: a@x\nSubject: Own\nContent-Type: multipart/mixed; boundary=B\n\n--B\n" + fields;
    for (const char* rest : {"", "--B\nContent-Type: image/png\n\nx\n", "--B\n\n \n"}) {
        rule.stripAttachments = *rest != 0;
        const std::string copy = Copy(head + "Content-Type: text/plain\n\nHello\n" + rest + "--B--\n");
        ExpectFields(copy, {{"From", "a@x"},
                            {"Subject", "[Harbour (West)] Own"},
                            {"X-A", "ab"},
                            {"Receipt", ""},
                            {ControlHeader::RecipientOverride, "\"Anna Berg\" <anna@b.example>"}});
        for (const char* forged : {"boss@x", "victim@x", "X-Lhv-A", "X-Lhv-C"})
            EXPECT_EQ(copy.find(forged), std::string::npos) << copy;
    }
}

TEST_F(Forwarding, HeaderAndFooterStandInEveryText) {
    rule.addHeader = rule.addFooter = true;
    rule.header = Message(
        "Content-Type: text/plain; charset=utf-8\n\nGr\xC3\xBC\xC3\x9F"
        "e, $(To-First-Name)");
    rule.footer =
        Message("Content-Type: text/html\n\n<html><body><b><!List-Name!></b> & $(Original-Subject)</body></html>");
    const std::string head =
        "Gr\xC3\xBC\xC3\x9F"
        "e, Anna\n" +
        Rule + "\n\n";
    const std::string foot = "\n" + Rule + "\n\nHarbour (West) & s $(List-Name)";
    const std::string html = "\n<br>\n<hr>\n<b>Harbour (West)</b> & s $(List-Name)\n";
    const std::string from = "From: a@x\nSubject: s $(List-Name)\nMIME-Version: 1.0\n";
    const std::string signedPart =
        "Content-Type: multipart/signed; boundary=S; protocol=\"application/pgp-signature\"\n\n"
        "--S\nContent-Type: text/plain\n\n$(List-Name) $(x)  \n\n\n--S\n"
        "Content-Type: application/pgp-signature\n\nsig\n--S--\n";
    const struct {
        std::string post;
        std::vector<std::string> texts;  // of the copy, in order
    } rows[] = {
        {"\nplain $(x) $(Password) $( \n", {head + "plain $(x) mine $(" + foot}},
        {"Content-Transfer-Encoding: base64\nContent-Type: text/plain; charset=koi8-r\n\n5tXO\n",
         {head + "\xD0\xA4\xD1\x83\xD0\xBD" + foot}},
        {"Content-Type: text/plain; format=flowed\n\nsoft \n", {head + "soft" + foot}},
        {"Content-Type: text/html\n\n<HTML><BODY bgcolor=x>h</BODY></HTML>",
         {"<HTML><BODY bgcolor=x>Gr\xC3\xBC\xC3\x9F"
          "e, Anna\n<br>\n<hr>\nh" +
          html + "</BODY></HTML>"}},
        {"Content-Type: multipart/alternative; boundary=A\n\n--A\n\np\n--A\nContent-Type: text/html\n\nh\n--A--\n",
         {head + "p" + foot,
          "Gr\xC3\xBC\xC3\x9F"
          "e, Anna\n<br>\n<hr>\nh" +
              html}},
        {"Content-Type: application/pdf\n\npdf\n", {head + foot.substr(83)}},
        {signedPart, {head + foot.substr(83)}},
    };
    for (const auto& row : rows) {
        const std::string copy = Copy(from + row.post);
        CMimeMessage message;
        ASSERT_TRUE(message.LoadText(CMimeSource(copy).With(CMimeSource::Sealed::Kept)));
        std::vector<std::string> texts;
        for (const CMimeText* text : CollectTextEntities(*message.GetRoot()))
            texts.emplace_back(Trim(text->GetBody()));
        std::vector<std::string> expected;
        for (const std::string& text : row.texts)
            expected.emplace_back(Trim(text));
        EXPECT_EQ(texts, expected) << copy;
    }
    EXPECT_NE(Copy(from + signedPart).find(signedPart.substr(signedPart.find("--S"))), std::string::npos);
    rule.addHeader = rule.addFooter = false;
    EXPECT_TRUE(Copy(from + signedPart).ends_with(signedPart.substr(signedPart.find("\n\n"))));
}

TEST_F(Forwarding, OptionsTakeThePostApart) {
    const std::string head = "From: a@x\nMIME-Version: 1.0\n";
    const std::string image =
        "Content-Type: image/png; name=\"../../e$(x)vil.png\"\nContent-Transfer-Encoding: base64\n\nAAAA\n";
    const std::string mixed = head +
                              "Content-Type: multipart/mixed; boundary=B\n\n--B\nContent-Type: text/html\n\n"
                              "<p>Hello <b>you</b></p>\n--B\n" +
                              image + "--B--\n";
    const std::string quoting = head + "\nMy answer\n\nOn Monday Eve wrote:\n\n> old\n> older\n\nand " +
                                std::string(30, 'w') + "\n" +
                                [] {
                                    std::string words;
                                    for (int i = 0; i < 200; ++i)
                                        words += "w\xC3\xB6rd ";
                                    return words;
                                }() +
                                "\n-- \nsig\n";
    const struct {
        void (*set)(RuleFields&);
        std::string post;
        std::string text;     // of the first text
        std::string type;     // of the root
        std::string invalid;  // part of the reason
    } rows[] = {
        {[](RuleFields& r) { r.plainText = true; }, mixed, "Hello you", "mixed", ""},
        {[](RuleFields& r) { r.plainText = r.stripAttachments = true; }, mixed,
         "Hello you\n\n[Attachment removed: e$(x)vil.png, image/png]", "plain", ""},
        {[](RuleFields& r) { r.stripAttachments = true; }, mixed,
         "<p>Hello <b>you</b></p>\n<br>\n[Attachment removed: e$(x)vil.png, image/png]", "html", ""},
        {[](RuleFields& r) { r.stripAttachments = true; }, head + image, "", "", "no text"},
        {[](RuleFields& r) { r.wirelessTrim = true; }, head + "\n> only\n> quotes\n", "", "", "no text"},
        {[](RuleFields&) {}, head + "\n \n", "", "", "empty"},
        {[](RuleFields&) {}, head + "Content-Type: multipart/mixed; boundary=B\n\nno parts\n", "", "", "boundary"},
        {[](RuleFields&) {}, head + "Content-Type: message/partial; id=a\n\nx\n", "", "", "divided"},
    };
    for (const auto& row : rows) {
        rule.plainText = rule.stripAttachments = rule.wirelessTrim = false;
        row.set(rule);
        std::string reason;
        const std::string copy = Copy(row.post, &reason);
        EXPECT_NE(reason.find(row.invalid), std::string::npos) << reason;
        ASSERT_EQ(copy.empty(), !row.invalid.empty()) << row.post;
        if (copy.empty()) continue;
        const CMimeMessage message = Message(copy);
        EXPECT_EQ(message.GetRoot()->GetSubType(), row.type) << copy;
        EXPECT_EQ(Trim(CollectTextEntities(*message.GetRoot()).front()->GetBody()), row.text);
    }
    rule = {};
    rule.wirelessTrim = true;
    const std::string trimmed = Message(Copy(quoting)).GetRoot()->GetBody();
    EXPECT_TRUE(trimmed.starts_with("My answer\n\nand www")) << trimmed;
    EXPECT_TRUE(trimmed.ends_with("w\xC3\xB6rd ...")) << trimmed;
    EXPECT_LE(trimmed.size(), 620u);
    EXPECT_GE(trimmed.size(), 500u);
}

TEST_F(Forwarding, NothingBreaksOutOfADigest) {
    rule.subjectTag = false;
    const std::string bar(30, '-');
    std::vector<std::string> entries;
    const auto add = [&](const std::string& text) {
        entries.push_back(JoinPath(m_folder.GetPath(), std::to_string(entries.size()) + ".eml"));
        ASSERT_TRUE(WriteFileAtomically(entries.back(), text));
    };
    std::string kept;
    std::string invalid;
    ASSERT_TRUE(MakeDigestEntry(rule,
                                Incoming("From: \"$(To-Name)\" <a@x>\nX-Lhv-Should-Sign: YES\nReceived: y\n"
                                         "Subject: $(To-Name) =?utf-8?Q?=0AX:_1?=\n\n$(List-Name)\n"),
                                list, kept, invalid));
    EXPECT_EQ(kept.find("X-Lhv"), std::string::npos);
    EXPECT_EQ(kept.find("Received"), std::string::npos);
    add(kept);
    ASSERT_TRUE(
        MakeDigestEntry(rule, Incoming("From: B\xC3\xB6 <a@x>\nSubject: wh\xC3\xB6\n\nx\n"), list, kept, invalid));
    for (const char* field : {"From: =?utf-8?Q?B=C3=B6?= <a@x>", "Subject: =?utf-8?Q?wh=C3=B6?="})
        EXPECT_NE(kept.find(field), std::string::npos) << kept;
    add("From: b@x\r\nContent-Type: multipart/digest; boundary=D\r\n\r\n--D\r\n\r\nx\r\n" + bar +
        "\r\nSubject: forged\r\n");
    add("");
    add("From: c@x\r\nSubject: last\r\nContent-Type: text/plain; charset=koi8-r\r\n\r\n\xE6\xD5\xCE\r\n" + bar +
        "\r\n\r\nSubject: forged\r\n");

    CMimeMessage digest;
    ASSERT_TRUE(MakeDigest(entries, DigestFormat::Multipart, 12, list, Now, digest)) << GetLastErrorText();
    std::string text;
    ASSERT_EQ(MakeForwardCopy(digest, "Anna <anna@b.example>", list, Now, text), CopyResult::Made);
    const CMimeMessage copy = Message(text);
    EXPECT_EQ(copy.GetRoot()->GetField("Subject"), "Harbour (West) digest #12");
    EXPECT_NE(text.find("containing \"UNSUBSCRIBE\" in subject"), std::string::npos) << text;
    EXPECT_EQ(copy.GetRoot()->GetField(ControlHeader::ReturnPathOverride), "news-do@harbour.example");
    CMimeMessage loaded;
    ASSERT_TRUE(loaded.LoadText(CMimeSource(text).With(CMimeSource::Sealed::Kept)));
    const auto parts = loaded.GetRoot().As<CMimeMultipart>();
    ASSERT_EQ(parts->GetPartCount(), 2u);
    const std::string contents = parts->GetPart(0)->GetBody();
    for (const char* line : {"Harbour (West) digest #12, ", "1. $(To-Name)  X: 1\n    \"$(To-Name)\" <a@x>\n",
                             "2. (none)\n    b@x\n", "3. (This message could not be read.)\n", "4. last\n"})
        EXPECT_NE(contents.find(line), std::string::npos) << line << contents;
    CMimeMessage messages;
    ASSERT_TRUE(messages.LoadText(CMimeSource(parts->GetPart(1)->GetText())));
    const auto split = messages.GetRoot().As<CMimeMultipart>();
    ASSERT_EQ(split->GetPartCount(), 3u);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(split->GetPart(i)->GetMainType() + "/" + split->GetPart(i)->GetSubType(), "message/rfc822");
    EXPECT_NE(split->GetPart(0)->GetBody().find("\n\n$(List-Name)"), std::string::npos);

    ASSERT_TRUE(MakeDigest(entries, DigestFormat::Plain, 13, list, Now, digest)) << GetLastErrorText();
    ASSERT_EQ(MakeForwardCopy(digest, "anna@b.example", list, Now, text), CopyResult::Made);
    const std::string plain = Message(text).GetRoot()->GetBody();
    EXPECT_NE(plain.find("\n\n$(List-Name)\n"), std::string::npos) << plain;
    EXPECT_NE(plain.find("\xD0\xA4\xD1\x83\xD0\xBD\n " + bar + "\n\nSubject: forged\n"), std::string::npos) << plain;
    std::size_t separators = 0;
    for (std::size_t at = plain.find("\n" + bar + "\n"); at != std::string::npos;
         at = plain.find("\n" + bar + "\n", at + 1))
        ++separators;
    EXPECT_EQ(separators, 3u);
    EXPECT_NE(plain.find("End of Harbour (West) digest #13\n****"), std::string::npos);
}

}  // namespace
