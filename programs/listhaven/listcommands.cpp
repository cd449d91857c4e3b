#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "engine/catalogue.h"
#include "engine/listremoval.h"
#include "engine/looplevel.h"
#include "engine/memberstore.h"
#include "engine/rules/listcreation.h"
#include "mime/mailbox.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::string email;
    std::string kind = "discussion";
    std::string commandEmail;
    std::string authorizedEmail;
    std::string postEmail;
    std::string key;
    std::string value;
    bool yes = false;
    bool json = false;
};

void CheckAddress(const std::string& option, const std::string& address) {
    std::string reason;
    if (!IsPlausibleAddress(address, &reason)) throw CCommandFailure(option + ": " + address + ": " + reason);
}

void Create(const CArguments& arguments) {
    NewList list;
    list.name = Trim(arguments.list);
    if (!ParseListKind(arguments.kind, list.kind))
        throw CUsageFailure("--kind: " + arguments.kind + " is none; use discussion, announcement or autoresponder");
    const struct {
        const char* option;
        const char* key;
        const std::string& address;
    } addresses[] = {{"--email", "List", arguments.email},
                     {"--command-email", "Command", arguments.commandEmail},
                     {"--authorized-email", "Authorized", arguments.authorizedEmail},
                     {"--post-email", "Post", arguments.postEmail}};
    for (const auto& entry : addresses) {
        if (entry.address.empty()) continue;
        CheckAddress(entry.option, entry.address);
        list.listAddresses += std::string(entry.key) + ": " + entry.address + "\n";
    }
    OpenDataFolder();
    const std::int32_t index = CreateList(list);
    const std::uint32_t number = GetCatalogue().GetListNumber(index);
    if (arguments.json)
        PrintJson({{"number", number}});
    else
        std::printf("%u\n", number);
}

std::int32_t CountMembers(std::uint32_t number) {
    CMemberStore members;
    members.Open(number, CMemberStore::Access::ReadOnly);
    return members.Count();
}

std::vector<std::string> FindLostMembers(std::uint32_t number) {
    CMemberStore members;
    members.Open(number, CMemberStore::Access::ReadOnly);
    return members.FindLost();
}

void List(bool json) {
    OpenDataFolder();
    CCatalogue& catalogue = GetCatalogue();
    boost::json::array document;
    CTablePrinter table({"No", "Name", "Kind", "Address", "Members"});
    catalogue.ForEach([&](std::int32_t index) {
        const std::uint32_t number = catalogue.GetListNumber(index);
        const std::string name = catalogue.GetName(index);
        const std::string kind(ListKindName(catalogue.GetKind(index)));
        const std::int32_t members = CountMembers(number);
        const std::size_t lost = FindLostMembers(number).size();
        document.push_back({{"number", number},
                            {"name", JsonText(name)},
                            {"kind", JsonText(kind)},
                            {"guid", JsonText(catalogue.GetGuid(index))},
                            {"members", members},
                            {"lostMembers", lost}});
        table.AddRow({std::to_string(number), name, kind, catalogue.GetListAddress(index, "List"),
                      std::to_string(members) + (lost > 0 ? ", lost " + std::to_string(lost) : "")});
        return true;
    });
    json ? PrintJson(document) : table.Print();
}

boost::json::value SettingAsJson(std::int32_t index, const ListSetting& setting) {
    CCatalogue& catalogue = GetCatalogue();
    switch (setting.kind) {
        case SettingKind::Number:
        case SettingKind::Flag:
            return catalogue.GetNumber(index, setting.column);
        case SettingKind::Fixed:
            if (setting.column == ListColumn::Guid) break;
            return setting.column == ListColumn::Number ? std::int64_t{catalogue.GetListNumber(index)}
                                                        : catalogue.GetNumber(index, setting.column);
        default:
            break;
    }
    return JsonText(catalogue.GetByKey(index, setting.key));
}

std::string ShownValue(std::int32_t index, const ListSetting& setting) {
    CCatalogue& catalogue = GetCatalogue();
    if (setting.column == ListColumn::LastCycle || setting.column == ListColumn::Created)
        return PrintableTime(catalogue.GetNumber(index, setting.column));
    std::string value(TrimRight(catalogue.GetByKey(index, setting.key)));
    ReplaceAll(value, "\n", "; ");
    return value;
}

std::string ShownMeaning(std::int32_t index, const ListSetting& setting) {
    std::string meaning(setting.meaning);
    if (setting.column == ListColumn::LoopProtection)
        meaning = DescribeLoopLevel(LoopLevelOf(GetCatalogue().GetNumber(index, setting.column)));
    ReplaceAll(meaning, "\n", " ");
    ReplaceAll(meaning, ", seconds since 1970", "");  // which is what JSON has
    return meaning;
}

// The usage text has long lines, which would make every row as long.
void Show(const CArguments& arguments) {
    OpenDataFolder();
    const std::int32_t index = FindList(arguments.list);
    CCatalogue& catalogue = GetCatalogue();
    boost::json::object document;
    CTablePrinter table({"Key", "Value", "Meaning"});
    for (const ListSetting& setting : ListSettings) {
        document[std::string(setting.key)] = SettingAsJson(index, setting);
        if (setting.column != ListColumn::Usage)
            table.AddRow({std::string(setting.key), ShownValue(index, setting), ShownMeaning(index, setting)});
    }
    boost::json::object addresses;
    for (const char* key : {"list", "command", "authorized", "post"})
        addresses[key] = JsonText(catalogue.GetListAddress(index, key));
    document["addresses"] = addresses;
    const std::vector<std::string> lost = FindLostMembers(catalogue.GetListNumber(index));
    boost::json::array& lostMembers = document["lostMembers"].emplace_array();
    for (const std::string& address : lost)
        lostMembers.push_back(JsonText(address));
    if (arguments.json) return PrintJson(document);
    table.Print();
    if (!lost.empty()) std::printf("\n%s\n", Printable(DescribeLostMembers(lost)).c_str());
    const std::string usage(TrimRight(catalogue.GetText(index, ListColumn::Usage)));
    if (!usage.empty()) std::printf("\nusage, which texts show as $(List-Usage):\n");
    for (const std::string_view line : Split(usage, '\n'))
        std::printf("%s\n", Printable(line).c_str());
}

void Set(const CArguments& arguments) {
    OpenDataFolder();
    GetCatalogue().SetByKey(FindList(arguments.list), arguments.key, arguments.value);
}

bool Confirm(const std::string& name, std::int32_t members) {
    std::fprintf(stderr, "Delete the list \"%s\" with its %d members and all its messages? [y/N] ",
                 Printable(name).c_str(), members);
    std::string answer;
    std::getline(std::cin, answer);
    return EqualNoCase(Trim(answer), "y") || EqualNoCase(Trim(answer), "yes");
}

void Delete(const CArguments& arguments) {
    OpenDataFolder();
    const std::int32_t index = FindList(arguments.list);
    const std::uint32_t number = GetCatalogue().GetListNumber(index);
    if (!arguments.yes) {
        if (!Platform::InputIsTerminal()) throw CUsageFailure("--yes is required to delete a list");
        if (!Confirm(GetCatalogue().GetName(index), CountMembers(number))) throw CCommandFailure("nothing was deleted");
    }
    const std::vector<std::string> left = RemoveList(index);
    if (!left.empty()) throw CCommandFailure("the list is deleted, but this could not be removed: " + Join(left, ", "));
}

}  // namespace

void AddListCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand list = app.AddCommand("list", "Mailing lists and their settings");
    list.RequireCommand();

    CCommand create = list.AddCommand("create", "Make a list; prints its number");
    create.AddOption("NAME", arguments->list).Required();
    create.AddOption("--email", arguments->email, "The list's address").Required().NamesValue("ADDRESS");
    create.AddOption("--kind", arguments->kind, "discussion, announcement or autoresponder").ShowsDefault();
    create.AddOption("--command-email", arguments->commandEmail, "Where commands go; else to the list's address")
        .NamesValue("ADDRESS");
    create.AddOption("--authorized-email", arguments->authorizedEmail, "Who may post to an announcement list")
        .NamesValue("ADDRESS");
    create.AddOption("--post-email", arguments->postEmail, "Where announcements go; else to the list's address")
        .NamesValue("ADDRESS");
    create.AddFlag("--json", arguments->json);
    create.OnRun([arguments] { Create(*arguments); });

    CCommand ls = list.AddCommand("ls", "Print the lists");
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(arguments->json); });

    CCommand show = list.AddCommand("show", "Print the settings of a list");
    show.AddOption("LIST", arguments->list).Required();
    show.AddFlag("--json", arguments->json);
    show.OnRun([arguments] { Show(*arguments); });

    CCommand set = list.AddCommand("set", "Change a setting of a list");
    set.AddOption("LIST", arguments->list).Required();
    set.AddOption("KEY", arguments->key).Required();
    set.AddOption("VALUE", arguments->value).Required();
    set.OnRun([arguments] { Set(*arguments); });

    CCommand remove = list.AddCommand("delete", "Delete a list with its members and messages");
    remove.AddOption("LIST", arguments->list).Required();
    remove.AddFlag("--yes", arguments->yes, "Do not ask");
    remove.OnRun([arguments] { Delete(*arguments); });
}
