// settings.h - the settings of both programs: one key at a time, from "Lhv.cfg".
//
// Read each time they are needed, so a change holds at once in every program.
//
// Errors   Reading yields the default; writing returns false with the reason in
//          the last-error text.
// Threads  Any.

#ifndef LISTHAVEN_APP_SETTINGS_H
#define LISTHAVEN_APP_SETTINGS_H

#include <string>
#include <string_view>

int ReadSetting(std::string_view section, std::string_view key, int defaultValue);
bool WriteSetting(std::string_view section, std::string_view key, int value);
std::string ReadSettingText(std::string_view section, std::string_view key, std::string_view defaultValue);
bool WriteSettingText(std::string_view section, std::string_view key, std::string_view value);

// [Execution] SyncFiles: whether this process flushes what it writes.
void ApplyDurabilitySetting();

#endif  // LISTHAVEN_APP_SETTINGS_H
