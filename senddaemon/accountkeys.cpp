#include "senddaemon/accountkeys.h"

#include <algorithm>
#include <array>

#include "senddaemon/retryschedule.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

using enum AccountValueKind;

constexpr std::string_view TlsModes = "None|Opportunistic|Required|Implicit";

constexpr auto Keys = std::to_array<CAccountKey>({
    {"SendMethod", Choice, "", "", "how messages go out: a relay, the recipients' mail exchangers, or a folder",
     "list set LIST directDelivery", "SmtpMessageSender2|DirectMessageSender|NullMessageSender"},
    {"MaxConnections", Number, "1", "", "messages sent at the same time", "list set LIST maxConnections", {}, 1, 1000},
    {"MaxMessagesPerConnection",
     Number,
     "999",
     "",
     "messages sent over one connection; 0: the default",
     "list set LIST maxMessagesPerConnection",
     {},
     0,
     1000000},
    {"Timeout",
     Number,
     "60",
     "seconds",
     "longest wait for a connection, for a reply, for a block to be taken",
     "settings set Service SmtpTimeout",
     {},
     1,
     86400},
    {"DataTimeout",
     Number,
     "600",
     "seconds",
     "longest wait for the reply to a whole message; who waits less than the server needs sends twice",
     "",
     {},
     1,
     86400},
    {"Port", Number, "25", "", "port of SMTP servers", "settings set Service SmtpPort", {}, 1, 65535},
    {"HostPort", Number, "", "", "port of HostName, when it is not Port", "", {}, 1, 65535},
    {"TlsMode", Choice, "Opportunistic", "",
     "None; Opportunistic: when offered, with any certificate; Required: STARTTLS, verified; Implicit: TLS from the "
     "first byte, verified",
     "", TlsModes},
    {"TlsCaFile", Text, "", "",
     "PEM file of the authorities to trust, relative: in the data folder; empty: those of the system", ""},
    {"HeloName", Text, "", "", "name that this host gives itself in EHLO; empty: its own", ""},
    {"KeepHeaders", FieldNames, DefaultKeepHeaders, "", "further header fields that go along, separated by commas", ""},
    {"TurnOffDeliveryNotifications", Choice, "False", "",
     "True: servers are asked for no delivery status notifications", "(always False)", "False|True"},
    {"EnableTrace",
     Number,
     "0",
     "",
     "1: conversations are written to Logs/SmtpTrace.txt, copies kept in Logs/Sent",
     "",
     {},
     0,
     1},
    {"HostName", Text, "", "", "SMTP server, or the fall-back relay of direct delivery; delivery limits go by it",
     "list set LIST smtpHost (relayHost)"},
    {"Login", Text, "", "", "user name there; empty: no log-in", "list set LIST smtpLogin (relayLogin)"},
    {"Password", Secret, "", "", "its password, in plain text", "list set LIST smtpPassword (relayPassword)"},
    {"PopHostName", Text, "", "", "POP3 server to log in to before; empty: none", "list set LIST popHost"},
    {"PopPort", Number, "", "", "its port; empty: that of [Service] Pop3Port", "", {}, 1, 65535},
    {"PopTlsMode", Choice, "Opportunistic", "", "as TlsMode, for the POP3 server", "", TlsModes},
    {"PopLogin", Text, "", "", "user name there", "list set LIST popLogin"},
    {"PopPassword", Secret, "", "", "its password, in plain text", "list set LIST popPassword"},
    {"DnsHostAddress", Text, "", "", "name server of direct delivery; empty: the system's", "list set LIST dnsServer"},
    {"DnsPort", Number, "0", "", "its port; 0: the usual one", "settings set Service DnsPort", {}, 0, 65535},
    {"DnsTimeout",
     Number,
     "10",
     "seconds",
     "longest wait for an answer",
     "settings set Service DnsTimeout",
     {},
     1,
     86400},
    {"DnsRetries", Number, "4", "", "how often it is asked again", "settings set Service DnsRetries", {}, 0, 100},
    {"DnsUseFallback",
     Number,
     "0",
     "",
     "1: through HostName when a domain's mail exchangers cannot be found",
     "list set LIST dnsUseFallback",
     {},
     0,
     1},
    {"RetryTemporary",
     Number,
     "0",
     "",
     "1: what fails for now is tried again later; 0: it goes to .Errors. New lists have 1",
     "",
     {},
     0,
     1},
    {"RetrySchedule", Schedule, "5m,15m,30m,1h,2h,4h,8h", "",
     "times after the first, second ... failed attempt; the last one repeats", ""},
    {"SaveSentMessages", Number, "0", "", "1: sent messages are kept in .Sent", "", {}, 0, 1},
    {"BeingUnregistered", Text, "", "", "anything: the account is being removed, and sends nothing more", ""},
    {"TargetFolder", Text, "", "",
     "null sender: the folder that gets the messages, relative: in the data folder; without it all fail", ""},
    {"NullSenderWait", Number, "300", "milliseconds", "null sender: pause after each message", "", {}, 0, 3600000},
});

bool AreFieldNames(std::string_view value) {
    for (const std::string_view each : Split(value, ',')) {
        const std::string_view name = Trim(each);
        const auto isOfName = [](char c) { return c > 32 && c < 127 && c != ':'; };  // RFC 5322, 3.6.8
        if (!std::all_of(name.begin(), name.end(), isOfName)) return false;
    }
    return true;
}

}  // namespace

std::span<const CAccountKey> GetAccountKeys() noexcept {
    return Keys;
}

const CAccountKey* FindAccountKey(std::string_view name) noexcept {
    const auto found =
        std::find_if(Keys.begin(), Keys.end(), [&](const CAccountKey& key) { return EqualNoCase(key.name, name); });
    return found == Keys.end() ? nullptr : &*found;
}

bool IsAccountValue(const CAccountKey& key, std::string_view value, std::string& reason) {
    if (value.empty() && key.name != "SendMethod") return true;
    if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) {
        reason = "must be one line";
        return false;
    }
    if (key.kind == Number) {
        const auto number = ParseNumber(value);
        if (number && *number >= key.lowest && *number <= key.highest) return true;
        reason = "must be a number from " + std::to_string(key.lowest) + " to " + std::to_string(key.highest);
        return false;
    }
    if (key.kind == Choice) {
        for (const std::string_view choice : Split(key.choices, '|')) {
            if (choice == value) return true;
        }
        reason = "must be one of " + std::string(key.choices);
        ReplaceAll(reason, "|", ", ");
        return false;
    }
    if (key.kind == Schedule && !CRetrySchedule().Parse(value)) {
        reason = "must be times such as 5m,1h,8h";
        return false;
    }
    if (key.kind == FieldNames && !AreFieldNames(value)) {
        reason = "must be names of header fields, separated by commas";
        return false;
    }
    return true;
}

}  // namespace SendDaemon
