// settingslist.h - every setting of "Lhv.cfg", with its default and its meaning.
//
// The table is what docs/settings.md is held against, and what the commands
// check values by.

#ifndef LISTHAVEN_APP_SETTINGSLIST_H
#define LISTHAVEN_APP_SETTINGSLIST_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

enum class ProgramSettingKind {
    Flag,    // 0 or 1
    Number,  // decimal, in the range
    Text,
};

struct CSettingDescription {
    std::string_view section;
    std::string_view key;
    ProgramSettingKind kind;
    std::string_view defaultValue;
    std::string_view meaning;
    std::int32_t lowest = 0;
    std::int32_t highest = 1;
};

inline constexpr std::int32_t LargestNumber = 2147483647;

inline constexpr auto SettingsList = std::to_array<CSettingDescription>({
    {"General", "ShowSplash", ProgramSettingKind::Flag, "1", "show the splash picture at start"},
    {"General", "SaveLayout", ProgramSettingKind::Flag, "1", "keep the window layout between runs"},
    {"Execution", "WasShutDown", ProgramSettingKind::Flag, "1", "1 after a clean shutdown, 0 while the program runs"},
    {"Execution", "Configured", ProgramSettingKind::Flag, "0", "1 once the first-run set-up has been completed"},
    {"Execution", "DebugMode", ProgramSettingKind::Number, "0", "depth of debug logging: none, some, all", 0, 2},
    {"Execution", "SyncFiles", ProgramSettingKind::Flag, "1",
     "flush what is written to the disk; 0 trades safety for speed"},
    {"Execution", "GenerationPause", ProgramSettingKind::Number, "10",
     "milliseconds to pause after each generated copy", 0, 60000},
    {"Execution", "UpgradePause", ProgramSettingKind::Number, "50", "milliseconds to pause after each upgraded record",
     0, 60000},
    {"Service", "EnableLogging", ProgramSettingKind::Flag, "1", "write the event log"},
    {"Service", "LogErrorsOnly", ProgramSettingKind::Flag, "0", "log only errors"},
    {"Service", "LimitLogSize", ProgramSettingKind::Flag, "1", "trim the event log when it is larger than MaxLogSize"},
    {"Service", "MaxLogSize", ProgramSettingKind::Number, "1024", "largest event log, in kilobytes", 1, LargestNumber},
    {"Service", "UsePeriod", ProgramSettingKind::Flag, "1", "process mail every Period minutes; 0: by Schedule"},
    {"Service", "Period", ProgramSettingKind::Number, "60", "minutes between two mail-processing cycles", 1, 100000},
    {"Service", "Schedule", ProgramSettingKind::Text, "", "times of day, such as 10;11:30;23"},
    {"Service", "Pop3Port", ProgramSettingKind::Number, "110", "POP3 port", 1, 65535},
    {"Service", "Pop3Timeout", ProgramSettingKind::Number, "60", "POP3 time-out in seconds", 1, 86400},
    {"Service", "LimitPop3MessageSize", ProgramSettingKind::Flag, "0", "limit the size of incoming messages"},
    {"Service", "MaxPop3MessageSize", ProgramSettingKind::Number, "5120000", "that limit, in bytes", 1, LargestNumber},
    {"Service", "RemoveTooLargePop3Message", ProgramSettingKind::Flag, "0",
     "remove a too large message from the server"},
    {"Service", "TooLargeReply", ProgramSettingKind::Text, "toolarge.dat", "the message that its sender gets"},
    {"Service", "KeepUIDLs", ProgramSettingKind::Flag, "0", "remember which messages on the server have been seen"},
    {"Service", "SaveIncoming", ProgramSettingKind::Flag, "0", "keep a copy of each fetched message"},
    {"Service", "SmtpPort", ProgramSettingKind::Number, "25", "SMTP port", 1, 65535},
    {"Service", "SmtpTimeout", ProgramSettingKind::Number, "60", "SMTP time-out in seconds", 1, 86400},
    {"Service", "ExpireOutgoingMessages", ProgramSettingKind::Flag, "0", "give up messages that wait too long"},
    {"Service", "ExpireOutgoingAfter", ProgramSettingKind::Number, "7", "how long, in units of ExpireOutgoingUnit", 1,
     100000},
    {"Service", "ExpireOutgoingUnit", ProgramSettingKind::Number, "2", "0 minutes, 1 hours, 2 days", 0, 2},
    {"Service", "DnsPort", ProgramSettingKind::Number, "0", "port of the DNS server; 0: the usual one", 0, 65535},
    {"Service", "DnsTimeout", ProgramSettingKind::Number, "10", "DNS time-out in seconds", 1, 86400},
    {"Service", "DnsRetries", ProgramSettingKind::Number, "4", "how often a DNS server is asked", 1, 100},
    {"Service", "Mailer", ProgramSettingKind::Text, "", "the X-Mailer header; empty: the product's name and version"},
    {"Service", "CapitalizeNames", ProgramSettingKind::Flag, "1",
     "capitalise the parts of a name before they are inserted"},
    {"Service", "SignatureLifetime", ProgramSettingKind::Number, "14", "days for which a signed subject is accepted", 1,
     3650},
    {"Log Details Window", "LoadAtStartup", ProgramSettingKind::Flag, "0", "open the event-log window at start"},
    {"Log Details Window", "ShowAtStartup", ProgramSettingKind::Flag, "0", "show it, rather than keep it hidden"},
    {"AutoComplete", "MaxAddressCount", ProgramSettingKind::Number, "50", "how many recently used addresses are kept",
     0, 10000},
    {"AutoComplete", "AddressCount", ProgramSettingKind::Number, "0", "how many are stored, as Address0, Address1, ...",
     0, 10000},
});

namespace Detail {

constexpr bool SettingsAreDistinct() {
    for (std::size_t i = 0; i < SettingsList.size(); ++i) {
        for (std::size_t k = i + 1; k < SettingsList.size(); ++k) {
            if (SettingsList[i].section == SettingsList[k].section && SettingsList[i].key == SettingsList[k].key)
                return false;
        }
    }
    return true;
}
static_assert(SettingsAreDistinct(), "a setting stands twice in the list");

}  // namespace Detail

// nullptr when there is none; names compare without regard to case.
const CSettingDescription* FindSetting(std::string_view section, std::string_view key);

bool IsSettingValue(const CSettingDescription& setting, std::string_view value, std::string& reason);

#endif  // LISTHAVEN_APP_SETTINGSLIST_H
