// What name servers say, and what they do not: against dnsmasq, and against
// sockets that stay silent or answer with what only broken servers send.

#include <gtest/gtest.h>

#include <boost/asio.hpp>
#include <set>
#include <thread>

#include "net/dnssession.h"
#include "tests/servers/nameserver.h"

using namespace Net;
using namespace std::chrono_literals;
using TestServers::CNameServer;

namespace {

namespace Asio = boost::asio;
using Udp = Asio::ip::udp;

// A name server of the test's own, which gets questions and may answer them.
class CPeer {
public:
    CPeer() : m_socket(m_context, Udp::endpoint(Asio::ip::address_v4::loopback(), 0)) {}

    DnsOptions Options(std::chrono::milliseconds timeout, int tries = 1) const {
        return {.server = "127.0.0.1",
                .port = m_socket.local_endpoint().port(),
                .timeout = timeout,
                .tries = tries,
                .traceFile = {}};
    }
    std::vector<unsigned char> Receive() {
        std::vector<unsigned char> question(512);
        question.resize(m_socket.receive_from(Asio::buffer(question), m_from));
        return question;
    }
    void Send(const std::vector<unsigned char>& answer) { m_socket.send_to(Asio::buffer(answer), m_from); }

private:
    Asio::io_context m_context;
    Udp::socket m_socket;
    Udp::endpoint m_from;
};

std::vector<std::string> Hosts(const std::vector<MailExchanger>& exchangers) {
    std::vector<std::string> hosts;
    for (const MailExchanger& one : exchangers)
        hosts.push_back(std::to_string(one.preference) + ' ' + one.host);
    return hosts;
}

using Texts = std::vector<std::string>;

class Dns : public testing::Test {
protected:
    void SetUp() override {
        if (!m_server.IsInstalled()) GTEST_SKIP() << m_server.WhyNot();
        m_server.AddExchanger("lists.example", "mx20.lists.example", 20);
        m_server.AddExchanger("lists.example", "mx5.lists.example", 5);
        m_server.AddExchanger("lists.example", "mx10.lists.example", 10);
        m_server.AddAddress("mx5.lists.example", "127.0.0.2");
        m_server.AddAddress("mx5.lists.example", "::1");
        m_server.AddAddress("six.example", "2001:db8::7");
        m_server.AddOption("--cname=alias.example,mx5.lists.example");
        m_server.AddOption("--dns-rr=null.example,15,000000");
        // Preference 0 and the host "a b", then one that can be used.
        m_server.AddOption("--dns-rr=blank.example,15,000003612062076578616d706c6500");
        m_server.AddExchanger("two.example", "good.example", 7);
        m_server.AddOption("--dns-rr=two.example,15,000003612062076578616d706c6500");
        for (int i = 0; i < 40; ++i)
            m_server.AddExchanger("many.example", "a-rather-long-name-of-host-" + std::to_string(i) + ".example", i);
        for (const char* host : {"a", "b", "c"})
            m_server.AddExchanger("equal.example", std::string(host) + ".example", 10);
        ASSERT_TRUE(m_server.Start()) << m_server.WhyNot();
        ASSERT_TRUE(m_session.Open(
            {.server = "127.0.0.1", .port = m_server.GetPort(), .timeout = 60s, .tries = 4, .traceFile = m_trace}))
            << m_session.GetText();
    }
    CNameServer m_server;
    std::string m_trace = m_server.GetFolder() / "trace";
    CDnsSession m_session;
    std::vector<MailExchanger> m_exchangers;
    Texts m_addresses;
};

}  // namespace

TEST_F(Dns, MailExchangers) {
    using enum DnsStatus;
    const struct {
        const char* domain;
        DnsStatus status;
        Texts hosts;
        const char* text;
    } rows[] = {
        {"lists.example", Found, {"5 mx5.lists.example", "10 mx10.lists.example", "20 mx20.lists.example"}, ""},
        {"two.example", Found, {"7 good.example"}, ""},
        {"mx5.lists.example", NoRecords, {}, "has no mail exchangers"},
        {"nobody.example", NoName, {}, "There is no domain \"nobody.example\""},
        {"null.example", NullMx, {}, "takes no mail"},
        {"blank.example", ServerFailed, {}, "without sense"},
        {"elsewhere.test", ServerFailed, {}, "refused"},
        {"", Invalid, {}, "not a domain name"},
        {"a..example", Invalid, {}, "not a domain name"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(m_session.FindMailExchangers(row.domain, m_exchangers), row.status)
            << row.domain << ": " << m_session.GetText();
        EXPECT_EQ(Hosts(m_exchangers), row.hosts) << row.domain;
        EXPECT_NE(m_session.GetText().find(row.text), std::string::npos) << m_session.GetText();
    }
    EXPECT_EQ(m_server.CountQueries("MX", "elsewhere.test"), 1u) << "who refuses is not pressed";
    const std::string trace = Get(m_trace);
    EXPECT_NE(
        trace.find("MX lists.example @127.0.0.1:" + std::to_string(m_server.GetPort()) + ": 5 mx5.lists.example, 10"),
        std::string::npos)
        << trace;
    EXPECT_NE(trace.find("null MX"), std::string::npos) << trace;
}

TEST_F(Dns, AnAnswerTooLongForADatagramComesByTcp) {
    ASSERT_EQ(m_session.FindMailExchangers("many.example", m_exchangers), DnsStatus::Found) << m_session.GetText();
    ASSERT_EQ(m_exchangers.size(), 40u);
    for (std::size_t i = 0; i < m_exchangers.size(); ++i)
        EXPECT_EQ(m_exchangers[i].preference, i);
}

TEST_F(Dns, EqualPreferencesAreShuffled) {
    std::set<std::string> first;
    for (int i = 0; i < 200 && first.size() < 3; ++i) {
        ASSERT_EQ(m_session.FindMailExchangers("equal.example", m_exchangers), DnsStatus::Found);
        ASSERT_EQ(m_exchangers.size(), 3u);
        first.insert(m_exchangers.front().host);
    }
    EXPECT_EQ(first.size(), 3u);
}

TEST_F(Dns, Addresses) {
    using enum DnsStatus;
    const struct {
        const char* host;
        DnsStatus status;
        Texts addresses;
    } rows[] = {
        {"mx5.lists.example", Found, {"127.0.0.2", "::1"}},
        {"alias.example", Found, {"127.0.0.2", "::1"}},
        {"six.example", Found, {"2001:db8::7"}},
        {"lists.example", NoRecords, {}},
        {"nobody.example", NoName, {}},
        {"elsewhere.test", ServerFailed, {}},
        {"192.0.2.7", Found, {"192.0.2.7"}},
        {"[IPv6:2001:DB8:0::9]", Found, {"2001:db8::9"}},
        {"localhost", ServerFailed, {}},  // the hosts file is the system's, not this server's
    };
    for (const auto& row : rows) {
        EXPECT_EQ(m_session.FindAddresses(row.host, m_addresses), row.status)
            << row.host << ": " << m_session.GetText();
        EXPECT_EQ(m_addresses, row.addresses) << row.host;
    }
}

TEST_F(Dns, TheServerMayBeANameOfTheSystem) {
    ASSERT_TRUE(m_session.Open(
        {.server = "localhost", .port = m_server.GetPort(), .timeout = 60s, .tries = 2, .traceFile = {}}))
        << m_session.GetText();
    EXPECT_EQ(m_session.FindAddresses("six.example", m_addresses), DnsStatus::Found) << m_session.GetText();
    EXPECT_FALSE(m_session.Open({.server = "no name", .port = 0, .timeout = 1s, .tries = 1, .traceFile = {}}));
    EXPECT_EQ(m_session.GetText(), "\"no name\" is not a domain name");
    EXPECT_EQ(m_session.FindAddresses("six.example", m_addresses), DnsStatus::ServerFailed);
    ASSERT_TRUE(m_session.Open({})) << m_session.GetText();
    EXPECT_EQ(m_session.FindAddresses("localhost", m_addresses), DnsStatus::Found) << m_session.GetText();
}

TEST(DnsTrouble, ASilentServerCostsNoMoreThanTheTimeout) {
    // By its own count c-ares would wait 102 s here.
    CPeer peer;
    CDnsSession session;
    ASSERT_TRUE(session.Open(peer.Options(300ms, 10)));
    std::vector<MailExchanger> exchangers;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(session.FindMailExchangers("lists.example", exchangers), DnsStatus::TimedOut) << session.GetText();
    const auto time = std::chrono::steady_clock::now() - start;
    EXPECT_GE(time, 300ms);
    EXPECT_LT(time, 30s);
    EXPECT_TRUE(IsTemporary(DnsStatus::TimedOut));
}

TEST(DnsTrouble, CancelEndsTheQuestionAndTheNext) {
    CPeer peer;
    CDnsSession session;
    ASSERT_TRUE(session.Open(peer.Options(std::chrono::hours(1))));
    std::jthread cancelling([&] {
        peer.Receive();
        session.Cancel();
    });
    std::vector<std::string> addresses;
    EXPECT_EQ(session.FindAddresses("lists.example", addresses), DnsStatus::Cancelled);
    cancelling.join();
    session.Cancel();
    EXPECT_EQ(session.FindAddresses("lists.example", addresses), DnsStatus::Cancelled);
}

TEST(DnsTrouble, WhatOnlyBrokenServersSend) {
    using enum DnsStatus;
    using Bytes = std::vector<unsigned char>;
    // Announces one record and adds these bytes.
    static const auto Add = [](const Bytes& record) {
        return [record](Bytes& answer) {
            answer[7] = 1;
            answer.insert(answer.end(), record.begin(), record.end());
        };
    };
    const struct {
        const char* what;
        std::function<void(Bytes& answer)> change;
        DnsStatus status;
    } rows[] = {
        {"SERVFAIL", [](Bytes& b) { b[3] = 0x82; }, ServerFailed},
        {"NOTIMP", [](Bytes& b) { b[3] = 0x84; }, ServerFailed},
        {"one record announced, none there", Add({}), ServerFailed},
        {"a record cut short", Add({0xc0, 12, 0, 15, 0, 1, 0, 0}), ServerFailed},
        {"a name that points to itself",
         [](Bytes& b) {
             const auto at = static_cast<unsigned char>(b.size());
             Add({0xc0, at, 0, 15, 0, 1, 0, 0, 0, 1, 0, 4, 0, 1, 0xc0, at})(b);
         },
         ServerFailed},
        {"only an address", Add({0xc0, 12, 0, 1, 0, 1, 0, 0, 0, 1, 0, 4, 192, 0, 2, 1}), NoRecords},
        {"a mail exchanger", Add({0xc0, 12, 0, 15, 0, 1, 0, 0, 0, 1, 0, 4, 0, 9, 0xc0, 12}), Found},
    };
    for (const auto& row : rows) {
        CPeer peer;
        CDnsSession session;
        ASSERT_TRUE(session.Open(peer.Options(60s)));
        std::jthread answering([&] {
            Bytes answer = peer.Receive();
            answer[2] |= 0x80;
            row.change(answer);
            peer.Send(answer);
        });
        std::vector<MailExchanger> exchangers;
        EXPECT_EQ(session.FindMailExchangers("lists.example", exchangers), row.status)
            << row.what << ": " << session.GetText();
        EXPECT_EQ(exchangers.empty(), row.status != Found) << row.what;
    }
}
