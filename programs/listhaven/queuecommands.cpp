#include <memory>
#include <optional>
#include <string>

#include "engine/catalogue.h"
#include "engine/listaccount.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "senddaemon/accountfolders.h"

namespace {

void List(const std::optional<std::string>& onlyList, bool json) {
    OpenDataFolder();
    const std::int32_t only = onlyList ? FindList(*onlyList) : -1;
    boost::json::array document;
    CTablePrinter table({"No", "List", "Waiting", "Claimed", "Sent", "Errors", "Expired", "Parked", "Deferred"});
    GetCatalogue().ForEach([&](std::int32_t index) {
        if (only >= 0 && index != only) return true;
        const std::string name = GetCatalogue().GetName(index);
        const std::uint32_t number = GetCatalogue().GetListNumber(index);
        const SendDaemon::CAccountCounts counts = SendDaemon::CountAccountMessages(GetAccountRoot(number));
        document.push_back({{"list", JsonText(name)},
                            {"number", number},
                            {"waiting", counts.waiting},
                            {"claimed", counts.claimed},
                            {"sent", counts.sent},
                            {"errors", counts.errors},
                            {"expired", counts.expired},
                            {"parked", counts.parked},
                            {"deferred", counts.deferred}});
        table.AddRow({std::to_string(number), name, std::to_string(counts.waiting), std::to_string(counts.claimed),
                      std::to_string(counts.sent), std::to_string(counts.errors), std::to_string(counts.expired),
                      std::to_string(counts.parked), std::to_string(counts.deferred)});
        return true;
    });
    json ? PrintJson(document) : table.Print();
}

}  // namespace

void AddQueueCommands(CCommand app) {
    struct CArguments {
        std::optional<std::string> list;
        bool json = false;
    };
    auto arguments = std::make_shared<CArguments>();
    CCommand queue = app.AddCommand("queue", "What waits to be sent, and what became of the rest");
    queue.RequireCommand();
    CCommand ls = queue.AddCommand("ls", "Count the messages of every list, or of one");
    ls.AddOption("LIST", arguments->list);
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(arguments->list, arguments->json); });
}
