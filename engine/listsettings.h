// listsettings.h - the settings of a list: column, key, kind, range.

#ifndef LISTHAVEN_ENGINE_LISTSETTINGS_H
#define LISTHAVEN_ENGINE_LISTSETTINGS_H

#include <array>
#include <cstdint>
#include <string_view>

// The numbers are those of the columns of LISTS.CST.
enum class ListColumn : int {
    Name = 1,
    ListAddresses = 2,
    Kind = 3,
    LastCycle = 4,
    Number = 5,
    SmtpHost = 6,
    SmtpLogin = 7,
    SmtpPassword = 8,
    SmtpNeedsLogin = 9,
    PopHost = 10,
    PopLogin = 11,
    PopPassword = 12,
    Guid = 13,
    Usage = 14,
    Enabled = 15,
    PopBeforeSmtp = 16,
    LeaveCopies = 17,
    RemoveMatched = 18,
    LoopProtection = 19,
    RedirectLoops = 20,
    RedirectAddress = 21,
    RemoveLoops = 22,
    LimitHours = 23,
    LimitFrom = 24,
    LimitTo = 25,
    LimitDays = 26,
    EmptySender = 27,
    MaxConnections = 28,
    DirectDelivery = 29,
    DnsServer = 30,
    DigestByCount = 31,
    DigestCount = 32,
    DnsUseFallback = 33,
    RelayHost = 34,
    RelayNeedsLogin = 35,
    RelayLogin = 36,
    RelayPassword = 37,
    RelayPopBeforeSmtp = 38,
    MaxMessagesPerConnection = 39,
    DigestByTime = 40,
    DigestHours = 41,
    Created = 42,
    Moderated = 43,
};

enum class SettingKind {
    Text,       // one line
    LongText,   // may hold line ends
    Addresses,  // lines "Key: address"
    Number,
    Flag,
    Time,      // hours:minutes, 00:00 to 23:59
    ListKind,  // discussion, announcement, autoresponder
    Secret,    // a password: set, never shown
    Fixed,     // cannot be set
};

struct ListSetting {
    ListColumn column;
    std::string_view key;
    SettingKind kind;
    std::int64_t least;  // numbers: the range; texts: 0 and the limit in bytes
    std::int64_t most;
    std::string_view meaning;
};

inline constexpr std::int64_t MaxSeconds = 253402300799;  // end of the year 9999

inline constexpr std::array ListSettings = {
    ListSetting{ListColumn::Name, "name", SettingKind::Text, 0, 256, "list name; also the display name"},
    ListSetting{ListColumn::ListAddresses, "listAddresses", SettingKind::Addresses, 0, 1024,
                "lines Key: address; keys List, Command, Authorized, Post"},
    ListSetting{ListColumn::Kind, "kind", SettingKind::ListKind, 0, 2, "discussion, announcement or autoresponder"},
    ListSetting{ListColumn::LastCycle, "lastCycle", SettingKind::Number, 0, MaxSeconds,
                "time of the last mail-processing cycle, seconds since 1970"},
    ListSetting{ListColumn::Number, "number", SettingKind::Fixed, 0, 0, "names the files of the list"},
    ListSetting{ListColumn::SmtpHost, "smtpHost", SettingKind::Text, 0, 128, "SMTP server"},
    ListSetting{ListColumn::SmtpLogin, "smtpLogin", SettingKind::Text, 0, 64, "its user name"},
    ListSetting{ListColumn::SmtpPassword, "smtpPassword", SettingKind::Secret, 0, 64, "its password"},
    ListSetting{ListColumn::SmtpNeedsLogin, "smtpNeedsLogin", SettingKind::Flag, 0, 1, "log in before sending"},
    ListSetting{ListColumn::PopHost, "popHost", SettingKind::Text, 0, 128, "POP3 server"},
    ListSetting{ListColumn::PopLogin, "popLogin", SettingKind::Text, 0, 64, "its user name"},
    ListSetting{ListColumn::PopPassword, "popPassword", SettingKind::Secret, 0, 64, "its password"},
    ListSetting{ListColumn::Guid, "guid", SettingKind::Fixed, 0, 0, "identifier of the list"},
    ListSetting{ListColumn::Usage, "usage", SettingKind::LongText, 0, 4096, "usage instructions, $(List-Usage)"},
    ListSetting{ListColumn::Enabled, "enabled", SettingKind::Flag, 0, 1, "takes part in cycles and sending"},
    ListSetting{ListColumn::PopBeforeSmtp, "popBeforeSmtp", SettingKind::Flag, 0, 1,
                "log in to the POP3 server before sending"},
    ListSetting{ListColumn::LeaveCopies, "leaveCopies", SettingKind::Flag, 0, 1,
                "leave copies of messages on the POP3 server"},
    ListSetting{ListColumn::RemoveMatched, "removeMatched", SettingKind::Flag, 0, 1,
                "do not leave a copy of a message that matches a rule"},
    ListSetting{ListColumn::LoopProtection, "loopProtection", SettingKind::Number, 0, 11,
                "sum of 1, 2 and 8; or high, normal, none"},
    ListSetting{ListColumn::RedirectLoops, "redirectLoops", SettingKind::Flag, 0, 1, "redirect looping messages"},
    ListSetting{ListColumn::RedirectAddress, "redirectAddress", SettingKind::Text, 0, 256, "where to"},
    ListSetting{ListColumn::RemoveLoops, "removeLoops", SettingKind::Flag, 0, 1,
                "remove an ignored message from the server"},
    ListSetting{ListColumn::LimitHours, "limitHours", SettingKind::Flag, 0, 1,
                "process mail only between two times of day"},
    ListSetting{ListColumn::LimitFrom, "limitFrom", SettingKind::Time, 0, 40, "from this time"},
    ListSetting{ListColumn::LimitTo, "limitTo", SettingKind::Time, 0, 40, "to this time"},
    ListSetting{ListColumn::LimitDays, "limitDays", SettingKind::Number, 0, 127,
                "on these days: sum of 1 (Monday) to 64 (Sunday)"},
    ListSetting{ListColumn::EmptySender, "emptySender", SettingKind::Flag, 0, 1,
                "send messages with an empty envelope sender"},
    ListSetting{ListColumn::MaxConnections, "maxConnections", SettingKind::Number, 1, 100,
                "number of simultaneous SMTP connections"},
    ListSetting{ListColumn::DirectDelivery, "directDelivery", SettingKind::Flag, 0, 1,
                "deliver to the recipients' mail exchangers"},
    ListSetting{ListColumn::DnsServer, "dnsServer", SettingKind::Text, 0, 128, "DNS server for that"},
    ListSetting{ListColumn::DigestByCount, "digestByCount", SettingKind::Flag, 0, 1,
                "send the digest when so many messages have been collected"},
    ListSetting{ListColumn::DigestCount, "digestCount", SettingKind::Number, 0, 2147483647, "that number"},
    ListSetting{ListColumn::DnsUseFallback, "dnsUseFallback", SettingKind::Flag, 0, 1,
                "use the relay when direct delivery fails"},
    ListSetting{ListColumn::RelayHost, "relayHost", SettingKind::Text, 0, 128, "fall-back relay of direct delivery"},
    ListSetting{ListColumn::RelayNeedsLogin, "relayNeedsLogin", SettingKind::Flag, 0, 1, "log in to the relay"},
    ListSetting{ListColumn::RelayLogin, "relayLogin", SettingKind::Text, 0, 64, "its user name"},
    ListSetting{ListColumn::RelayPassword, "relayPassword", SettingKind::Secret, 0, 64, "its password"},
    ListSetting{ListColumn::RelayPopBeforeSmtp, "relayPopBeforeSmtp", SettingKind::Flag, 0, 1,
                "log in to the POP3 server before using the relay"},
    ListSetting{ListColumn::MaxMessagesPerConnection, "maxMessagesPerConnection", SettingKind::Number, 0, 99999999,
                "messages per SMTP connection"},
    ListSetting{ListColumn::DigestByTime, "digestByTime", SettingKind::Flag, 0, 1, "send the digest by time"},
    ListSetting{ListColumn::DigestHours, "digestHours", SettingKind::Number, 0, 2147483647,
                "hours between two digests"},
    ListSetting{ListColumn::Created, "created", SettingKind::Fixed, 0, MaxSeconds,
                "time of creation, seconds since 1970"},
    ListSetting{ListColumn::Moderated, "moderated", SettingKind::Flag, 0, 1, "messages wait for the moderator"},
};

static_assert(ListSettings.size() == 43);
static_assert([] {
    for (std::size_t i = 0; i < ListSettings.size(); ++i) {
        if (static_cast<std::size_t>(ListSettings[i].column) != i + 1) return false;
    }
    return true;
}());

constexpr const ListSetting& SettingOf(ListColumn column) {
    return ListSettings[static_cast<std::size_t>(column) - 1];
}

const ListSetting* FindListSetting(std::string_view key) noexcept;  // without regard to case; null when there is none

#endif  // LISTHAVEN_ENGINE_LISTSETTINGS_H
