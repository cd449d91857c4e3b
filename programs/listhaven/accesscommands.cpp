#include <memory>
#include <string>

#include "engine/catalogue.h"
#include "engine/rules/accesslist.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::string access;
    std::string pattern;
    bool json = false;
};

CAccessList OpenAccessList(const CArguments& arguments) {
    OpenDataFolder();
    return CAccessList(GetCatalogue().GetListNumber(FindList(arguments.list)));
}

void List(const CArguments& arguments) {
    CAccessList list = OpenAccessList(arguments);
    boost::json::array document;
    CTablePrinter table({"Access", "Pattern"});
    for (const CAccessEntry& entry : list.GetEntries()) {
        const std::string access = entry.access == Access::Denied ? "deny" : "allow";
        document.push_back({{"access", JsonText(access)}, {"pattern", JsonText(entry.pattern)}});
        table.AddRow({access, entry.pattern});
    }
    arguments.json ? PrintJson(document) : table.Print();
}

void CheckPattern(const CArguments& arguments) {
    std::string reason;
    if (!CAccessList::IsPattern(arguments.pattern, &reason))
        throw CUsageFailure("PATTERN: " + arguments.pattern + ": " + reason);
}

void Add(const CArguments& arguments) {
    const bool isDenied = EqualNoCase(arguments.access, "deny");
    if (!isDenied && !EqualNoCase(arguments.access, "allow"))
        throw CUsageFailure(arguments.access + " is none; use allow or deny");
    CheckPattern(arguments);
    CAccessList list = OpenAccessList(arguments);
    if (!list.Add({isDenied ? Access::Denied : Access::Allowed, arguments.pattern}))
        throw CCommandFailure(arguments.pattern + " is there already");
}

void Remove(const CArguments& arguments) {
    CheckPattern(arguments);
    CAccessList list = OpenAccessList(arguments);
    if (!list.Remove(arguments.pattern)) throw CCommandFailure(arguments.pattern + " is not in the list");
}

}  // namespace

void AddAccessCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand access = app.AddCommand("access", "Who may, and who may not, subscribe and post");
    access.RequireCommand();

    CCommand ls = access.AddCommand("ls", "Print the entries");
    ls.AddOption("LIST", arguments->list).Required();
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(*arguments); });

    CCommand add = access.AddCommand("add", "Allow or deny an address, *@domain, or subdomains with *@*.domain");
    add.AddOption("LIST", arguments->list).Required();
    add.AddOption("ACCESS", arguments->access, "allow or deny").Required();
    add.AddOption("PATTERN", arguments->pattern).Required();
    add.OnRun([arguments] { Add(*arguments); });

    CCommand remove = access.AddCommand("remove", "Take an entry out");
    remove.AddOption("LIST", arguments->list).Required();
    remove.AddOption("PATTERN", arguments->pattern).Required();
    remove.OnRun([arguments] { Remove(*arguments); });
}
