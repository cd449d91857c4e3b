#include "senddaemon/smtpsettings.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "app/datafolder.h"
#include "app/settings.h"
#include "senddaemon/accountkeys.h"
#include "senddaemon/configuration.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::int32_t DefaultPort = 25;
constexpr std::int32_t DefaultPopPort = 110;
constexpr std::uint16_t ImplicitTlsPort = 995;
constexpr std::int32_t DefaultTimeout = 60;
constexpr std::int32_t LongestTimeout = 86400;
constexpr std::int32_t DefaultMessagesPerConnection = 999;

// RFC 5321, 4.5.3.2.6: who waits less for the reply to the data sends twice
// what a slow server takes.
constexpr std::int32_t LeastDataTimeout = 600;

bool ReadPort(const CConfiguration& config, std::string_view key, std::int32_t defaultValue, std::uint16_t& port) {
    std::int32_t value = defaultValue;
    if (!config.GetNumberWithin(key, 1, 65535, value)) return false;
    port = static_cast<std::uint16_t>(value);
    return true;
}

bool ReadTlsMode(const CConfiguration& config, std::string_view key, Net::TlsMode& mode) {
    std::string text;
    if (!config.GetValue(key, text)) return false;
    if (Net::ParseTlsMode(Trim(text), mode)) return true;
    SetLastErrorFormat("%s is \"%s\"; it must be None, Opportunistic, Required or Implicit.", std::string(key).c_str(),
                       text.c_str());
    return false;
}

bool ReadTimeouts(const CConfiguration& config, CSmtpSettings& settings) {
    settings.timeout = DefaultTimeout;
    if (!config.GetNumberWithin("Timeout", 1, LongestTimeout, settings.timeout)) return false;
    settings.dataTimeout = std::max(settings.timeout, LeastDataTimeout);
    return config.GetNumberWithin("DataTimeout", 1, LongestTimeout, settings.dataTimeout);
}

// "host", "host:port", "[address]:port" or an IPv6 address.
bool SplitHost(std::string_view text, std::string& host, std::uint16_t& port) {
    const std::size_t colon = text.rfind(':');
    const bool hasBrackets = text.starts_with('[');
    const bool hasPort = colon != std::string_view::npos &&
                         (hasBrackets ? text.substr(0, colon).ends_with(']') : text.find(':') == colon);
    host = hasPort ? text.substr(0, colon) : text;
    if (!hasPort) return true;
    const auto number = ParseNumber(text.substr(colon + 1));
    if (!number || *number < 1 || *number > 65535) {
        SetLastErrorFormat("\"%s\" is no POP3 server: behind the colon must be a port.", std::string(text).c_str());
        return false;
    }
    port = static_cast<std::uint16_t>(*number);
    return true;
}

bool ReadPop(const CConfiguration& config, CSmtpSettings& settings) {
    const std::string host(Trim(config.GetText("PopHostName")));
    if (host.empty()) return true;
    settings.popLogin = config.GetText("PopLogin");
    settings.popPassword = config.GetText("PopPassword");
    return settings.ReadPopFor(config, host);
}

}  // namespace

bool CSmtpSettings::ReadFor(const CConfiguration& config, const std::string& exchanger) {
    *this = {};
    hostName = exchanger;
    if (!ReadPort(config, "Port", DefaultPort, port) || !ReadTimeouts(config, *this) ||
        !ReadTlsMode(config, "TlsMode", tlsMode) || !config.GetFileName("TlsCaFile", tlsCaFile)) {
        return false;
    }
    heloName = Trim(config.GetText("HeloName"));
    maxMessagesPerConnection = config.GetNumber("MaxMessagesPerConnection");
    if (maxMessagesPerConnection <= 0) maxMessagesPerConnection = DefaultMessagesPerConnection;
    turnOffNotifications = config.GetText("TurnOffDeliveryNotifications") == "True";
    isTraced = config.GetNumber("EnableTrace") > 0;
    keepHeaders = config.GetText("KeepHeaders");
    if (Trim(keepHeaders).empty()) keepHeaders = DefaultKeepHeaders;
    return true;
}

bool CSmtpSettings::Read(const CConfiguration& config) {
    std::string host;
    if (!config.GetValue("HostName", host)) return false;
    host = Trim(host);
    if (host.empty()) {
        SetLastErrorText("No SMTP server is set for this account.");
        return false;
    }
    if (!ReadFor(config, host) || !ReadPort(config, "HostPort", port, port) || !ReadPop(config, *this)) return false;
    login = config.GetText("Login");
    password = config.GetText("Password");
    return true;
}

bool CSmtpSettings::ReadPopFor(const CConfiguration& config, const std::string& server) {
    if (!config.GetFileName("TlsCaFile", tlsCaFile)) return false;
    const int usualPort = std::clamp(ReadSetting("Service", "Pop3Port", DefaultPopPort), 1, 65535);
    if (!ReadPort(config, "PopPort", usualPort, popPort) || !ReadTlsMode(config, "PopTlsMode", popTlsMode) ||
        !SplitHost(server, popHostName, popPort)) {
        return false;
    }
    if (popPort == ImplicitTlsPort) popTlsMode = Net::TlsMode::Implicit;
    return true;
}

Net::SmtpOptions CSmtpSettings::MakeSmtpOptions(Net::Resolver resolver) const {
    Net::SmtpOptions options;
    options.connect.host = hostName;
    options.connect.port = port;
    options.connect.timeout = std::chrono::seconds(timeout);
    options.connect.resolver = std::move(resolver);
    options.connect.tlsMode = tlsMode;
    options.connect.tlsCaFile = tlsCaFile;
    options.heloName = heloName;
    options.replyTimeout = std::chrono::seconds(timeout);
    options.dataTimeout = std::chrono::seconds(dataTimeout);
    if (isTraced) options.traceFile = JoinPath(GetLogFolder(), "SmtpTrace.txt");
    return options;
}

Net::Pop3Options CSmtpSettings::MakePop3Options(const std::string& traceFile) const {
    Net::Pop3Options options;
    options.connect.host = popHostName;
    options.connect.port = popPort;
    options.connect.timeout = std::chrono::seconds(timeout);
    options.connect.tlsMode = popTlsMode;
    options.connect.tlsCaFile = tlsCaFile;
    options.replyTimeout = std::chrono::seconds(timeout);
    options.traceFile = traceFile;
    return options;
}

}  // namespace SendDaemon
