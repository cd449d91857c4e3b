// POP3 against Dovecot, and against peers that do what no good server does.

#include <gtest/gtest.h>

#include "net/pop3grammar.h"
#include "net/pop3session.h"
#include "tests/net/tinypeer.h"
#include "tests/servers/popserver.h"
#include "tests/utility/repeat.h"

using namespace Net;
using namespace std::chrono_literals;

namespace {

const std::string Dots = "Subject: dots\r\n\r\n.\r\n..\r\n.one\r\ntwo.\r\n...\r\n\r\n.\r\n";
const std::string Long =
    "Subject: long\r\n\r\n" + Repeat("0123456789", 30000) + "\r\n." + Repeat("y", 200000) + "\r\nlast\r\n";

class Pop3 : public testing::Test {
protected:
    void SetUp() override {
        if (!m_server.IsInstalled()) GTEST_SKIP() << m_server.WhyNot();
        m_server.AddUser("alice", "alice pw");
        m_server.AddMessage("alice", "1.dots", Dots);
        m_server.AddMessage("alice", "2.long", Long);
        m_server.AddMessage("alice", "3.short", "Subject: short\r\n\r\none\r\ntwo\r\nthree\r\n");
        ASSERT_TRUE(m_server.Start()) << m_server.WhyNot();
        m_options.connect.host = "localhost";
        m_options.connect.port = m_server.GetPort();
        m_options.connect.tlsMode = TlsMode::None;
        m_options.traceFile = m_server.GetFolder() / "trace";
    }
    bool LogIn() { return m_session.Open(m_options) && m_session.Login(Pop3Login::Apop, "alice", "alice pw"); }
    TestServers::CPopServer m_server;
    Pop3Options m_options;
    CPop3Session m_session;
};

CPop3Session::Sink StoreIn(std::string& text) {
    return [&text](std::string_view block) {
        text += block;
        return true;
    };
}

}  // namespace

TEST_F(Pop3, LoggingIn) {
    using enum FailureKind;
    const std::string& ca = m_server.GetCertificate();
    enum Security { Plain, Unverified, Verified };
    const struct {
        TlsMode mode;
        std::string caFile;
        const char* host;
        Pop3Login method;
        const char* password;
        FailureKind failure;
        Security security;
    } rows[] = {
        {TlsMode::None, "", "localhost", Pop3Login::Apop, "alice pw", None, Plain},
        {TlsMode::None, "", "127.0.0.1", Pop3Login::UserPass, "alice pw", None, Plain},
        {TlsMode::Opportunistic, "", "localhost", Pop3Login::Apop, "alice pw", None, Unverified},
        {TlsMode::Required, ca, "localhost", Pop3Login::Apop, "alice pw", None, Verified},
        {TlsMode::Implicit, ca, "127.0.0.1", Pop3Login::UserPass, "alice pw", None, Verified},
        {TlsMode::Required, "", "localhost", Pop3Login::Apop, "alice pw", Certificate, Plain},
        {TlsMode::None, "", "localhost", Pop3Login::UserPass, "alice PW", Reply, Plain},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.host) + ' ' + std::to_string(&row - rows));
        m_options.connect.host = row.host;
        m_options.connect.tlsMode = row.mode;
        m_options.connect.tlsCaFile = row.caFile;
        m_options.connect.port = row.mode == TlsMode::Implicit ? m_server.GetTlsPort() : m_server.GetPort();
        const bool isIn = m_session.Open(m_options) && m_session.Login(row.method, "alice", row.password);
        EXPECT_EQ(isIn, row.failure == None);
        EXPECT_EQ(m_session.GetFailure().kind, row.failure) << m_session.GetFailure().text;
        EXPECT_EQ(m_session.IsOpen(), isIn || row.failure == Reply);
        EXPECT_EQ(m_session.GetConnection().IsEncrypted(), row.security != Plain);
        EXPECT_EQ(isIn && m_session.GetConnection().IsCertificateVerified(), row.security == Verified);
    }
    EXPECT_TRUE(m_session.GetLastReply().starts_with("-ERR")) << m_session.GetLastReply();
    const std::string trace = Get(m_options.traceFile);
    EXPECT_NE(trace.find("PASS [password]"), std::string::npos) << trace;
    EXPECT_EQ(trace.find("alice pw"), std::string::npos) << trace;
}

TEST_F(Pop3, MessagesComeAsTheyAre) {
    ASSERT_TRUE(LogIn()) << m_session.GetFailure().text;
    std::uint32_t count = 0;
    std::uint64_t octets = 0;
    CPop3Listing messages;
    ASSERT_TRUE(m_session.GetStatus(count, octets) && m_session.GetMessages(messages) && m_session.GetUids(messages))
        << m_session.GetFailure().text;
    ASSERT_EQ(messages.GetCount(), 3u);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(messages.Get(0).size + messages.Get(1).size + messages.Get(2).size, octets);
    EXPECT_EQ(messages.Get(1).size, Long.size());
    EXPECT_TRUE(!messages.Get(0).uid.empty() && messages.Get(0).uid != messages.Get(1).uid);

    std::string text;
    ASSERT_TRUE(m_session.Retrieve(1, Dots.size(), StoreIn(text))) << m_session.GetFailure().text;
    EXPECT_EQ(text, Dots);
    text.clear();
    ASSERT_TRUE(m_session.Retrieve(2, Long.size(), StoreIn(text))) << m_session.GetFailure().text;
    EXPECT_TRUE(text == Long) << text.size();
    text.clear();
    ASSERT_TRUE(m_session.RetrieveTop(3, 2, 1000, StoreIn(text))) << m_session.GetFailure().text;
    EXPECT_EQ(text, "Subject: short\r\n\r\none\r\ntwo\r\n");
    EXPECT_FALSE(m_session.Retrieve(4, 1000, StoreIn(text)));
    EXPECT_EQ(m_session.GetFailure().kind, FailureKind::Reply);
    EXPECT_FALSE(m_session.Retrieve(2, Long.size() - 1, StoreIn(text)));
    EXPECT_EQ(m_session.GetFailure().kind, FailureKind::Protocol);
    EXPECT_FALSE(m_session.IsOpen());
}

TEST_F(Pop3, OnlyQuitDeletes) {
    {
        CPop3Session lost;
        ASSERT_TRUE(lost.Open(m_options) && lost.Login(Pop3Login::Apop, "alice", "alice pw") && lost.Delete(1));
    }
    ASSERT_TRUE(LogIn() && m_session.Delete(2)) << m_session.GetFailure().text;
    CPop3Listing messages;
    ASSERT_TRUE(m_session.GetMessages(messages)) << m_session.GetFailure().text;
    EXPECT_EQ(messages.GetCount(), 2u);
    ASSERT_TRUE(m_session.Quit()) << m_session.GetFailure().text;
    EXPECT_FALSE(m_session.Delete(1));
    EXPECT_EQ(m_server.CountMessages("alice"), 2u);
}

namespace {

Pop3Options OptionsFor(const CTinyPeer& peer) {
    Pop3Options options;
    options.connect.host = "127.0.0.1";
    options.connect.port = peer.GetPort();
    options.connect.tlsMode = TlsMode::None;
    return options;
}

// Says the first at once and one of the others to each line it gets.
CTinyPeer::Script Replies(const std::vector<std::string>& replies) {
    CTinyPeer::Script script;
    for (const std::string& reply : replies)
        script.emplace_back(script.empty() ? "" : "\r\n", reply);
    return script;
}

const std::string Greeting = "+OK ready <1.2@there.example>\r\n";

}  // namespace

TEST(Pop3Trouble, WhatNoGoodServerSays) {
    using enum FailureKind;
    const auto list = [](CPop3Session& session) {
        CPop3Listing messages;
        return session.GetMessages(messages);
    };
    const auto uids = [](CPop3Session& session) {
        CPop3Listing messages;
        messages.Add(1, 10);
        messages.Add(2, 10);
        return session.GetUids(messages);
    };
    const auto status = [](CPop3Session& session) {
        std::uint32_t count = 0;
        std::uint64_t octets = 0;
        return session.GetStatus(count, octets);
    };
    const auto retrieve = [](CPop3Session& session) {
        std::string text;
        return session.Retrieve(1, 100000, StoreIn(text));
    };
    const auto nothing = [](CPop3Session&) { return true; };
    const struct {
        const char* what;
        std::vector<std::string> replies;
        std::function<bool(CPop3Session&)> work;
        FailureKind failure;
    } rows[] = {
        {"refuses the connection", {"-ERR busy\r\n"}, nothing, Reply},
        {"greets as another kind of server", {"220 hello\r\n"}, nothing, Protocol},
        {"greets with a line without end", {"+OK " + Repeat("x", 100000)}, nothing, Protocol},
        {"answers before it is asked", {Greeting + "+OK 1 1\r\n", ""}, status, Protocol},
        {"good status", {Greeting, "+OK 2 320 and more\r\n"}, status, None},
        {"number out of range", {Greeting, "+OK 99999999999 1\r\n"}, status, Protocol},
        {"negative number", {Greeting, "+OK -1 1\r\n"}, status, Protocol},
        {"status without octets", {Greeting, "+OK 2\r\n"}, status, Protocol},
        {"good list", {Greeting, "+OK\r\n2 20\r\n1 18446744073709551615\r\n.\r\n"}, list, None},
        {"size out of range", {Greeting, "+OK\r\n1 18446744073709551616\r\n.\r\n"}, list, Protocol},
        {"message 0", {Greeting, "+OK\r\n0 20\r\n.\r\n"}, list, Protocol},
        {"message twice", {Greeting, "+OK\r\n1 20\r\n2 3\r\n1 20\r\n.\r\n"}, list, Protocol},
        {"list of words", {Greeting, "+OK\r\none\r\n.\r\n"}, list, Protocol},
        {"list without end", {Greeting, "+OK\r\n" + Repeat("1 1\r\n", MaxPop3Messages + 1)}, list, Protocol},
        {"good uids", {Greeting, "+OK\r\n1 a\r\n2 b\r\n.\r\n"}, uids, None},
        {"uid of an unknown message", {Greeting, "+OK\r\n1 a\r\n3 b\r\n.\r\n"}, uids, Protocol},
        {"two uids", {Greeting, "+OK\r\n1 a\r\n1 b\r\n.\r\n"}, uids, Protocol},
        {"uid of control characters", {Greeting, "+OK\r\n1 a\x01\r\n.\r\n"}, uids, Protocol},
        {"message with line feeds only", {Greeting, "+OK\r\na\n..\n.\n"}, retrieve, None},
        {"message without end", {Greeting, "+OK\r\n" + Repeat("x", 200000)}, retrieve, Protocol},
        {"message of empty lines without end", {Greeting, "+OK\r\n" + Repeat("\r\n", 100000)}, retrieve, Protocol},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        CTinyPeer peer(Replies(row.replies));
        CPop3Session session;
        EXPECT_EQ(session.Open(OptionsFor(peer)) && row.work(session), row.failure == None);
        EXPECT_EQ(session.GetFailure().kind, row.failure) << session.GetFailure().text;
        EXPECT_EQ(session.IsOpen(), row.failure == None);
        EXPECT_LE(session.GetLastReply().size(), 128u);
    }
}

TEST(Pop3Trouble, SilenceCancelAndASinkThatIsFull) {
    using enum FailureKind;
    const struct {
        std::string reply;
        bool isCancelled, isFull;
        FailureKind failure;
    } rows[] = {{"+OK\r\nSubject: slow\r\n", false, false, TimedOut},
                {"+OK\r\nSubject: slow\r\n", true, false, Cancelled},
                {"+OK\r\n" + Dots + ".\r\n", false, true, Local}};
    for (const auto& row : rows) {
        CPop3Session session;
        CTinyPeer peer({{"", Greeting}, {"RETR", row.reply}}, [&](const std::string& what) {
            if (row.isCancelled && what == "RETR") session.Cancel();
        });
        Pop3Options options = OptionsFor(peer);
        if (row.failure == TimedOut) options.replyTimeout = 2s;  // the greeting comes within
        ASSERT_TRUE(session.Open(options)) << session.GetFailure().text;
        EXPECT_FALSE(session.Retrieve(1, 1000, [&](std::string_view) { return !row.isFull; }));
        EXPECT_EQ(session.GetFailure().kind, row.failure);
        EXPECT_FALSE(session.IsOpen());
        session.Close();
    }
}

TEST(Pop3Trouble, WhoInsistsOnTlsGetsIt) {
    using enum FailureKind;
    const struct {
        std::vector<std::string> replies;
        TlsMode mode;
        FailureKind failure;
    } rows[] = {
        {{Greeting, "-ERR what?\r\n"}, TlsMode::Required, Tls},
        {{Greeting, "-ERR what?\r\n"}, TlsMode::Opportunistic, None},
        {{Greeting, "+OK\r\nUIDL\r\nSTLS\r\n.\r\n", "-ERR not now\r\n"}, TlsMode::Required, Tls},
        {{Greeting, "+OK\r\nUIDL\r\nSTLS\r\n.\r\n", "-ERR not now\r\n"}, TlsMode::Opportunistic, None},
        {{Greeting, "+OK\r\nSTLS\r\n.\r\n", "+OK\r\n+OK logged in\r\n"}, TlsMode::Opportunistic, Protocol},
    };
    for (const auto& row : rows) {
        CTinyPeer peer(Replies(row.replies));
        Pop3Options options = OptionsFor(peer);
        options.connect.tlsMode = row.mode;
        CPop3Session session;
        EXPECT_EQ(session.Open(options), row.failure == None);
        EXPECT_EQ(session.GetFailure().kind, row.failure) << session.GetFailure().text;
    }
}

TEST(Pop3Trouble, NothingIsSmuggledIntoTheLogin) {
    CTinyPeer peer(Replies({Greeting}));
    CPop3Session session;
    ASSERT_TRUE(session.Open(OptionsFor(peer))) << session.GetFailure().text;
    for (const std::string& bad : {std::string("a\r\nDELE 1"), std::string("a\n"), std::string("a\0b", 3),
                                   std::string(), std::string(256, 'a')}) {
        for (const Pop3Login method : {Pop3Login::Apop, Pop3Login::UserPass}) {
            EXPECT_FALSE(session.Login(method, bad, "password"));
            EXPECT_FALSE(session.Login(method, "login", bad));
            EXPECT_EQ(session.GetFailure().kind, FailureKind::Local);
        }
    }
    EXPECT_FALSE(session.Login(Pop3Login::Apop, "two words", "password"));
    EXPECT_TRUE(session.IsOpen());
    session.Close();
    EXPECT_EQ(peer.GetReceived(), "QUIT\r\n");
}

TEST(Pop3Grammar, TimeStampsAndDigests) {
    // The example of RFC 1939, 7.
    EXPECT_EQ(MakeApopDigest("<1896.697170952@dbc.mtview.ca.us>", "tanstaaf"), "c4c9334bac560ecc979e58001b3e22fb");
    const struct {
        std::string_view greeting;
        std::string_view stamp;
    } rows[] = {
        {"ready <1.2@there.example>", "<1.2@there.example>"},
        {"<a@b> welcome <c@d>", "<a@b>"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(FindTimeStamp(row.greeting), row.stamp) << row.greeting;
    for (const char* none : {"ready", "ready <nothing>", "ready <@b>", "ready <a@>", "ready <a@b", "ready <a@b@c>",
                             "ready <a<b@c>", "ready <a b@c>", "ready <a@b\x80>", "", "> <"})
        EXPECT_EQ(FindTimeStamp(none), "") << none;
}

TEST(Pop3Grammar, DotsComeOffHoweverTheReplyIsCut) {
    const std::vector<std::string> lines = {"..", "...", ".a", "b.", "", ".."};
    for (std::size_t size = 1; size <= 4; ++size) {
        CDotUnstuffer unstuffer;
        std::string text;
        for (const std::string& line : lines) {
            std::size_t at = 0;
            for (; line.size() - at > size; at += size)
                ASSERT_TRUE(unstuffer.Add(line.substr(at, size), false, text));
            // The end of a line may come alone.
            if (size % 2 == 1 && at < line.size()) {
                ASSERT_TRUE(unstuffer.Add(line.substr(at), false, text));
                at = line.size();
            }
            ASSERT_TRUE(unstuffer.Add(line.substr(at), true, text));
        }
        EXPECT_EQ(text, ".\r\n..\r\na\r\nb.\r\n\r\n.\r\n") << size;
        if (size % 2 == 1) {
            EXPECT_TRUE(unstuffer.Add(".", false, text));
        }
        EXPECT_FALSE(unstuffer.Add(size % 2 == 1 ? "" : ".", true, text));
    }
}
