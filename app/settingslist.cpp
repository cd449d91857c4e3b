#include "app/settingslist.h"

#include "utility/text.h"

const CSettingDescription* FindSetting(std::string_view section, std::string_view key) {
    for (const CSettingDescription& setting : SettingsList) {
        if (EqualNoCase(setting.section, section) && EqualNoCase(setting.key, key)) return &setting;
    }
    return nullptr;
}

bool IsSettingValue(const CSettingDescription& setting, std::string_view value, std::string& reason) {
    if (setting.kind == ProgramSettingKind::Text) {
        if (value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos) return true;
        reason = "must be one line";
        return false;
    }
    const auto number = ParseNumber(value);
    if (number && *number >= setting.lowest && *number <= setting.highest) return true;
    reason = "must be a number from " + std::to_string(setting.lowest) + " to " + std::to_string(setting.highest);
    return false;
}
