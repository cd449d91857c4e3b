// accountkeys.h - every key of an account's configuration: meaning, default, and
// where its value comes from.
//
// docs/settings.md is held against this table.

#ifndef LISTHAVEN_SENDDAEMON_ACCOUNTKEYS_H
#define LISTHAVEN_SENDDAEMON_ACCOUNTKEYS_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace SendDaemon {

// KeepHeaders of an account that says nothing: without these fields an automatic
// message could be answered, and a redirected one go round.
inline constexpr std::string_view DefaultKeepHeaders = "Auto-Submitted, Precedence, Resent-From";

// KeepHeaders of new lists: by these fields programs know list mail, and readers
// put what belongs together in one thread.
inline constexpr std::string_view ListKeepHeaders =
    "Message-ID, In-Reply-To, References, Auto-Submitted, Precedence, Resent-From, List-Id, List-Help, List-Post, "
    "List-Subscribe, List-Unsubscribe, List-Owner";

enum class AccountValueKind : std::uint8_t {
    Text,
    Secret,
    Number,  // in the range
    Choice,  // one of the names, separated by "|"
    Schedule,
    FieldNames,  // of header fields, separated by commas
};

struct CAccountKey {
    std::string_view name;
    AccountValueKind kind;
    std::string_view defaultValue;
    std::string_view unit;
    std::string_view meaning;
    // Written anew from there each time sending starts; "": only here.
    std::string_view source;
    std::string_view choices = {};
    std::int32_t lowest = 0;
    std::int32_t highest = 2147483647;
};

std::span<const CAccountKey> GetAccountKeys() noexcept;
const CAccountKey* FindAccountKey(std::string_view name) noexcept;  // without regard to case; nullptr: none

// "" resets to the default, for every key but SendMethod.  reason: why not.
bool IsAccountValue(const CAccountKey& key, std::string_view value, std::string& reason);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_ACCOUNTKEYS_H
