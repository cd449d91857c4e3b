#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "senddaemon/accountkeys.h"
#include "senddaemon/configuration.h"
#include "sourcefolder.h"
#include "utility/files.h"
#include "utility/text.h"

namespace SendDaemon {

TEST(AccountKeys, ValuesAreCheckedByKey) {
    using Values = std::vector<std::pair<const char*, const char*>>;
    const Values good = {{"tlsmode", "Required"},    {"TlsMode", ""},       {"Timeout", "60"},
                         {"RetrySchedule", "5m,1h"}, {"Password", "a b|c"}, {"KeepHeaders", "List-Id, X-A"}};
    const Values bad = {{"TlsMode", "required"}, {"SendMethod", ""},       {"Timeout", "0"},
                        {"Timeout", "60s"},      {"HostPort", "65536"},    {"RetrySchedule", "soon"},
                        {"HeloName", "a\r\nb"},  {"KeepHeaders", "X-A: b"}};
    for (const Values& values : {good, bad}) {
        for (const auto& [name, value] : values) {
            const CAccountKey* key = FindAccountKey(name);
            ASSERT_NE(key, nullptr) << name;
            std::string reason;
            EXPECT_EQ(IsAccountValue(*key, value, reason), values == good) << name << "=" << value;
            EXPECT_EQ(reason.empty(), values == good);
        }
    }
    EXPECT_EQ(FindAccountKey("TlsModes"), nullptr);
}

// docs/settings.md has a row for every key, with its default, and no other.
TEST(AccountKeys, AreWhatIsDocumented) {
    std::string text;
    ASSERT_TRUE(ReadWholeFile(LISTHAVEN_SOURCE_DIR "/docs/settings.md", text));
    const std::size_t start = text.find("## Each list's account");
    ASSERT_NE(start, std::string::npos);
    std::map<std::string, std::string> documented;
    for (const std::string_view line : Split(std::string_view(text).substr(start), '\n')) {
        const std::vector<std::string_view> cells = Split(line, '|');
        if (cells.size() == 6 && Trim(cells[1]) != "Key" && !cells[1].starts_with("---"))
            documented[std::string(Trim(cells[1]))] = Trim(cells[2]);
    }
    for (const CAccountKey& key : GetAccountKeys()) {
        const std::string name(key.name);
        EXPECT_TRUE(CConfiguration::IsValidKey(name));
        EXPECT_EQ(documented[name], key.defaultValue.empty() ? "(empty)" : "`" + std::string(key.defaultValue) + "`")
            << name;
        documented.erase(name);
    }
    for (const auto& [name, value] : documented)
        ADD_FAILURE() << "no such key: " << name;
}

}  // namespace SendDaemon
