#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "engine/blockedaddresses.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"

void AddBlockedCommands(CLI::App& app) {
    struct CArguments {
        std::string pattern;
        bool json = false;
    };
    auto arguments = std::make_shared<CArguments>();
    CLI::App* blocked = app.add_subcommand("blocked", "Addresses that get no mail from any list");
    blocked->require_subcommand(1);

    CLI::App* ls = blocked->add_subcommand("ls", "Print the patterns");
    ls->add_flag("--json", arguments->json);
    ls->callback([arguments] {
        OpenDataFolder();
        CBlockedAddresses addresses;
        boost::json::array document;
        CTablePrinter table({"Pattern", "Since"});
        addresses.ForEach([&](const BlockedPattern& entry) {
            document.push_back({{"pattern", JsonText(entry.pattern)}, {"since", entry.since}});
            table.AddRow({entry.pattern, PrintableTime(entry.since)});
        });
        arguments->json ? PrintJson(document) : table.Print();
    });

    CLI::App* add = blocked->add_subcommand("add", "Block an address, *@domain, or the subdomains with *@*.domain");
    add->add_option("PATTERN", arguments->pattern)->required();
    add->callback([arguments] {
        std::string reason;
        if (!CBlockedAddresses::IsPattern(arguments->pattern, &reason))
            throw CUsageFailure("PATTERN: " + arguments->pattern + ": " + reason);
        OpenDataFolder();
        CBlockedAddresses addresses;
        if (!addresses.Add(arguments->pattern)) throw CCommandFailure(arguments->pattern + " is blocked already");
    });

    CLI::App* remove = blocked->add_subcommand("remove", "Let it through again");
    remove->add_option("PATTERN", arguments->pattern)->required();
    remove->callback([arguments] {
        OpenDataFolder();
        CBlockedAddresses addresses;
        if (!addresses.Remove(arguments->pattern)) throw CCommandFailure(arguments->pattern + " is not blocked");
    });
}
