// The servers that other tests lean on: that they start, answer, count and end.

#include <gtest/gtest.h>

#include <boost/asio.hpp>

#include "tests/servers/mailserver.h"
#include "tests/servers/nameserver.h"
#include "tests/servers/smtpsink.h"

using namespace TestServers;

namespace {

// Sends the lines one by one, each after the reply to the one before; returns
// the last reply.
std::string Converse(const std::string& address, std::uint16_t port, const std::vector<std::string>& lines) {
    boost::asio::ip::tcp::iostream stream(address, std::to_string(port));
    stream.expires_after(Patience);
    std::string reply;
    std::getline(stream, reply);
    for (const std::string& line : lines) {
        stream << line << "\r\n" << std::flush;
        do {
            std::getline(stream, reply);
        } while (reply.size() > 3 && reply[3] == '-');
    }
    return reply;
}

const std::vector<std::string> Transaction = {"HELO here.example", "MAIL FROM:<a@here.example>",
                                              "RCPT TO:<b@there.example>", "DATA", "Subject: one\r\n\r\ntext\r\n."};

}  // namespace

TEST(Servers, TheSinkKeepsWhatItTook) {
    CSmtpSink sink;
    if (!sink.IsInstalled()) GTEST_SKIP() << sink.WhyNot();
    ASSERT_TRUE(sink.Start()) << sink.WhyNot();
    for (std::size_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(Converse("127.0.0.1", sink.GetPort(), Transaction).substr(0, 3), "250");
        EXPECT_EQ(sink.CountMessages(), i);
    }
    const std::string message = sink.GetMessages().front();
    EXPECT_NE(message.find("X-Rcpt-Args: <b@there.example>"), std::string::npos) << message;
    EXPECT_NE(message.find("\nSubject: one\n\ntext\n"), std::string::npos) << message;
    sink.Stop();
    EXPECT_FALSE(sink.IsRunning());
    EXPECT_FALSE(CanConnect("127.0.0.1", sink.GetPort()));
}

TEST(Servers, SinksOnTwoAddressesShareAPort) {
    CSmtpSink first({"-r", "RCPT"}, SinkKeeps::Messages, "127.0.0.2");
    if (!first.IsInstalled()) GTEST_SKIP() << first.WhyNot();
    ASSERT_TRUE(first.Start()) << first.WhyNot();
    CSmtpSink second({}, SinkKeeps::Messages, "127.0.0.3", first.GetPort());
    ASSERT_TRUE(second.Start()) << second.WhyNot();
    const std::vector<std::string> envelope(Transaction.begin(), Transaction.begin() + 3);
    EXPECT_EQ(Converse("127.0.0.2", first.GetPort(), envelope).substr(0, 3), "450");
    EXPECT_EQ(Converse("127.0.0.3", first.GetPort(), envelope).substr(0, 3), "250");
    EXPECT_EQ(first.CountMessages(), 0u);
}

TEST(Servers, TheNameServerStarts) {
    CNameServer names;
    if (!names.IsInstalled()) GTEST_SKIP() << names.WhyNot();
    names.AddExchanger("lists.example", "mx1.lists.example", 10);
    names.AddAddress("mx1.lists.example", "127.0.0.2");
    ASSERT_TRUE(names.Start()) << names.WhyNot();
    EXPECT_EQ(names.CountQueries("MX", "lists.example"), 0u);
}

TEST(Servers, TheMailServerAnswersAsToldAndDelivers) {
    CMailServer server;
    if (!server.IsInstalled()) GTEST_SKIP() << server.WhyNot();
    server.AddUser("alice", "alice pw");
    server.AnswerRecipient("busy@there.example", "450 4.2.1 Try again later");
    ASSERT_TRUE(server.Start()) << server.WhyNot();
    const auto send = [&](std::uint16_t port, const std::string& to, const std::string& header = "Subject: one") {
        return Converse("127.0.0.1", port,
                        {"EHLO here.example", "MAIL FROM:<a@here.example>", "RCPT TO:<" + to + ">", "DATA",
                         header + "\r\n\r\ntext\r\n."})
            .substr(0, 3);
    };
    const auto envelope = [&](std::uint16_t port, const std::string& to) {
        return Converse("127.0.0.1", port, {"EHLO here.example", "MAIL FROM:<a@here.example>", "RCPT TO:<" + to + ">"})
            .substr(0, 3);
    };
    EXPECT_EQ(send(server.GetPort(), "b@there.example"), "250");
    EXPECT_EQ(send(server.GetPort(), "b@there.example", "X-Refuse-Me: yes"), "550");
    EXPECT_EQ(envelope(server.GetPort(), "b@elsewhere.test"), "554");
    EXPECT_EQ(envelope(server.GetAuthPort(), "b@there.example"), "554");
    EXPECT_EQ(
        Converse("127.0.0.1", server.GetAuthPort(), {"EHLO here.example", "AUTH LOGIN", "YWxpY2U=", "YWxpY2UgcHc="})
            .substr(0, 3),
        "235");
    EXPECT_EQ(envelope(server.GetPort(), "busy@there.example"), "450");
    server.AnswerRecipient("busy@there.example", "");
    server.AnswerRecipient("b@there.example", "550 5.1.1 Unknown");
    EXPECT_EQ(send(server.GetPort(), "busy@there.example"), "250");
    EXPECT_EQ(envelope(server.GetPort(), "b@there.example"), "550");
    ASSERT_TRUE(server.WaitForMessages(2)) << server.GetLog();
    EXPECT_EQ(server.CountMessages(), 2u);
    server.Stop();
    EXPECT_FALSE(CanConnect("127.0.0.1", server.GetPort()));
}
