#include <memory>
#include <string>

#include "engine/blockedaddresses.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"

void AddBlockedCommands(CCommand app) {
    struct CArguments {
        std::string pattern;
        bool json = false;
    };
    auto arguments = std::make_shared<CArguments>();
    CCommand blocked = app.AddCommand("blocked", "Addresses that get no mail from any list");
    blocked.RequireCommand();

    CCommand ls = blocked.AddCommand("ls", "Print the patterns");
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] {
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

    CCommand add = blocked.AddCommand("add", "Block an address, *@domain, or the subdomains with *@*.domain");
    add.AddOption("PATTERN", arguments->pattern).Required();
    add.OnRun([arguments] {
        std::string reason;
        if (!CBlockedAddresses::IsPattern(arguments->pattern, &reason))
            throw CUsageFailure("PATTERN: " + arguments->pattern + ": " + reason);
        OpenDataFolder();
        CBlockedAddresses addresses;
        if (!addresses.Add(arguments->pattern)) throw CCommandFailure(arguments->pattern + " is blocked already");
    });

    CCommand remove = blocked.AddCommand("remove", "Let it through again");
    remove.AddOption("PATTERN", arguments->pattern).Required();
    remove.OnRun([arguments] {
        OpenDataFolder();
        CBlockedAddresses addresses;
        if (!addresses.Remove(arguments->pattern)) throw CCommandFailure(arguments->pattern + " is not blocked");
    });
}
