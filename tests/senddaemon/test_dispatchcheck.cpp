// Delivery limits: sliding windows, and their files.

#include "platform/faultplan.h"
#include "senddaemon/dispatchcheck.h"
#include "tests/senddaemon/sendfixture.h"

namespace SendDaemon {

namespace {

constexpr std::int64_t Now = 1700000000;
constexpr std::int64_t Hour = 3600;

class DispatchCheck : public CSendFixture {
protected:
    void SetUp() override {
        CSendFixture::SetUp();
        m_checker.SetFolder(m_folder);
    }
    std::string LogBytes(const std::vector<std::int64_t>& ages) const {
        std::string bytes;
        for (const std::int64_t age : ages) {
            for (unsigned shift = 0; shift < 64; shift += 8) {
                bytes += static_cast<char>(static_cast<std::uint64_t>(Now - age) >> shift);
            }
        }
        return bytes;
    }
    std::string ReadLog() const {
        std::string content;
        if (Platform::FileIsThere(InFolder("relay.example.log"))) {
            EXPECT_TRUE(ReadWholeFile(InFolder("relay.example.log"), content));
        }
        return content;
    }
    CDispatchChecker m_checker;
};

TEST_F(DispatchCheck, SlidingWindows) {
    struct CCase {
        const char* what;
        std::vector<CDispatchCheck> checks;
        std::vector<std::int64_t> ages;  // of former sends, in seconds
        bool canSend;
    };
    const std::string host = "relay.example";
    const CCase cases[] = {
        {"no limit", {}, {1, 1, 1}, true},
        {"of another host", {{"other.example", 1, 1}}, {1, 1, 1}, true},
        {"two in the hour", {{host, 2, 1}}, {7200, 1800, 60}, false},
        {"one in the hour", {{host, 2, 1}}, {7200, 1800}, true},
        {"nothing yet", {{host, 1, 1}}, {}, true},
        {"just inside", {{host, 1, 1}}, {Hour}, false},
        {"just outside", {{host, 1, 1}}, {Hour + 1}, true},
        {"case of the host", {{"RELAY.Example", 1, 1}}, {5}, false},
        {"the second limit", {{host, 100, 1}, {host, 2, 24}}, {23 * Hour, 22 * Hour}, false},
        {"both hold", {{host, 2, 1}, {host, 4, 24}}, {23 * Hour, 22 * Hour, 10}, true},
        {"the clock was set back", {{host, 3, 1}}, {2 * Hour, 30, 2 * Hour}, true},
        {"and all after it count", {{host, 2, 1}}, {2 * Hour, 30, 2 * Hour}, false},
        {"no message at all", {{host, 0, 1}}, {10}, false},
    };
    for (const CCase& each : cases) {
        MakeFile("relay.example.log", LogBytes(each.ages));
        CDispatchChecker checker;
        checker.SetFolder(m_folder);
        checker.SetChecks(each.checks);
        EXPECT_EQ(checker.CanSend(host, Now), each.canSend) << each.what;
        const bool isNamed =
            std::any_of(each.checks.begin(), each.checks.end(), [](const auto& c) { return c.host[0] != 'o'; });
        auto ages = each.ages;
        if (each.canSend && isNamed) ages.push_back(0);
        EXPECT_EQ(ReadLog(), LogBytes(ages)) << each.what;
    }
}

TEST_F(DispatchCheck, LogsAreAppendedOverATornTimeAndPruned) {
    constexpr std::int64_t Day = 24 * Hour;
    MakeFile("relay.example.log", LogBytes({40 * Day, 31 * Day, 29 * Day, 10}) + "torn");
    m_checker.SetChecks({{"Relay.Example", 50, 1}});
    ASSERT_TRUE(m_checker.CanSend("relay.example", Now));
    std::string expected = LogBytes({40 * Day, 31 * Day, 29 * Day, 10, 0});
    const std::string log = ReadLog();  // pruned by chance once in a hundred
    EXPECT_TRUE(log == expected || log == LogBytes({29 * Day, 10, 0}));
    m_checker.SetChecks({{"relay.example", 50, 35 * 24}});
    MakeFile("relay.example.log", expected);
    m_checker.SetFolder(m_folder);  // read anew
    {
        const Platform::CFaultPlan plan(Platform::Operation::Open, 1);
        EXPECT_FALSE(m_checker.CanSend("relay.example", Now));  // nothing known, nothing overwritten
    }
    EXPECT_EQ(ReadLog(), expected);
    {
        const Platform::CFaultPlan plan(Platform::Operation::Rename, 1);
        EXPECT_FALSE(m_checker.Prune("relay.example", Now));
    }
    EXPECT_EQ(ReadLog(), expected);
    EXPECT_TRUE(m_checker.Prune("relay.example", Now));
    EXPECT_EQ(ReadLog(), LogBytes({31 * Day, 29 * Day, 10, 0}));  // the limit looks back 35 days
}

TEST_F(DispatchCheck, TheFileOfLimits) {
    EXPECT_TRUE(m_checker.Load());
    m_checker.SetChecks({{"ab", 2, 0x01020304}, {"", 1, 1}});
    ASSERT_TRUE(m_checker.Save());
    std::string content;
    ASSERT_TRUE(ReadWholeFile(InFolder("checker.cfg"), content));
    const std::string whole("\2\0\0\0\2\0\0\0ab\2\0\0\0\4\3\2\1\0\0\0\0\1\0\0\0\1\0\0\0", 30);
    EXPECT_EQ(content, whole);

    CDispatchChecker other;
    other.SetFolder(m_folder);
    ASSERT_TRUE(other.Load());
    ASSERT_EQ(other.GetChecks().size(), 2U);
    EXPECT_EQ(other.GetChecks()[0].host, "ab");
    EXPECT_EQ(other.GetChecks()[0].periodHours, 0x01020304U);

    for (std::size_t length = 0; length < whole.size(); ++length) {
        MakeFile("checker.cfg", whole.substr(0, length));
        EXPECT_FALSE(other.Load()) << length;
        EXPECT_NE(GetLastErrorText().find("checker.cfg"), std::string::npos);
    }
    for (const std::string& damaged : {whole + "x", std::string("\xFF\xFF\xFF\xFF", 4) + whole.substr(4),
                                       whole.substr(0, 4) + std::string("\xFF\xFF\xFF\x7F", 4) + whole.substr(8)}) {
        MakeFile("checker.cfg", damaged);
        EXPECT_FALSE(other.LoadIfChanged());
        EXPECT_EQ(other.GetChecks().size(), 2U);  // goes on with what it has
        EXPECT_TRUE(other.LoadIfChanged());       // and says so once
        ASSERT_TRUE(ReadWholeFile(InFolder("checker.cfg"), content));
        EXPECT_EQ(content, damaged);
    }
    m_checker.SetChecks({{"x", 1, 1}});
    ASSERT_TRUE(m_checker.Save());
    ASSERT_TRUE(other.LoadIfChanged());
    EXPECT_EQ(other.GetChecks().size(), 1U);
    EXPECT_TRUE(Platform::RemoveFile(InFolder("checker.cfg")));
    EXPECT_TRUE(other.LoadIfChanged());
    EXPECT_EQ(other.GetChecks().size(), 0U);
}

TEST_F(DispatchCheck, HostNamesStayInTheFolder) {
    m_checker.SetChecks({{"../../evil", 1, 1}});
    EXPECT_TRUE(m_checker.CanSend("../../evil", Now));
    EXPECT_FALSE(m_checker.CanSend("../../EVIL", Now + 1));
    EXPECT_EQ(CountFilesUnder(m_folder, ".log"), 1U);
}

}  // namespace

}  // namespace SendDaemon
