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
const std::string Words =
    "Subject: failure notice\n\nI wasn't able to deliver your message.\n\n<ann@example.com>:\n"
    "192.0.2.1 said: 550 5.1.1 User unknown\n";

std::string Of(const std::string& address, const std::string& action, const std::string& said) {
    return "Final-Recipient: rfc822; " + address + "\nAction: " + action + "\nStatus: " + said.substr(4, 5) +
           "\nDiagnostic-Code: smtp; " + said + "\n\n";
}

std::string Feedback(const std::string& type) {
    return Daemon +
           "Content-Type: multipart/report; report-type=feedback-report; boundary=b\n\n--b\nContent-Type: "
           "message/feedback-report\n\nFeedback-Type: " +
           type + "\nOriginal-Rcpt-To: <ann@example.com>\n\n--b--\n";
}

TEST(BounceClassifier, WhoSaysWhat) {
    const struct {
        std::string text;
        const char* expected;
    } rows[] = {
        {Daemon + Words, "bounce hard:ann@example.com"},
        {Person + Words, "ordinary"},
        // Forwarded, attached and posted ones.
        {Person + "Content-Type: multipart/mixed; boundary=a\n\n--a\n\nLook.\n--a\nContent-Type: message/rfc822\n\n" +
             Daemon + Report + Of("ann@example.com", "failed", "550 5.1.1 unknown") + "--b--\n--a--\n",
         "ordinary"},
        {Person +
             "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nUndeliverable?\n--b\nContent-Type: "
             "message/delivery-status\n\n" +
             Of("ann@example.com", "failed", "550 5.1.1 unknown") + "--b--\n",
         "ordinary"},
        {Daemon + "List-Id: <other.example.org>\n" + Report + Of("ann@example.com", "failed", "550 5.1.1 unknown"),
         "ordinary"},
        {"From: Postmaster <postmaster@example.com>\nTo: list@example.org\nSubject: Meeting\n\n"
         "Monday: why spam was rejected, and what user unknown means.\n",
         "ordinary"},
        {Daemon + Report + Of("ann@example.com", "failed", "550 5.1.1 mailbox is over quota") +
             Of("bob@example.com", "failed", "550 5.7.1 no such user here"),
         "bounce soft:ann@example.com hard:bob@example.com"},
        {Daemon + Report + Of("ann@example.com", "failed", "450 4.1.1 user unknown"), "bounce soft:ann@example.com"},
        {Daemon + Report + Of("ann@example.com", "delayed", "450 4.4.1 ") +
             Of("bob@example.com", "failed", "550 5.7.1 "),
         "bounce blocked:bob@example.com"},
        {Daemon + Report + Of("ann@example.com", "delayed", "450 4.4.1 user unknown"), "delay"},
        {Daemon + Report + "Final-Recipient: rfc822; ann@example.com\nStatus: 4.2.2\nWill-Retry-Until: tomorrow\n",
         "delay"},
        {Daemon + Report + Of("ann@example.com", "relayed", "250 2.0.0 "), "success"},
        {Daemon + Report + Of("list@example.org", "failed", "550 5.1.1 user unknown"), "bounce"},
        {"Return-Path: <>\nFrom: ann@example.com\nAuto-Submitted: auto-replied\nSubject: Out of office: your mail\n\n"
         "My mailbox is full and I do not exist here. 550 user unknown.\n",
         "vacation"},
        {Daemon + "\nWARNING ONLY. It could not be delivered for 4 hours.\n<ann@example.com>: 450 try later\n",
         "delay"},
        {Daemon + "Subject: Delivery report\n\nIt was successfully delivered to <ann@example.com>; other systems may "
                  "still report delivery errors.\n",
         "success"},
        {"Return-Path: <>\nFrom: shop@example.com\nSubject: Your parcel could not be delivered\n\nReturned to "
         "sender.\n",
         "ordinary"},
        {Daemon + "Subject: Hiba\n\nann@example.com: ismeretlen.\n", "bounce hard:ann@example.com"},
        {Daemon + "Subject: Trouble\n\nMail to ann@example.com could not be delivered yet: 421 busy.\n", "delay"},
        {"Return-Path: <>\nFrom: noreply@example.com\nSubject: Invoice\n\nRejected for ann@example.com: 550 5.1.1\n",
         "ordinary"},
        {Daemon + "Subject: Delivery failure (ann@example.com)\n\nInvalid user\n", "bounce hard:ann@example.com"},
        {Daemon + "Subject: Failure\n\nNot delivered: (ann@example.com:blocked)\n", "bounce blocked:ann@example.com"},
        {"Return-Path: <>\nFrom: postmaster@example.com\nSubject: Quarantine\n\nBlocked as spam:\n\n  eve@example.com  "
         "Cheap pills\n",
         "ordinary"},
        {Daemon + Words + "\n_____\nnews mailing list\nnews@example.net\nTo unsubscribe: news-leave@example.net\n",
         "bounce hard:ann@example.com"},
        // Bare line ends within base64, and no charset.
        {Daemon + "Subject: Unzustellbar\nContent-Transfer-Encoding: base64\n\n" +
             "TmljaHQgenVnZXN0ZWxsdDoNDWFubkBleGFtcGxlLmNvbQ0NUG9zdGZhY2gg/GJlcmb8bGx0Lg0=\n",
         "bounce soft:ann@example.com"},
        {Daemon + "Subject: Mail\nContent-Type: text/plain; charset=koi8-r\n\nann@example.com\n"
                  "\xEE\xC5 \xC4\xCF\xD3\xD4\xC1\xD7\xCC\xC5\xCE\xCF: \xD3\xD0\xC1\xCD\n",
         "bounce blocked:ann@example.com"},
        // Written without blanks, the address in the middle and the line broken in a word.
        {Daemon + "Subject: Mail\n\n"
                  "\u9000\u4FE1\uFF1A\u5730\u5740\uFF08ann@example.com\uFF09\u4E0D\u5B58\n\u5728\u3002\n",
         "bounce hard:ann@example.com"},
        // Further attempts in words of nobody's table; those that were made, or are the reader's, are none.
        {Daemon + "Subject: Failure\n\nann@example.com: not reached. Our server will make several more tries.\n",
         "delay"},
        {Daemon +
             "Subject: Failure\n\nann@example.com: host down. The mail stays in our spool, no need to send it again.\n",
         "delay"},
        {Daemon + "Subject: Failure\n\nann@example.com: after three further attempts it could not be delivered.\n",
         "bounce soft:ann@example.com"},
        {Daemon +
             "Subject: Undeliverable\n\nann@example.com: mailbox full. If it is still full please try sending later.\n",
         "bounce soft:ann@example.com"},
        {Daemon + "Subject: Failure\n\nThe mailbox of ann@example.com has since then been closed down.\n",
         "bounce hard:ann@example.com"},
        {Daemon + "Subject: Failure\n\nann@example.com: 550 no such user. Your next attempt may succeed.\n",
         "bounce hard:ann@example.com"},
        {Daemon + "Subject: Undeliverable: Spam digest 5\n\nann@example.com: no such user\n",
         "bounce hard:ann@example.com"},
        {Daemon + "Subject: Spam digest\n\nRejected and not delivered to you:\n  eve@example.com  Hello\n", "ordinary"},
        {Daemon + "Subject: Undeliverable: Orders on hold\n\nann@example.com: no such user\n",
         "bounce hard:ann@example.com"},
        {Daemon + "Subject: Suspending delivery\n\nann@example.com: no such user\n", "bounce hard:ann@example.com"},
        {Daemon + "\nann@example.com: server unreachable\n", "ordinary"},
        {"Return-Path: <postmaster@example.com>\nFrom: postmaster@example.com\nSubject: Undeliverable in May\n\n"
         "Unknown users: 7, mailbox full: 5.\n",
         "ordinary"},
        // The subject in a set of its own, its coding in a small letter, a character divided between two words.
        {Daemon + "Subject: =?koi8-r?q?=EE=C5_=C4=CF=D3=D4=C1=D7=CC=C5=CE=CF?=\n\nann@example.com\n",
         "bounce soft:ann@example.com"},
        {Daemon + "Subject: =?utf-8?b?6YCA5A==?= =?utf-8?b?v6E=?=\n\nann@example.com\n", "bounce soft:ann@example.com"},
        // Greek and Vietnamese, accents in letters of their own and behind them.
        {Daemon + "Subject: \u0391\u03C0\u03BF\u03C4\u03C5\u03C7\u03AF\u03B1 \u03C0\u03B1\u03C1\u03AC\u03B4\u03BF\u03C3"
                  "\u03B7\u03C2\n\nann@example.com: \u0394\u0395\u039D \u03C5\u03C0\u03AC\u03C1\u03C7\u03B5\u03B9\n",
         "bounce hard:ann@example.com"},
        {Daemon + "Subject: Failure\n\nann@example.com kh\u00F4ng t\u00ECm th\u1EA5y\n", "bounce hard:ann@example.com"},
        {Daemon + "Subject: Failure\n\nann@example.com kho\u0302ng ti\u0300m tha\u0302\u0301y\n",
         "bounce hard:ann@example.com"},
        {Feedback("auth-failure"), "receipt"},
        {Feedback("abuse"), "abuse report blocked:ann@example.com"},
    };
    for (const auto& row : rows)
        for (const std::string& text : {row.text, LfToCrLf(row.text)})
            EXPECT_EQ(InShort(Classify(text, {"list@example.org"})), row.expected) << text;
}

// The same words with and without accents, in capitals, behind a general code.
TEST(BounceClassifier, RepliesInManyLanguages) {
    const struct {
        const char *text, *expected;
    } rows[] = {
        {"550 Bo\u00EEte du destinataire PLEINE", "soft"},
        {"550 Buz\u00F3n lleno", "soft"},
        {"550 Skrzynka pe\u0142na", "soft"},
        {"550 UTENTE SCONOSCIUTO", "hard"},
        {"550 Gebruiker onbekend", "hard"},
        {"550 \u041D\u0415 \u041D\u0410\u0419\u0414\u0415\u041D", "hard"},
        {"550 Als Spam abgelehnt", "blocked"},
        {"550 Helo command rejected: Host not found", "blocked"},
        {"554 Connection refused, see our list", "blocked"},
        {"550 5.2.1 permanently deactivated", "hard"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(BounceClassName(ClassifyReply(550, "", row.text + 4)), row.expected) << row.text;
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
    for (const std::string piece : {"<a@b.c> ", "a@b.c:\n", "@", "550 ", "5.1.1 ", "user unknown ",
                                    "Final-Recipient: x\n\n", "\"", "will not ", "next "}) {
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
