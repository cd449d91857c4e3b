#include <cstdio>
#include <memory>
#include <string>

#include "engine/catalogue.h"
#include "engine/listaccount.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "senddaemon/accountcheck.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/accountkeys.h"
#include "senddaemon/configuration.h"
#include "senddaemon/nullmessagesender.h"

namespace {

struct CArguments {
    std::string list;
    std::string key;
    std::string value;
    std::string domain;
    bool json = false;
};

// What sending would use: the values that come from the list and from Lhv.cfg
// are brought up to date first.
std::string OpenAccount(const std::string& list) {
    OpenDataFolder();
    const std::uint32_t number = GetCatalogue().GetListNumber(FindList(list));
    if (!RefreshAccount(number)) FailWithLastError("account.cfg");
    return SendDaemon::GetAccountConfigPath(GetAccountRoot(number));
}

std::string ShownValue(const SendDaemon::CConfiguration& config, const SendDaemon::CAccountKey& key) {
    const std::string value = config.GetText(key.name);
    return key.kind == SendDaemon::AccountValueKind::Secret && !value.empty() ? "*" : value;
}

void Show(const CArguments& arguments) {
    const SendDaemon::CConfiguration config(OpenAccount(arguments.list));
    boost::json::object document;
    CTablePrinter table({"Key", "Value", "Meaning"});
    for (const SendDaemon::CAccountKey& key : SendDaemon::GetAccountKeys()) {
        const std::string value = ShownValue(config, key);
        document[JsonText(key.name)] = JsonText(value);
        const std::string shown =
            value.empty() && !key.defaultValue.empty() ? "(" + std::string(key.defaultValue) + ")" : value;
        const std::string unit = key.unit.empty() ? std::string() : std::string(key.unit) + ": ";
        const std::string source = key.source.empty() ? std::string() : " <- " + std::string(key.source);
        table.AddRow({std::string(key.name), shown, unit + std::string(key.meaning) + source});
    }
    arguments.json ? PrintJson(document) : table.Print();
}

void Set(const CArguments& arguments) {
    if (!SendDaemon::CConfiguration::IsValidKey(arguments.key))
        throw CUsageFailure("KEY: " + arguments.key + ": a key begins with a letter and has only letters and digits");
    const SendDaemon::CAccountKey* key = SendDaemon::FindAccountKey(arguments.key);
    if (key == nullptr) throw CCommandFailure("an account has no setting " + arguments.key);
    const std::string name(key->name);
    std::string reason;
    if (!SendDaemon::IsAccountValue(*key, arguments.value, reason))
        throw CCommandFailure(name + ": " + arguments.value + ": " + reason);
    SendDaemon::CConfiguration config(OpenAccount(arguments.list));
    const bool isNull = config.GetText("SendMethod") == SendDaemon::CNullMessageSender::MethodName;
    if (!key->source.empty() && !isNull && name != "SendMethod") {
        throw CCommandFailure(
            name + " is written anew each time sending starts; change it there: " + std::string(key->source));
    }
    if (!config.SetValue(name, arguments.value)) FailWithLastError(name);
}

void Check(const CArguments& arguments) {
    const SendDaemon::CConfiguration config(OpenAccount(arguments.list));
    std::string domain = arguments.domain;
    if (domain.empty()) {
        const std::string address = GetCatalogue().GetListAddress(FindList(arguments.list), "List");
        domain = address.substr(address.find('@') + 1);
    }
    boost::json::array document;
    const bool isGood = SendDaemon::CheckAccount(config, domain, [&](const SendDaemon::CAccountCheckStep& step) {
        document.push_back({{"step", JsonText(step.name)}, {"good", step.isGood}, {"text", JsonText(step.text)}});
        if (!arguments.json) {
            std::printf("%-8s %s%s\n", step.name.c_str(), step.isGood ? "" : "FAILED: ", Printable(step.text).c_str());
            std::fflush(stdout);
        }
    });
    if (arguments.json) PrintJson(document);
    if (!isGood) throw CCommandFailure("the account cannot send");
}

}  // namespace

void AddAccountCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand account = app.AddCommand("account", "The sending side of a list (account.cfg)");
    account.RequireCommand();

    CCommand show = account.AddCommand("show", "Print every setting with its value and meaning");
    show.AddOption("LIST", arguments->list).Required();
    show.AddFlag("--json", arguments->json);
    show.OnRun([arguments] { Show(*arguments); });

    CCommand check = account.AddCommand("check", "Connect and log in as sending would, and say what is wrong");
    check.AddOption("LIST", arguments->list).Required();
    check.AddOption("--domain", arguments->domain,
                    "direct delivery: whose mail exchangers are tried (default: those of the list's address)");
    check.AddFlag("--json", arguments->json);
    check.OnRun([arguments] { Check(*arguments); });

    CCommand set = account.AddCommand("set", "Change one; a list that is sent by the null sender keeps them all");
    set.AddOption("LIST", arguments->list).Required();
    set.AddOption("KEY", arguments->key).Required();
    set.AddOption("VALUE", arguments->value).Required();
    set.OnRun([arguments] { Set(*arguments); });
}
