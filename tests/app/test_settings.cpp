#include <gtest/gtest.h>

#include <map>

#include "app/datafolder.h"
#include "app/settings.h"
#include "app/settingslist.h"
#include "platform/faultplan.h"
#include "platform/filestatus.h"
#include "sourcefolder.h"
#include "tests/platform/temporaryfolder.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/text.h"

TEST(Settings, AreReadAndWrittenOneByOne) {
    const CTemporaryFolder folder;
    UseDataFolder(folder.GetPath());
    EXPECT_EQ(ReadSetting("Service", "Period", 60), 60);
    EXPECT_EQ(ReadSettingText("Service", "Mailer", "none"), "none");
    EXPECT_FALSE(Platform::FileIsThere(GetConfigFileName()));

    Put(GetConfigFileName(), "; mine\n[Service]\nperiod = 015x\n");
    EXPECT_EQ(ReadSetting("SERVICE", "Period", 60), 15);
    ASSERT_TRUE(WriteSetting("Service", "Period", -3));
    EXPECT_EQ(ReadSetting("Service", "Period", 60), -3);
    EXPECT_EQ(Get(GetConfigFileName()).find("; mine\n"), 0U);

    // What another program writes holds at once.
    Put(GetConfigFileName(), "[Service]\nPeriod=7\n");
    EXPECT_EQ(ReadSetting("Service", "Period", 60), 7);

    const std::string before = Get(GetConfigFileName());
    const Platform::CFaultPlan plan(Platform::Operation::Write, 1);
    EXPECT_FALSE(WriteSetting("Service", "Period", 8));
    EXPECT_NE(DescribeLastError(), "No error description available");
    EXPECT_EQ(Get(GetConfigFileName()), before);
}

TEST(SettingsList, KnowsWhatAValueMayBe) {
    const struct {
        const char* section;
        const char* key;
        const char* value;
        bool isGood;
    } table[] = {
        {"Execution", "DebugMode", "2", true},      {"execution", "debugmode", "3", false},
        {"Service", "EnableLogging", "yes", false}, {"Service", "Pop3Port", "65536", false},
        {"Service", "Period", "", false},           {"Service", "Schedule", "10;11:30;23", true},
        {"Service", "Mailer", "a\nBcc: b", false},  {"AutoComplete", "Address17", "anna@example.org", true},
    };
    for (const auto& row : table) {
        const CSettingDescription* setting = FindSetting(row.section, row.key);
        ASSERT_TRUE(setting) << row.key;
        std::string reason;
        EXPECT_EQ(IsSettingValue(*setting, row.value, reason), row.isGood) << row.key << " " << row.value;
        EXPECT_EQ(reason.empty(), row.isGood);
    }
    for (const char* unknown : {"Address", "Address1x", "Addresses1"})
        EXPECT_FALSE(FindSetting("AutoComplete", unknown)) << unknown;
    EXPECT_FALSE(FindSetting("General", "DebugMode"));
}

// docs/settings.md has a row for every setting, with its default and unit, and no other.
TEST(SettingsList, IsWhatIsDocumented) {
    std::string text;
    ASSERT_TRUE(ReadWholeFile(LISTHAVEN_SOURCE_DIR "/docs/settings.md", text)) << GetLastErrorText();
    std::map<std::string, std::string> documented;
    for (const std::string_view line : Split(text, '\n')) {
        if (line.starts_with("## Each")) break;
        std::vector<std::string_view> cells = Split(line, '|');
        if (cells.size() != 7 || cells[1] == " Section " || cells[1].starts_with("---")) continue;
        for (std::string_view& cell : cells)
            cell = Trim(cell);
        EXPECT_FALSE(cells[5].empty()) << line;
        const auto [row, isNew] = documented.emplace(std::string(cells[1]) + "/" + std::string(cells[2]),
                                                     std::string(cells[3]) + " " + std::string(cells[4]));
        EXPECT_TRUE(isNew) << row->first;
    }
    for (const CSettingDescription& setting : SettingsList) {
        const std::string name = std::string(setting.section) + "/" + std::string(setting.key);
        const std::string value =
            setting.defaultValue.empty() ? "(empty)" : "`" + std::string(setting.defaultValue) + "`";
        EXPECT_EQ(documented[name], value + " " + (setting.unit.empty() ? "-" : std::string(setting.unit))) << name;
        documented.erase(name);
    }
    for (const auto& [name, value] : documented)
        ADD_FAILURE() << "no such setting: " << name;
}
