#include "engine/bounces/bounceclassifier.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "mime/mimemessage.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t Now = 1795273980;

CBounceReport Classify(std::string_view text, const std::vector<std::string>& own = {}) {
    CMimeMessage message;
    EXPECT_TRUE(message.LoadText(text));
    return ClassifyMessage(message, own);
}

// kind, class and addresses in one line.
std::string InShort(const CBounceReport& report) {
    std::string line(NoticeKindName(report.kind));
    for (const CBouncedRecipient& one : report.recipients)
        line += " " + std::string(BounceClassName(one.bounceClass)) + ":" + one.address;
    return line;
}

const std::string Daemon =
    "Return-Path: <>\nFrom: Mail Delivery System <mailer-daemon@mx.example.net>\nTo: list@example.org\n";
const std::string Person = "Return-Path: <eve@example.com>\nFrom: Eve <eve@example.com>\nTo: list@example.org\n";
const std::string Report =
    "Content-Type: multipart/report; report-type=delivery-status; boundary=b\n\n--b\n\nText.\n"
    "--b\nContent-Type: message/delivery-status\n\nReporting-MTA: dns; mx.example.net\n\n";

TEST(BounceClassifier, WhoSaysWhat) {
    const struct {
        const char* name;
        std::string text;
        const char* expected;
    } rows[] = {
        {"words of a mail system",
         Daemon + "Subject: failure notice\n\nI wasn't able to deliver your message.\n\n<ann@example.com>:\n"
                  "192.0.2.1 said: 550 5.1.1 User unknown\n",
         "bounce hard:ann@example.com"},
        {"the same words of a member",
         Person + "Subject: failure notice\n\nI wasn't able to deliver my message.\n\n<ann@example.com>:\n"
                  "192.0.2.1 said: 550 5.1.1 User unknown\n",
         "ordinary"},
        {"a bounce that a member forwards",
         Person +
             "Subject: Fwd: Undelivered mail\nContent-Type: multipart/mixed; boundary=a\n\n--a\n\nLook at this.\n"
             "--a\nContent-Type: message/rfc822\n\n" +
             Daemon + Report +
             "Final-Recipient: rfc822; ann@example.com\nAction: failed\nStatus: 5.1.1\n\n--b--\n--a--\n",
         "ordinary"},
        {"a report that a member attaches",
         Person + "Subject: What is this?\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nUndeliverable?\n--b\n"
                  "Content-Type: message/delivery-status\n\nFinal-Recipient: rfc822; ann@example.com\nAction: failed\n"
                  "Status: 5.1.1\n\n--b--\n",
         "ordinary"},
        {"a postmaster who writes himself",
         "From: Postmaster <postmaster@example.com>\nTo: list@example.org\nSubject: Meeting\n\n"
         "Monday: why spam was rejected, and what user unknown means.\n",
         "ordinary"},
        {"a bounce that a list has posted",
         Daemon + "List-Id: <other.example.org>\n" + Report +
             "Final-Recipient: rfc822; ann@example.com\n"
             "Action: failed\nStatus: 5.1.1\n\n--b--\n",
         "ordinary"},
        {"words win over the code",
         Daemon + Report +
             "Final-Recipient: rfc822; ann@example.com\nAction: failed\nStatus: 5.1.1\n"
             "Diagnostic-Code: smtp; 550 5.1.1 mailbox is over quota\n\n"
             "Final-Recipient: rfc822; bob@example.com\nAction: failed\nStatus: 5.7.1\n"
             "Diagnostic-Code: smtp; 550 5.7.1 no such user here\n\n--b--\n",
         "bounce soft:ann@example.com hard:bob@example.com"},
        {"a temporary code is never hard",
         Daemon + Report +
             "Final-Recipient: rfc822; ann@example.com\nAction: failed\nStatus: 4.1.1\n"
             "Diagnostic-Code: smtp; 450 4.1.1 unverified address: user unknown\n\n--b--\n",
         "bounce soft:ann@example.com"},
        {"one delayed, one failed",
         Daemon + Report +
             "Final-Recipient: rfc822; ann@example.com\nAction: delayed\nStatus: 4.4.1\n\n"
             "Final-Recipient: rfc822; bob@example.com\nAction: failed\nStatus: 5.7.1\n\n--b--\n",
         "bounce blocked:bob@example.com"},
        {"delayed",
         Daemon + Report + "Final-Recipient: rfc822; ann@example.com\nAction: delayed\nStatus: 4.4.1\n\n--b--\n",
         "delay"},
        {"delivered",
         Daemon + Report + "Final-Recipient: rfc822; ann@example.com\nAction: relayed\nStatus: 2.0.0\n\n--b--\n",
         "success"},
        {"away, with an empty return path",
         "Return-Path: <>\nFrom: ann@example.com\nTo: list@example.org\nAuto-Submitted: auto-replied\n"
         "Subject: Out of office: your mail\n\nMy mailbox is full and I do not exist here until Monday. 550 user "
         "unknown.\n",
         "vacation"},
        {"a report of a failed check is no complaint",
         Daemon + "Content-Type: multipart/report; report-type=feedback-report; boundary=b\n\n--b\n"
                  "Content-Type: message/feedback-report\n\nFeedback-Type: auth-failure\n"
                  "Original-Rcpt-To: ann@example.com\n\n--b--\n",
         "receipt"},
        {"a complaint",
         Daemon + "Content-Type: multipart/report; report-type=feedback-report; boundary=b\n\n--b\n"
                  "Content-Type: message/feedback-report\n\nFeedback-Type: abuse\n"
                  "Original-Rcpt-To: <ann@example.com>\n\n--b--\n",
         "abuse report blocked:ann@example.com"},
        {"the list's own address never bounces",
         Daemon + Report + "Final-Recipient: rfc822; list@example.org\nAction: failed\nStatus: 5.1.1\n\n--b--\n",
         "bounce"},
    };
    for (const auto& row : rows)
        for (const std::string& text : {row.text, LfToCrLf(row.text)})
            EXPECT_EQ(InShort(Classify(text, {"list@example.org"})), row.expected) << row.name;
}

TEST(BounceClassifier, MadeNoticesAreUnderstood) {
    const struct {
        int code;
        const char *status, *text, *address;
    } rows[] = {
        {550, "5.1.1", "550 5.1.1 <ann@example.com>: User unknown", "ann@example.com"},
        {552, "5.2.2", "552 5.2.2 Over quota", "ann@example.com"},
        {554, "5.7.1", "554 5.7.1 Blocked using dnsbl.example.net", "ann@example.com"},
        {550, "5.1.1", "550 5.1.1 unbekannt: gr\xC3\xBC\xC3\x9F", "gr\xC3\xBC\xC3\x9F@example.com"},
        {421, "4.7.0", "421 4.7.0 try again later", "ann@example.com"},
        {550, "5.1.1", "550 5.1.1 gone\r\n\r\n--b\r\nAction: delivered\n.\nFinal-Recipient: rfc822; eve@example.com",
         "ann@example.com"},
    };
    for (const auto& row : rows) {
        CBouncedRecipient recipient;
        recipient.address = row.address;
        recipient.original = "other@example.com";
        recipient.status = row.status;
        recipient.replyCode = row.code;
        recipient.bounceClass = ClassifyReply(row.code, row.status, row.text);
        const std::string notice =
            MakeDeliveryNotice("list@example.org", recipient, "mx.example.com", row.text, "<1@example.org>", Now);
        EXPECT_EQ(notice.find('\n'), notice.find("\r\n") + 1);
        const CBounceReport report = Classify(notice, {"list@example.org"});
        EXPECT_EQ(report.kind, NoticeKind::Bounce) << row.text;
        ASSERT_EQ(report.recipients.size(), 1u) << row.text;
        const CBouncedRecipient& got = report.recipients.front();
        EXPECT_EQ(got.address, recipient.address);
        EXPECT_EQ(got.original, recipient.original);
        EXPECT_EQ(got.status, recipient.status);
        EXPECT_EQ(got.replyCode, recipient.replyCode);
        EXPECT_EQ(got.bounceClass, recipient.bounceClass) << row.text;
    }
}

// Texts made to cost time: the work stays linear.
TEST(BounceClassifier, LongTextsAreReadInLittleTime) {
    for (const std::string piece :
         {"<a@b.c> ", "a@b.c:\n", "@", "550 ", "5.1.1 ", "user unknown ", "Final-Recipient: x\n\n", "\""}) {
        std::string body;
        while (body.size() < 4'000'000)
            body += piece;
        const auto begin = std::chrono::steady_clock::now();
        Classify(Daemon + "Subject: failure notice\n\ncould not be delivered\n" + body);
        Classify(Daemon + Report + body + "\n--b--\n");
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << piece;
    }
}

}  // namespace
