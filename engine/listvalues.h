// listvalues.h - what a setting of a list may hold.
//
// Errors   CLhvException, one sentence that names the setting.

#ifndef LISTHAVEN_ENGINE_LISTVALUES_H
#define LISTHAVEN_ENGINE_LISTVALUES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "engine/listsettings.h"

// In the form in which they are stored.
std::string AcceptText(const ListSetting& setting, std::string_view value);
std::int64_t AcceptNumber(const ListSetting& setting, std::int64_t value);

bool HoldsNumber(SettingKind kind) noexcept;  // Number, Flag, ListKind

std::int64_t ParseSettingNumber(const ListSetting& setting, std::string_view text);  // in the words of a command

// One line of several "Key: address"; an empty address removes it.
std::string WithListAddress(std::string_view listAddresses, std::string_view key, std::string_view address);

#endif  // LISTHAVEN_ENGINE_LISTVALUES_H
