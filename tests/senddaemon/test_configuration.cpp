// Account configurations, and what the lists' settings put into them.

#include "app/settings.h"
#include "platform/faultplan.h"
#include "platform/knownfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/configureaccount.h"
#include "senddaemon/senddaemon.h"
#include "tests/senddaemon/sendfixture.h"

namespace SendDaemon {

namespace {

class Configuration : public CSendFixture {};

TEST_F(Configuration, KeysAreLettersAndDigits) {
    CConfiguration config(InFolder("account/account.cfg"));
    std::string value;
    for (const char* key : {"Port", "a1"})
        EXPECT_TRUE(config.SetValue(key, "x") && config.GetValue(key, value)) << key;
    for (const char* key : {"", "1a", "a-b", "a b", "a.b", "a_b", "a\xC3\xA4"})
        EXPECT_FALSE(config.SetValue(key, "x") || config.GetValue(key, value)) << key;
    EXPECT_NE(GetLastErrorText().find("An internal error has occurred. Invalid arguments"), std::string::npos);
}

TEST_F(Configuration, ValuesSurvive) {
    const std::string cases[] = {"",   "plain",      "a\\b\nc\rd\\n", "\\", "\\\\",      "  blanks  ",
                                 "\t", "\"quoted\"", "'x'",           "\"", "a=b;c#[d]", "\xC3\xA4\xFF"};
    CConfiguration config(InFolder("account.cfg"));
    for (const std::string& value : cases) {
        ASSERT_TRUE(config.SetValue("Password", value));
        EXPECT_EQ(config.GetText("password"), value);
        EXPECT_EQ(CConfiguration(config).GetText("Password"), value);
    }
    ASSERT_TRUE(config.SetValue("Long", std::string(1100, 'x')));
    EXPECT_EQ(config.GetText("Long"), std::string(1023, 'x'));
    MakeFile("other.cfg", "[Configuration]\nA=x\\ty\\\\z\n[Other]\nB=1\n");
    const CConfiguration other(InFolder("other.cfg"));
    EXPECT_EQ(other.GetText("A"), "xty\\z");
    EXPECT_EQ(other.GetText("B"), "");
}

TEST_F(Configuration, RelativeFilesGoWithTheDataFolder) {
    CConfiguration config(InFolder("account.cfg"));
    const bool hasDrives = Platform::PathSeparator() == '\\';
    const struct {
        std::string value, path;
        bool isOurs = true;
    } cases[] = {
        {"", ""},
        {"copies", GetDataFolder() + "copies"},
        {InFolder("copies"), InFolder("copies")},
        {"Z:\\copies", "Z:\\copies", hasDrives},
    };
    for (const auto& row : cases) {
        std::string path;
        ASSERT_TRUE(config.SetValue("TargetFolder", row.value));
        EXPECT_EQ(config.GetFileName("TargetFolder", path), row.isOurs) << row.value;
        EXPECT_EQ(path, row.path);
    }
}

TEST_F(Configuration, ChangesAreSeenAndTold) {
    struct CRecorder : CObserver {
        void OnSubjectChanged(const CSubjectEvent& event) override { seen += event.key + "=" + event.value + ";"; }
        std::string seen;
    } recorder;
    CConfiguration config(InFolder("account.cfg"));
    config.Attach(recorder);
    EXPECT_EQ(config.GetText("A"), "");
    EXPECT_TRUE(config.SetValue("A", "1"));
    CConfiguration other(config);
    EXPECT_TRUE(other.SetValue("A", "2"));  // as another program does
    EXPECT_EQ(config.GetText("A"), "2");
    {
        const Platform::CFaultPlan plan(Platform::Operation::Rename, 1);
        EXPECT_FALSE(config.SetValue("A", "3"));
    }
    EXPECT_EQ(config.GetText("A"), "2");
    config.Detach(recorder);
    EXPECT_TRUE(config.SetValue("A", "4"));
    EXPECT_EQ(recorder.seen, "A=1;");
}

TEST_F(Configuration, AccountsAreFilledFromTheListsSettings) {
    CSendDaemon daemon;
    CConfiguration* server = nullptr;
    ASSERT_TRUE(daemon.Initialize(InFolder("SendDaemon"), server));
    const std::string account = InFolder("SendDaemon/1");
    ASSERT_TRUE(daemon.AddAccount(account)) << GetLastErrorText();
    CListSettings settings{.smtpHost = "relay.example",
                           .smtpLogin = "unused",
                           .smtpPassword = "p\\w",
                           .popHost = "pop.example",
                           .popLogin = "pl",
                           .popPassword = "pp",
                           .maxConnections = 7,
                           .maxMessagesPerConnection = 50,
                           .dnsServer = "192.0.2.1",
                           .relayHost = "fall.example",
                           .relayNeedsLogin = true,
                           .relayLogin = "rl",
                           .relayPassword = "rp",
                           .relayPopBeforeSmtp = true};
    ASSERT_TRUE(WriteSetting("Service", "SmtpPort", 2525));
    ASSERT_TRUE(ConfigureAccount(daemon, account, settings, nullptr)) << GetLastErrorText();
    std::string content;
    ASSERT_TRUE(ReadWholeFile(JoinPath(account, "account.cfg"), content));
    content.erase(std::remove(content.begin(), content.end(), '\r'), content.end());
    EXPECT_EQ(content,
              "[Configuration]\nMaxConnections=7\nMaxMessagesPerConnection=50\nTimeout=60\nPort=2525\n"
              "TurnOffDeliveryNotifications=False\nSendMethod=SmtpMessageSender2\nHostName=relay.example\nLogin=\n"
              "Password=p\\\\w\nPopHostName=\nPopLogin=pl\nPopPassword=pp\n");
    if (Platform::PathSeparator() == '/') {  // Windows has access lists, with tests of their own
        const auto modes = std::filesystem::status(JoinPath(account, "account.cfg")).permissions();
        EXPECT_EQ(modes & std::filesystem::perms::others_all, std::filesystem::perms::none);
    }

    settings.directDelivery = true;
    ASSERT_TRUE(WriteSetting("Execution", "DebugMode", 1));
    ASSERT_TRUE(ConfigureAccount(daemon, account, settings, nullptr));
    const CConfiguration* config = daemon.GetAccountConfig(account);
    ASSERT_NE(config, nullptr);
    const std::string_view keys[] = {"SendMethod",     "DnsHostAddress", "DnsPort", "DnsTimeout",  "DnsRetries",
                                     "DnsUseFallback", "HostName",       "Login",   "PopHostName", "EnableTrace"};
    std::string values;
    for (const auto key : keys)
        values += config->GetText(key) + " ";
    EXPECT_EQ(values, "DirectMessageSender 192.0.2.1 0 10 4 0 fall.example rl pop.example 1 ");

    ASSERT_TRUE(daemon.SetAccountValue(account, "SendMethod", "NullMessageSender"));
    settings.maxConnections = 9;
    ASSERT_TRUE(ConfigureAccount(daemon, account, settings, nullptr));
    EXPECT_EQ(config->GetText("MaxConnections"), "7");
    for (int level = 0; level <= 4; ++level) {
        EXPECT_FALSE(m_log->Contains(level, "rp") || m_log->Contains(level, "p\\w")) << level;
    }
    EXPECT_FALSE(ConfigureAccount(daemon, InFolder("SendDaemon/2"), settings, nullptr));
}

}  // namespace

}  // namespace SendDaemon
