#include <algorithm>

#include "app/settings.h"
#include "engine/catalogue.h"
#include "engine/incoming/mailfetch.h"
#include "engine/listaccount.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/smtpsettings.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr int DefaultTimeout = 60;
constexpr int LongestTimeout = 86400;
constexpr int DefaultMaxSize = 5120000;
constexpr std::uint16_t ImplicitTlsPort = 995;

void ReadServiceSettings(CFetchOptions& options) {
    const auto flag = [](const char* key) { return ReadSetting("Service", key, 0) != 0; };
    options.timeoutSeconds = std::clamp(ReadSetting("Service", "Pop3Timeout", DefaultTimeout), 1, LongestTimeout);
    options.limitSize = flag("LimitPop3MessageSize");
    options.maxSize =
        static_cast<std::uint64_t>(std::max(ReadSetting("Service", "MaxPop3MessageSize", DefaultMaxSize), 1));
    options.removeTooLarge = flag("RemoveTooLargePop3Message");
    options.keepIds = flag("KeepUIDLs");
    options.saveIncoming = flag("SaveIncoming");
}

}  // namespace

bool ReadFetchOptions(std::uint32_t listNumber, CFetchOptions& options) {
    options = {};
    ReadServiceSettings(options);
    std::string server;
    try {
        CCatalogue& catalogue = GetCatalogue();
        const std::int32_t list = catalogue.FindByNumber(listNumber);
        if (list == CCatalogue::None) {
            SetLastErrorFormat("There is no list with the number %u.", static_cast<unsigned>(listNumber));
            return false;
        }
        server = Trim(catalogue.GetText(list, ListColumn::PopHost));
        options.login = catalogue.GetText(list, ListColumn::PopLogin);
        options.password = catalogue.GetText(list, ListColumn::PopPassword);
        options.leaveCopies = catalogue.GetFlag(list, ListColumn::LeaveCopies);
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
    if (server.empty()) return true;
    options.accountRoot = GetAccountRoot(listNumber);
    const SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(options.accountRoot));
    SendDaemon::CSmtpSettings settings;
    if (!settings.ReadPopFor(config, server)) return false;
    options.host = settings.popHostName;
    options.port = settings.popPort;
    return true;
}

bool MakePopSettings(const CFetchOptions& options, SendDaemon::CSmtpSettings& settings) {
    settings.popHostName = options.host;
    if (!options.accountRoot.empty()) {
        const SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(options.accountRoot));
        if (!settings.ReadPopFor(config, options.host)) return false;
    }
    settings.popPort = options.port;
    if (options.port == ImplicitTlsPort) settings.popTlsMode = Net::TlsMode::Implicit;
    settings.popLogin = options.login;
    settings.popPassword = options.password;
    settings.timeout = options.timeoutSeconds;
    return true;
}
