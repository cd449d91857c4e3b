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
    std::string_view key;  // "%i" at its end stands for a number
    ProgramSettingKind kind;
    std::string_view defaultValue;
    std::string_view unit;
    std::string_view meaning;
    std::int32_t lowest = 0;
    std::int32_t highest = 1;
};

namespace Detail {

constexpr auto MakeSettingsList() {
    using enum ProgramSettingKind;
    constexpr std::int32_t LargestNumber = 2147483647;
    return std::to_array<CSettingDescription>({
        {"General", "ShowSplash", Flag, "1", "",
         "show the splash picture at start; becomes 0 when it cannot be created"},
        {"General", "SaveLayout", Flag, "1", "", "keep the window layout between runs"},
        {"Execution", "WasShutDown", Flag, "1", "", "1 after a clean shutdown, 0 while the program runs"},
        {"Execution", "Configured", Flag, "0", "", "1 once the first-run set-up has been completed"},
        {"Execution", "DebugMode", Number, "0", "", "depth of debug logging: 0 none, 1 some, 2 all", 0, 2},
        {"Execution", "SyncFiles", Flag, "1", "", "flush what is written to the disk; 0 trades safety for speed"},
        {"Execution", "GenerationPause", Number, "10", "milliseconds", "pause after each generated copy", 0, 60000},
        {"Execution", "UpgradePause", Number, "50", "milliseconds",
         "pause after each record of a table that is upgraded", 0, 60000},
        {"Service", "EnableLogging", Flag, "1", "", "write the event log"},
        {"Service", "LogErrorsOnly", Flag, "0", "", "log only errors"},
        {"Service", "LimitLogSize", Flag, "1", "", "trim the event log when it is larger than MaxLogSize"},
        {"Service", "MaxLogSize", Number, "1024", "kilobytes", "largest event log", 1, LargestNumber},
        {"Service", "UsePeriod", Flag, "1", "", "1: process mail every Period minutes; 0: by Schedule"},
        {"Service", "Period", Number, "60", "minutes", "time between two mail-processing cycles", 1, 100000},
        {"Service", "Schedule", Text, "", "", "times of day, such as 10;11:30;23"},
        {"Service", "Pop3Port", Number, "110", "", "POP3 port; 995: TLS from the first byte", 1, 65535},
        {"Service", "MailboxTime", Number, "120", "seconds",
         "time in which the server reads one mailbox before it turns to other lists; what is left comes then. At most "
         "twice that with what it takes to end, longer for a list that has got no message whole; 0: no limit",
         0, 86400},
        {"Service", "Pop3Timeout", Number, "60", "seconds", "POP3 time-out", 1, 86400},
        {"Service", "LimitPop3MessageSize", Flag, "0", "", "limit the size of incoming messages"},
        {"Service", "MaxPop3MessageSize", Number, "5120000", "bytes", "that limit", 1, LargestNumber},
        {"Service", "RemoveTooLargePop3Message", Flag, "0", "", "remove a too large message from the server"},
        {"Service", "TooLargeReply", Text, "toolarge.dat", "", "the message template that its sender gets"},
        {"Service", "KeepUIDLs", Flag, "0", "",
         "remember processed messages for 90 days, not 7, after the server has listed them last"},
        {"Service", "SaveIncoming", Flag, "0", "", "keep a copy of each fetched message, in Archive/n/Received"},
        {"Service", "SmtpPort", Number, "25", "", "SMTP port", 1, 65535},
        {"Service", "SmtpTimeout", Number, "60", "seconds", "SMTP time-out", 1, 86400},
        {"Service", "ExpireOutgoingMessages", Flag, "0", "", "give up messages that wait too long to be sent"},
        {"Service", "ExpireOutgoingAfter", Number, "7", "", "how long, in units of ExpireOutgoingUnit", 1, 100000},
        {"Service", "ExpireOutgoingUnit", Number, "2", "", "0 minutes, 1 hours, 2 days", 0, 2},
        {"Service", "DnsPort", Number, "0", "", "port of the DNS server; 0: the usual one", 0, 65535},
        {"Service", "DnsTimeout", Number, "10", "seconds", "DNS time-out", 1, 86400},
        {"Service", "DnsRetries", Number, "4", "", "how often a DNS server is asked again", 0, 100},
        {"Service", "DeliveryLogSize", Number, "65536", "kilobytes", "largest delivery log of a list; 0: no limit", 0,
         LargestNumber},
        {"Service", "DeliveryLogFiles", Number, "9", "", "how many older delivery logs are kept; 0: all", 0, 100000},
        {"Service", "KeepBroadcasts", Number, "30", "days", "how long ended broadcasts are kept; 0: for ever", 0,
         36500},
        {"Service", "Mailer", Text, "", "", "the X-Mailer header; empty: the product's name and version"},
        {"Service", "CapitalizeNames", Flag, "1", "", "capitalise the parts of a name before they are inserted"},
        {"Service", "SignatureLifetime", Number, "14", "days", "how long a signed subject is accepted", 1, 3650},
        {"Service", "ReplyInterval", Number, "24", "hours",
         "time in which a rule answers the same sender once; 0: always. Also time in which a member's post with the "
         "text of an earlier one waits for the moderator; 0: a day",
         0, 100000},
        {"Service", "SoftBounceLimit", Number, "5", "",
         "soft bounces within 30 days that make a member inactive; 0: none do", 0, 100000},
        {"Service", "DeliveryNotifications", Number, "1", "",
         "delivery status notifications in the mailbox; 0: leave them on the server, 1: process them like regular "
         "messages, 2: quietly delete them from the server",
         0, 2},
        {"Service", "KeepBounces", Number, "365", "days", "how long bounces are kept; 0: for ever", 0, 36500},
        {"Log Details Window", "LoadAtStartup", Flag, "0", "", "open the event-log window at start"},
        {"Log Details Window", "ShowAtStartup", Flag, "0", "", "show it then, rather than keep it hidden"},
        {"AutoComplete", "MaxAddressCount", Number, "50", "", "how many recently used addresses are kept", 0, 10000},
        {"AutoComplete", "AddressCount", Number, "0", "", "how many are stored", 0, 10000},
        {"AutoComplete", "Address%i", Text, "", "", "the stored addresses: Address0, Address1, and so on"},
    });
}

}  // namespace Detail

inline constexpr auto SettingsList = Detail::MakeSettingsList();

// nullptr when there is none; names compare without regard to case, and
// "Address7" is found as "Address%i".
const CSettingDescription* FindSetting(std::string_view section, std::string_view key);

bool IsSettingValue(const CSettingDescription& setting, std::string_view value, std::string& reason);

#endif  // LISTHAVEN_APP_SETTINGSLIST_H
