#include "engine/listaccount.h"

#include "app/datafolder.h"
#include "engine/catalogue.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/senddaemon.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

namespace {

void FillSettings(CCatalogue& catalogue, std::int32_t list, SendDaemon::CListSettings& settings) {
    const auto text = [&](ListColumn column) { return catalogue.GetText(list, column); };
    const auto flag = [&](ListColumn column) { return catalogue.GetFlag(list, column); };
    const auto number = [&](ListColumn column) {
        const std::int64_t value = catalogue.GetNumber(list, column);
        return value > 0 ? static_cast<std::uint32_t>(value) : 0;
    };
    settings.smtpHost = text(ListColumn::SmtpHost);
    settings.smtpNeedsLogin = flag(ListColumn::SmtpNeedsLogin);
    settings.smtpLogin = text(ListColumn::SmtpLogin);
    settings.smtpPassword = text(ListColumn::SmtpPassword);
    settings.popBeforeSmtp = flag(ListColumn::PopBeforeSmtp);
    settings.popHost = text(ListColumn::PopHost);
    settings.popLogin = text(ListColumn::PopLogin);
    settings.popPassword = text(ListColumn::PopPassword);
    settings.maxConnections = number(ListColumn::MaxConnections);
    settings.maxMessagesPerConnection = number(ListColumn::MaxMessagesPerConnection);
    settings.directDelivery = flag(ListColumn::DirectDelivery);
    settings.dnsServer = text(ListColumn::DnsServer);
    settings.dnsUseFallback = flag(ListColumn::DnsUseFallback);
    settings.relayHost = text(ListColumn::RelayHost);
    settings.relayNeedsLogin = flag(ListColumn::RelayNeedsLogin);
    settings.relayLogin = text(ListColumn::RelayLogin);
    settings.relayPassword = text(ListColumn::RelayPassword);
    settings.relayPopBeforeSmtp = flag(ListColumn::RelayPopBeforeSmtp);
}

}  // namespace

std::string GetSendDaemonFolder() {
    return JoinPath(GetDataFolder(), "SendDaemon");
}

std::string GetAccountRoot(std::uint32_t listNumber) {
    return JoinPath(GetSendDaemonFolder(), std::to_string(listNumber));
}

std::string GetBroadcastsFolder() {
    return JoinPath(GetDataFolder(), "Broadcasts");
}

bool ReadListSettings(std::uint32_t listNumber, SendDaemon::CListSettings& settings) {
    try {
        CCatalogue& catalogue = GetCatalogue();
        const std::int32_t list = catalogue.FindByNumber(listNumber);
        if (list == CCatalogue::None) {
            SetLastErrorFormat("There is no list with the number %u.", static_cast<unsigned>(listNumber));
            return false;
        }
        FillSettings(catalogue, list, settings);
        return true;
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}

bool SetUpAccount(SendDaemon::CSendDaemon& daemon, std::uint32_t listNumber, SendDaemon::ISendEvents* sink) {
    SendDaemon::CListSettings settings;
    if (!ReadListSettings(listNumber, settings)) return false;
    const std::string root = GetAccountRoot(listNumber);
    return daemon.AddAccount(root) && ConfigureAccount(daemon, root, settings, sink);
}

bool RefreshAccount(std::uint32_t listNumber) {
    SendDaemon::CListSettings settings;
    if (!ReadListSettings(listNumber, settings)) return false;
    SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(GetAccountRoot(listNumber)));
    return SendDaemon::WriteListSettings(config, settings);
}
