#include "app/settings.h"

#include "app/datafolder.h"
#include "platform/file.h"
#include "platform/profilefile.h"
#include "utility/lasterror.h"

int ReadSetting(std::string_view section, std::string_view key, int defaultValue) {
    return Platform::ReadProfileNumber(GetConfigFileName(), section, key, defaultValue);
}

bool WriteSetting(std::string_view section, std::string_view key, int value) {
    return WriteSettingText(section, key, std::to_string(value));
}

std::string ReadSettingText(std::string_view section, std::string_view key, std::string_view defaultValue) {
    return Platform::ReadProfileText(GetConfigFileName(), section, key, defaultValue);
}

bool WriteSettingText(std::string_view section, std::string_view key, std::string_view value) {
    if (Platform::WriteProfileText(GetConfigFileName(), section, key, value)) return true;
    SetLastErrorFromSystem();
    return false;
}

void ApplyDurabilitySetting() {
    Platform::SetFlushEnabled(ReadSetting("Execution", "SyncFiles", 1) != 0);
}
