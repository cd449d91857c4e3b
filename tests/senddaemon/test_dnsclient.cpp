// From a recipient to the mail exchangers of his domain, asked of a name server.

#include "platform/knownfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/mxrecords.h"
#include "tests/senddaemon/sendfixture.h"
#include "tests/servers/nameserver.h"

namespace SendDaemon {

namespace {

using Texts = std::vector<std::string>;

class DnsClient : public CSendFixture {
protected:
    void SetUp() override {
        CSendFixture::SetUp();
        if (!m_server.IsInstalled()) GTEST_SKIP() << m_server.WhyNot();
        m_server.AddExchanger("lists.example", "mx2.lists.example", 20);
        m_server.AddExchanger("lists.example", "mx1.lists.example", 10);
        m_server.AddAddress("mx1.lists.example", "127.0.0.2");
        m_server.AddAddress("alone.example", "127.0.0.3");
        m_server.AddOption("--txt-record=words.example,only");
        m_server.AddOption("--dns-rr=null.example,15,000000");
        for (int i = 0; i < 30; ++i)
            m_server.AddExchanger("many.example", 'm' + std::to_string(i) + ".example", i);
        ASSERT_TRUE(m_server.Start()) << m_server.WhyNot();
    }

    CDnsSettings Settings() const {
        return {.server = "127.0.0.1", .port = m_server.GetPort(), .timeout = 60, .retries = 2};
    }

    // "ok", or the reason and whether to try again.
    static std::string Ask(CDnsClient& client, const std::string& domain, Texts& hosts) {
        if (client.GetMailExchangers(domain, hosts)) return "ok";
        return (client.IsTemporary() ? "later: " : "never: ") + GetLastErrorText();
    }

    TestServers::CNameServer m_server;
};

}  // namespace

TEST_F(DnsClient, MailExchangers) {
    const std::string server = "127.0.0.1:" + std::to_string(m_server.GetPort());
    const struct {
        const char* domain;
        std::string result;
        Texts hosts;
        std::string systemResult;  // by the system's call; "": the same
    } rows[] = {
        {"lists.example", "ok", {"mx1.lists.example", "mx2.lists.example"}, ""},
        {"alone.example", "ok", {"alone.example"}, "never: No MX records found"},
        {"words.example", "never: No MX records found", {}, ""},
        {"null.example", "never: The domain \"null.example\" takes no mail (null MX)", {}, ""},
        {"nobody.example", "never: There is no domain \"nobody.example\"", {}, "never: Unknown host"},
        {"elsewhere.test",
         "later: Error while connecting to DNS server: " + server + ": DNS server refused query",
         {},
         "later: Host name lookup failure"},
        {"[127.0.0.9]", "ok", {"[127.0.0.9]"}, ""},
        {"a b", "never: \"a b\" is not a domain name", {}, ""},
    };
    CatalystDnsClient client(Settings());
    DnsQueryDnsClient system({"127.0.0.1", m_server.GetPort()});
    for (const auto& row : rows) {
        Texts hosts;
        EXPECT_EQ(Ask(client, row.domain, hosts), row.result);
        EXPECT_EQ(hosts, row.hosts) << row.domain;
        // The call of Windows asks at the usual port only.
        const bool isAsked = row.domain[0] != '[' && row.domain[1] != ' ';
        if (isAsked && Platform::PathSeparator() == '\\') {
            EXPECT_EQ(Ask(system, row.domain, hosts), "later: The system's resolver cannot ask " + server);
            continue;
        }
        const bool isSame = row.systemResult.empty();
        EXPECT_EQ(Ask(system, row.domain, hosts), isSame ? row.result : row.systemResult);
        std::sort(hosts.begin(), hosts.end());  // it keeps the order of the answer
        EXPECT_EQ(hosts, isSame ? row.hosts : Texts()) << row.domain;
    }
    Texts hosts;
    EXPECT_EQ(Ask(client, "many.example", hosts), "ok");
    EXPECT_EQ(hosts.size(), 20u);
    EXPECT_EQ(hosts.back(), "m19.example");
}

TEST_F(DnsClient, ConnectionsFindExchangersThatOnlyThisServerKnows) {
    CatalystDnsClient client(Settings());
    const Net::Resolver resolve = client.MakeResolver();
    Texts addresses;
    Net::Failure failure;
    ASSERT_TRUE(resolve("mx1.lists.example", addresses, failure)) << failure.text;
    EXPECT_EQ(addresses, Texts{"127.0.0.2"});
    EXPECT_FALSE(resolve("nobody.example", addresses, failure));
    EXPECT_EQ(failure.kind, Net::FailureKind::NameNotFound);
    EXPECT_FALSE(resolve("elsewhere.test", addresses, failure));
    EXPECT_EQ(failure.kind, Net::FailureKind::NameUnknown);

    m_server.Stop();
    CDnsSettings hurried = Settings();
    hurried.timeout = 1;  // not every system says that nobody listens
    CatalystDnsClient another(hurried);
    EXPECT_FALSE(another.MakeResolver()("mx1.lists.example", addresses, failure));
    EXPECT_EQ(failure.kind, Net::FailureKind::NameUnknown) << failure.text;
    EXPECT_TRUE(failure.text.starts_with("Error while connecting to DNS server: ")) << failure.text;
}

TEST_F(DnsClient, ACancelledClientAnswersNothingUntilItMay) {
    CatalystDnsClient client(Settings());
    Texts hosts;
    client.Cancel();
    EXPECT_EQ(Ask(client, "lists.example", hosts), "later: User cancel");
    EXPECT_EQ(Ask(client, "lists.example", hosts), "later: User cancel");
    client.AllowAgain();
    EXPECT_EQ(Ask(client, "lists.example", hosts), "ok");
}

TEST_F(DnsClient, SettingsAndDomains) {
    const struct {
        const char* text;
        const char* fault;  // "": none
    } files[] = {
        {"DnsHostAddress= 127.0.0.1 \nDnsPort=5353\nDnsTimeout=7\nDnsRetries=0\n", ""},
        {"DnsHostAddress=127.0.0.1\nDnsPort=65536\n", "DnsPort is \"65536\""},
        {"DnsTimeout=0\n", "DnsTimeout is \"0\""},
        {"DnsRetries=often\n", "DnsRetries is \"often\""},
    };
    for (std::size_t i = 0; i < std::size(files); ++i) {
        const CConfiguration config(
            MakeFile(std::to_string(i) + ".cfg", std::string("[Configuration]\n") + files[i].text));
        CDnsSettings settings;
        const std::string fault = settings.Read(config) ? "" : GetLastErrorText();
        EXPECT_EQ(fault.substr(0, std::string_view(files[i].fault).size()), files[i].fault);
        EXPECT_EQ(fault.empty(), *files[i].fault == '\0') << fault;
        if (i > 0) continue;
        EXPECT_EQ(settings.server + ' ' + std::to_string(settings.port), "127.0.0.1 5353");
        EXPECT_EQ(settings.timeout * 10 + settings.retries, 70);
    }

    const struct {
        const char* address;
        const char* domain;  // "": invalid
    } addresses[] = {
        {"a@lists.example", "lists.example"},
        {"a@ lists.example ", "lists.example"},
        {"\"a@\\\"b\"@lists.example", "lists.example"},
        {"", ""},
        {"a", ""},
        {"a@", ""},
        {"a@  ", ""},
        {"\"a@b", ""},
    };
    for (const auto& row : addresses) {
        std::string domain;
        EXPECT_EQ(CMxRecordEnumerator::GetRecipientDomain(row.address, domain), *row.domain != '\0') << row.address;
        EXPECT_EQ(domain, row.domain) << row.address;
        if (*row.domain != '\0') continue;
        EXPECT_EQ(GetLastErrorText(), std::string("Invalid email address: ") + row.address);
    }
}

}  // namespace SendDaemon
