#include <gtest/gtest.h>

#include <map>
#include <string>

#include "senddaemon/accountkeys.h"
#include "senddaemon/configuration.h"
#include "utility/files.h"
#include "utility/text.h"

namespace SendDaemon {

TEST(AccountKeys, ValuesAreCheckedByKey) {
    const struct {
        const char* key;
        const char* value;
        bool isGood;
    } rows[] = {{"tlsmode", "Required", true},
                {"TlsMode", "required", false},
                {"TlsMode", "", true},
                {"SendMethod", "", false},
                {"Timeout", "0", false},
                {"Timeout", "60", true},
                {"Timeout", "60s", false},
                {"HostPort", "65536", false},
                {"RetrySchedule", "5m,1h", true},
                {"RetrySchedule", "soon", false},
                {"HeloName", "a\r\nb", false},
                {"Password", "a b|c", true},
                {"KeepHeaders", "List-Id, X-A", true},
                {"KeepHeaders", "X-A: b", false}};
    for (const auto& row : rows) {
        const CAccountKey* key = FindAccountKey(row.key);
        ASSERT_NE(key, nullptr) << row.key;
        std::string reason;
        EXPECT_EQ(IsAccountValue(*key, row.value, reason), row.isGood) << row.key << "=" << row.value;
        EXPECT_EQ(reason.empty(), row.isGood);
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
