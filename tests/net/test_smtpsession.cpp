// Messages through sessions: what is said, and what becomes of whom.

#include "tests/net/sessionfixture.h"

using namespace Net;
using namespace SmtpScript;
using namespace std::chrono_literals;

namespace {

using SmtpSession = CSessionFixture;
const std::string Greeting = "220 tiny.example\r\n";
const std::string Pipelines = "250-tiny.example\r\n250 PIPELINING\r\n";

}  // namespace

TEST_F(SmtpSession, SaysTheSameWithAndWithoutPipelining) {
    for (const bool pipelines : {true, false}) {
        CScript script;
        if (!pipelines) script.capabilities.erase(script.capabilities.begin());
        CScriptedServer server(script);
        ASSERT_TRUE(Open(server.GetPort())) << m_session.GetFailure().text;
        EXPECT_EQ(m_session.GetExtendedOptions(), 4u);
        m_session.NeverNotify(true);
        EXPECT_TRUE(Send({"a@b", "c@d"}));
        EXPECT_TRUE(m_session.Reset());
        EXPECT_TRUE(Send({"e@f"}));
        EXPECT_EQ(m_result.recipients[0].enhanced + m_result.recipients[0].text, "2.0.0taken");
        m_session.Close();
        const std::string mail = "MAIL FROM:<list@example.org> SIZE=17 BODY=8BITMIME\n";
        EXPECT_EQ(Commands(server), "EHLO client.example\n" + mail +
                                        "RCPT TO:<a@b> NOTIFY=NEVER\nRCPT TO:<c@d> NOTIFY=NEVER\nDATA\nRSET\n" + mail +
                                        "RCPT TO:<e@f> NOTIFY=NEVER\nDATA\nQUIT\n");
        ASSERT_EQ(server.GetMessages().size(), 2u);
        EXPECT_EQ(server.GetMessages()[1].text, "Subject: x\r\n\r\n.dot\r\n");
    }
}

// The peer answers only when the whole group has come.
TEST_F(SmtpSession, ARepliedGroupSettlesEachRecipient) {
    const std::string Body = "Subject: x\r\n\r\n..dot\r\n.\r\n";
    const struct {
        std::string replies, last;  // to the group, to the data
        std::string results;
        bool isOpen, hasBody;
        FailureKind kind;
        std::string command;
    } Cases[] = {
        {"250|250|550 5.1.1 no|354", "250 ok", "A250 R550", true, true, FailureKind::None, "DATA"},
        {"250|451|250|354", "452 full", "D451 D452", true, true, FailureKind::Reply, "DATA"},
        {"250|250|250|354", "554 spam", "R554 R554", true, true, FailureKind::Reply, "DATA"},
        {"250|250|452|354", "250 ok", "A250 D452", true, true, FailureKind::None, "DATA"},
        {"250|250|552 5.5.3 many|354", "250 ok", "A250 D552", true, true, FailureKind::None, "DATA"},
        {"250|250|550|451", "", "D451 R550", true, false, FailureKind::Reply, "DATA"},
        {"451 4.7.1 grey|503|503|503", "", "D451 D451", true, false, FailureKind::Reply,
         "MAIL FROM:<list@example.org>"},
        {"550|250|250|354", "", "R550 R550", false, false, FailureKind::Reply, "MAIL FROM:<list@example.org>"},
        {"250|550|451|503", "", "R550 D451", true, false, FailureKind::Reply, "RCPT TO:<c@d>"},
        {"250|550|551|354", "554 nobody", "R550 R551", true, false, FailureKind::Reply, "RCPT TO:<c@d>"},
        {"250|250|421 bye|503", "", "D421 D421", false, false, FailureKind::Reply, "RCPT TO:<c@d>"},
        {"250|250|250|250", "", "D0 D0", false, false, FailureKind::Protocol, "DATA"},
        {"250|250|250|354|250 too early", "", "D0 D0", false, false, FailureKind::Protocol, "DATA"},
        {"250|250|250|what", "", "D0 D0", false, false, FailureKind::Protocol, "RCPT TO:<c@d>"},
    };
    for (const auto& test : Cases) {
        std::string replies;
        for (const char c : test.replies + "|")
            replies += c == '|' ? std::string("\r\n") : std::string(1, c);
        CTinyPeer::Script script{{"", Greeting}, {"EHLO", Pipelines}, {"DATA\r\n", replies}};
        if (!test.last.empty()) script.push_back({".\r\n", test.last + "\r\n"});
        script.push_back({"QUIT\r\n", "221 bye\r\n"});
        CTinyPeer peer(script);
        ASSERT_TRUE(Open(peer.GetPort())) << test.replies;
        EXPECT_EQ(Send({"a@b", "c@d"}), test.kind == FailureKind::None) << test.replies;
        EXPECT_EQ(Results(), test.results) << test.replies;
        EXPECT_EQ(m_session.GetFailure().kind, test.kind) << test.replies << m_session.GetFailure().text;
        EXPECT_EQ(m_session.GetLastCommand(), test.command) << test.replies;
        EXPECT_EQ(m_session.IsOpen(), test.isOpen) << test.replies;
        EXPECT_EQ(m_result.isHostUnavailable, test.replies.find("421") != std::string::npos) << test.replies;
        EXPECT_FALSE(m_result.isSessionDead || m_result.mayBeTaken) << test.replies;
        m_session.Close();
    }
}

// Else a stop at that moment would leave nobody knowing whether it has it.
TEST_F(SmtpSession, WhoeverMayHaveAllOfAMessageIsWaitedFor) {
    constexpr std::size_t Messages = 300;
    CTinyPeer::Script script{{"", Greeting}, {"EHLO", Pipelines}};
    for (std::size_t i = 0; i < Messages; ++i)
        script.insert(script.end(), {{"DATA\r\n", "250\r\n250\r\n354\r\n"}, {"\r\n.\r\n", "250\r\n"}});
    script.push_back({"QUIT\r\n", "221\r\n"});
    std::size_t due = 0;
    std::size_t dueEarly = 0;
    CTinyPeer peer(script, [&](const std::string& what) {
        if (m_session.IsAnswerDue()) ++(what == "\r\n.\r\n" ? due : dueEarly);
    });
    ASSERT_TRUE(Open(peer.GetPort()));
    for (std::size_t i = 0; i < Messages; ++i)
        ASSERT_TRUE(Send({"a@b"}));
    EXPECT_FALSE(m_session.IsAnswerDue());
    m_session.Close();
    peer.GetReceived();
    EXPECT_EQ(due, Messages);
    EXPECT_EQ(dueEarly, 0u);
}

TEST_F(SmtpSession, ManyRecipientsGoInSeveralGroups) {
    std::vector<std::string> recipients;
    for (int i = 0; i < 400; ++i)
        recipients.push_back("user" + std::to_string(i) + "@example.org");
    CScriptedServer server;
    ASSERT_TRUE(Open(server.GetPort()));
    EXPECT_TRUE(Send(recipients));
    ASSERT_EQ(server.GetMessages().size(), 1u);
    EXPECT_EQ(server.GetMessages()[0].recipients.size(), 400u);

    CScript full;
    full.turns = {{.at = Step::Rcpt, .reply = "452 4.5.3 too many", .onlyFor = "user120@"}};
    server.SetScript(full);
    ASSERT_TRUE(Open(server.GetPort()));
    EXPECT_TRUE(Send(recipients));
    const std::size_t taken = server.GetMessages()[1].recipients.size();
    for (std::size_t i = 0; i < 400; ++i) {
        const bool isTaken = i != 120 && i < taken + 1;
        EXPECT_EQ(m_result.recipients[i].state, isTaken ? RecipientState::Accepted : RecipientState::Deferred) << i;
        EXPECT_EQ(m_result.recipients[i].code, isTaken ? 250 : 452) << i;
    }
    EXPECT_LT(taken, 300u);
}

TEST_F(SmtpSession, WhatDoesNotSuitTheServerIsNotTriedOnIt) {
    CScript script;
    script.capabilities = {"PIPELINING", "SIZE 1000"};
    CScriptedServer server(script);
    ASSERT_TRUE(Open(server.GetPort()));
    EXPECT_TRUE(Send({"a b@c", "a@b", "gr\xc3\xbc\xc3\x9f@b", "c@d\r\nRSET"}));
    EXPECT_EQ(Results(), "R0 A250 R0 R0");
    EXPECT_EQ(m_result.recipients[0].enhanced + m_result.recipients[2].enhanced, "5.1.35.6.7");

    m_message.size = 1001;
    EXPECT_FALSE(Send({"a@b"}));
    EXPECT_EQ(Results() + m_result.recipients[0].enhanced, "R05.3.4");
    EXPECT_NE(m_session.GetFailure().text.find("1001 octets"), std::string::npos) << m_session.GetFailure().text;
    m_message.size = 0;
    m_message.envelopeSender = "list@example.org>\r\nRSET";
    EXPECT_FALSE(Send({"a@b"}));
    EXPECT_EQ(Results() + m_result.recipients[0].enhanced, "R05.1.7");
    m_message.envelopeSender = "";
    m_message.file += "gone";
    EXPECT_FALSE(Send({"a@b"}));
    EXPECT_EQ(Results(), "D0");
    EXPECT_EQ(m_session.GetFailure().kind, FailureKind::Local);
    EXPECT_TRUE(m_session.IsOpen());
    EXPECT_EQ(Commands(server), "EHLO client.example\nMAIL FROM:<list@example.org> SIZE=17\nRCPT TO:<a@b>\nDATA\n");
}
