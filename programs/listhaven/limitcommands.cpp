#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include "engine/listaccount.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "senddaemon/dispatchcheck.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string host;
    std::uint32_t maxMessages = 0;
    std::uint32_t hours = 0;
    bool json = false;
};

void LoadLimits(SendDaemon::CDispatchChecker& checker) {
    OpenDataFolder();
    checker.SetFolder(GetSendDaemonFolder());
    if (!checker.Load()) FailWithLastError("the delivery limits could not be read");
}

void SaveLimits(SendDaemon::CDispatchChecker& checker, std::vector<SendDaemon::CDispatchCheck> checks) {
    checker.SetChecks(std::move(checks));
    if (!checker.Save()) FailWithLastError("the delivery limits could not be saved");
}

void List(bool json) {
    SendDaemon::CDispatchChecker checker;
    LoadLimits(checker);
    boost::json::array document;
    CTablePrinter table({"Host", "Messages", "Within hours"});
    for (const SendDaemon::CDispatchCheck& check : checker.GetChecks()) {
        document.push_back(
            {{"host", JsonText(check.host)}, {"maxMessages", check.maxMessages}, {"periodHours", check.periodHours}});
        table.AddRow({check.host, std::to_string(check.maxMessages), std::to_string(check.periodHours)});
    }
    json ? PrintJson(document) : table.Print();
}

void Add(const CArguments& arguments) {
    const std::string host(Trim(arguments.host));
    const bool isHostName = !host.empty() && host.size() <= 253 && std::all_of(host.begin(), host.end(), [](char c) {
        return static_cast<unsigned char>(c) > 32 && c != 127 && c != '/' && c != '\\';
    });
    if (!isHostName) throw CUsageFailure("HOST: \"" + host + "\" is no host name");
    SendDaemon::CDispatchChecker checker;
    LoadLimits(checker);
    std::vector<SendDaemon::CDispatchCheck> checks = checker.GetChecks();
    checks.push_back({host, arguments.maxMessages, arguments.hours});
    SaveLimits(checker, std::move(checks));
}

void Remove(const CArguments& arguments) {
    SendDaemon::CDispatchChecker checker;
    LoadLimits(checker);
    std::vector<SendDaemon::CDispatchCheck> checks = checker.GetChecks();
    const auto removed =
        std::erase_if(checks, [&](const auto& check) { return EqualNoCase(check.host, arguments.host); });
    if (removed == 0) throw CCommandFailure("there is no limit for " + arguments.host);
    SaveLimits(checker, std::move(checks));
}

}  // namespace

void AddLimitCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand limit = app.AddCommand("limit", "How many messages a host may get within how many hours");
    limit.RequireCommand();

    CCommand ls = limit.AddCommand("ls", "Print the limits");
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(arguments->json); });

    CCommand add = limit.AddCommand("add", "Add a limit; all limits of a host hold");
    add.AddOption("HOST", arguments->host).Required();
    add.AddOption("MAX", arguments->maxMessages, "Messages").Required().Within(1, 1000000000);
    add.AddOption("HOURS", arguments->hours, "Within the last so many hours").Required().Within(1, 8760);
    add.OnRun([arguments] { Add(*arguments); });

    CCommand remove = limit.AddCommand("remove", "Remove all limits of a host");
    remove.AddOption("HOST", arguments->host).Required();
    remove.OnRun([arguments] { Remove(*arguments); });
}
