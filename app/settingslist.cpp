#include "app/settingslist.h"

#include "utility/text.h"

namespace {

constexpr std::string_view NumberMark = "%i";

constexpr bool IsKnownSection(std::string_view section) {
    constexpr std::array<std::string_view, 5> Sections = {"General", "Execution", "Service", "Log Details Window",
                                                          "AutoComplete"};
    for (const std::string_view known : Sections) {
        if (section == known) return true;
    }
    return false;
}

constexpr bool IsNumberWithin(std::string_view text, std::int64_t lowest, std::int64_t highest) {
    if (text.empty() || text.size() > 10) return false;
    std::int64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    return value >= lowest && value <= highest;
}

constexpr bool IsRowSound(const CSettingDescription& row) {
    return IsKnownSection(row.section) && !row.key.empty() && !row.meaning.empty() &&
           (row.kind == ProgramSettingKind::Text || IsNumberWithin(row.defaultValue, row.lowest, row.highest));
}

// The index of the first row that is wrong or stands twice; -1 when there is none.
constexpr int FindFault() {
    for (std::size_t i = 0; i < SettingsList.size(); ++i) {
        if (!IsRowSound(SettingsList[i])) return static_cast<int>(i);
        for (std::size_t k = 0; k < i; ++k) {
            if (SettingsList[i].section == SettingsList[k].section && SettingsList[i].key == SettingsList[k].key)
                return static_cast<int>(i);
        }
    }
    return -1;
}
static_assert(FindFault() == -1, "a setting is wrong, or stands twice in the list");

bool KeyFits(std::string_view known, std::string_view key) {
    if (!known.ends_with(NumberMark)) return EqualNoCase(known, key);
    known.remove_suffix(NumberMark.size());
    if (key.size() <= known.size() || !StartsWithNoCase(key, known)) return false;
    return key.find_first_not_of("0123456789", known.size()) == std::string_view::npos;
}

}  // namespace

const CSettingDescription* FindSetting(std::string_view section, std::string_view key) {
    for (const CSettingDescription& setting : SettingsList) {
        if (EqualNoCase(setting.section, section) && KeyFits(setting.key, key)) return &setting;
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
