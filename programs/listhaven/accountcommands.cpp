#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "engine/catalogue.h"
#include "engine/listaccount.h"
#include "platform/profilefile.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::string key;
    std::string value;
    bool json = false;
};

bool IsSecret(const std::string& key) {
    return FindNoCase(key, "Password") != std::string::npos;
}

// A key that nobody reads is a slip of the pen.
bool IsKnownKey(std::string_view key) {
    constexpr std::string_view Keys =
        "SendMethod MaxConnections MaxMessagesPerConnection Timeout Port TurnOffDeliveryNotifications EnableTrace "
        "HostName Login Password PopHostName PopLogin PopPassword DnsHostAddress DnsPort DnsTimeout DnsRetries "
        "DnsUseFallback SaveSentMessages BeingUnregistered TargetFolder NullSenderWait";
    const auto keys = Split(Keys, ' ');
    return std::any_of(keys.begin(), keys.end(), [&](std::string_view known) { return EqualNoCase(known, key); });
}

bool IsSendMethod(const std::string& name) {
    return name == "NullMessageSender" || name == "SmtpMessageSender2" || name == "DirectMessageSender";
}

// The account's file; it is written from the list's settings before each sending.
std::string OpenAccount(const std::string& list) {
    OpenDataFolder();
    return SendDaemon::GetAccountConfigPath(GetAccountRoot(GetCatalogue().GetListNumber(FindList(list))));
}

void Show(const CArguments& arguments) {
    const std::string path = OpenAccount(arguments.list);
    const SendDaemon::CConfiguration config(path);
    boost::json::object document;
    CTablePrinter table({"Key", "Value"});
    for (const std::string& key : Platform::ReadProfileKeys(path, "Configuration")) {
        if (!SendDaemon::CConfiguration::IsValidKey(key)) continue;
        std::string value = config.GetText(key);
        if (IsSecret(key) && !value.empty()) value = "*";
        document[JsonText(key)] = JsonText(value);
        table.AddRow({key, value});
    }
    arguments.json ? PrintJson(document) : table.Print();
}

void Set(const CArguments& arguments) {
    if (!SendDaemon::CConfiguration::IsValidKey(arguments.key))
        throw CUsageFailure("KEY: " + arguments.key + ": a key begins with a letter and has only letters and digits");
    if (!IsKnownKey(arguments.key)) throw CCommandFailure("an account has no setting " + arguments.key);
    if (EqualNoCase(arguments.key, "SendMethod") && !IsSendMethod(arguments.value))
        throw CCommandFailure("SendMethod: there is no sender " + arguments.value);
    SendDaemon::CConfiguration config(OpenAccount(arguments.list));
    if (!config.SetValue(arguments.key, arguments.value)) FailWithLastError(arguments.key);
}

}  // namespace

void AddAccountCommands(CLI::App& app) {
    auto arguments = std::make_shared<CArguments>();
    CLI::App* account = app.add_subcommand("account", "The sending side of a list (account.cfg)");
    account->require_subcommand(1);

    CLI::App* show = account->add_subcommand("show", "Print its settings");
    show->add_option("LIST", arguments->list)->required();
    show->add_flag("--json", arguments->json);
    show->callback([arguments] { Show(*arguments); });

    CLI::App* set = account->add_subcommand("set", "Change one; a list that is sent by the null sender keeps them all");
    set->add_option("LIST", arguments->list)->required();
    set->add_option("KEY", arguments->key)->required();
    set->add_option("VALUE", arguments->value)->required();
    set->callback([arguments] { Set(*arguments); });
}
