#include "senddaemon/configureaccount.h"

#include <string>

#include "app/settings.h"
#include "senddaemon/configuration.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/nullmessagesender.h"
#include "senddaemon/senddaemon.h"
#include "utility/lasterror.h"

namespace SendDaemon {

namespace {

// Writes until the first failure; what follows it is not written.
class CValueWriter {
public:
    explicit CValueWriter(CConfiguration& config) : m_config(config) {}

    CValueWriter& Write(std::string_view key, std::string_view value) {
        m_isGood = m_isGood && m_config.SetValue(key, value);
        return *this;
    }
    CValueWriter& Write(std::string_view key, std::int64_t value) { return Write(key, std::to_string(value)); }
    CValueWriter& WriteSetting(std::string_view key, const char* setting, int defaultValue) {
        return Write(key, ReadSetting("Service", setting, defaultValue));
    }
    bool IsGood() const noexcept { return m_isGood; }

private:
    CConfiguration& m_config;
    bool m_isGood = true;
};

std::string ValueIf(bool isSet, const std::string& value) {
    return isSet ? value : std::string();
}

bool WriteDirectDelivery(CValueWriter& writer, const CListSettings& settings) {
    Log(LogLevelTrace, "Direct delivery!\n");
    return writer.Write("SendMethod", "DirectMessageSender")
        .Write("DnsHostAddress", settings.dnsServer)
        .WriteSetting("DnsPort", "DnsPort", 0)
        .WriteSetting("DnsTimeout", "DnsTimeout", 10)
        .WriteSetting("DnsRetries", "DnsRetries", 4)
        .Write("DnsUseFallback", settings.dnsUseFallback ? "1" : "0")
        .Write("HostName", settings.relayHost)
        .Write("Login", ValueIf(settings.relayNeedsLogin, settings.relayLogin))
        .Write("Password", settings.relayPassword)
        .Write("PopHostName", ValueIf(settings.relayPopBeforeSmtp, settings.popHost))
        .Write("PopLogin", settings.popLogin)
        .Write("PopPassword", settings.popPassword)
        .IsGood();
}

bool WriteRelay(CValueWriter& writer, const CListSettings& settings) {
    Log(LogLevelTrace, "SMTP delivery!\n");
    return writer.Write("SendMethod", "SmtpMessageSender2")
        .Write("HostName", settings.smtpHost)
        .Write("Login", ValueIf(settings.smtpNeedsLogin, settings.smtpLogin))
        .Write("Password", settings.smtpPassword)
        .Write("PopHostName", ValueIf(settings.popBeforeSmtp, settings.popHost))
        .Write("PopLogin", settings.popLogin)
        .Write("PopPassword", settings.popPassword)
        .IsGood();
}

}  // namespace

bool WriteListSettings(CConfiguration& config, const CListSettings& settings) {
    if (config.GetText("SendMethod") == CNullMessageSender::MethodName) return true;
    CValueWriter writer(config);
    writer.Write("MaxConnections", settings.maxConnections)
        .Write("MaxMessagesPerConnection", settings.maxMessagesPerConnection)
        .WriteSetting("Timeout", "SmtpTimeout", 60)
        .WriteSetting("Port", "SmtpPort", 25)
        .Write("TurnOffDeliveryNotifications", "False");
    if (!writer.IsGood()) return false;
    if (ReadSetting("Execution", "DebugMode", 0) != 0) config.SetValue("EnableTrace", "1");
    return settings.directDelivery ? WriteDirectDelivery(writer, settings) : WriteRelay(writer, settings);
}

bool ConfigureAccount(CSendDaemon& daemon, std::string_view accountRoot, const CListSettings& settings,
                      ISendEvents* sink) {
    Log(LogLevelTrace, "About to initialize the sending daemon.\n");
    CConfiguration* config = daemon.GetAccountConfig(accountRoot);
    if (config == nullptr) {
        SetLastErrorFormat("There is no account \"%s\".", std::string(accountRoot).c_str());
        return false;
    }
    daemon.SetEventSink(sink);
    return WriteListSettings(*config, settings);
}

}  // namespace SendDaemon
