// The servers that other tests lean on: that they start, answer, count and end.

#include <gtest/gtest.h>

#include <boost/asio.hpp>

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
