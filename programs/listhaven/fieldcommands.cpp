#include <memory>
#include <string>

#include "engine/catalogue.h"
#include "engine/customfields.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"

namespace {

struct CArguments {
    std::string list;
    int slot = 0;
    std::string name;
    std::string description;
    std::string kind = "text";
    bool json = false;
};

CCustomFields LoadFields(const std::string& list) {
    OpenDataFolder();
    CCustomFields fields;
    fields.Load(GetCatalogue().GetListNumber(FindList(list)));
    return fields;
}

void List(const CArguments& arguments) {
    const CCustomFields fields = LoadFields(arguments.list);
    boost::json::array document;
    CTablePrinter table({"Slot", "Name", "Kind", "Description"});
    for (int slot = 0; slot < CCustomFields::SlotCount; ++slot) {
        const CustomField& field = fields.GetSlot(slot);
        if (field.IsFree()) continue;
        document.push_back({{"slot", slot},
                            {"name", JsonText(field.name)},
                            {"kind", JsonText(CustomFieldKindName(field.kind))},
                            {"description", JsonText(field.description)}});
        table.AddRow(
            {std::to_string(slot), field.name, std::string(CustomFieldKindName(field.kind)), field.description});
    }
    arguments.json ? PrintJson(document) : table.Print();
}

void Set(const CArguments& arguments) {
    const auto kind = ParseCustomFieldKind(arguments.kind);
    if (!kind) throw CUsageFailure("--kind: " + arguments.kind + " is none; use text, number, date or choice");
    std::string reason;
    if (!CCustomFields::IsName(arguments.name, &reason)) throw CCommandFailure(arguments.name + ": " + reason);
    CCustomFields fields = LoadFields(arguments.list);
    fields.Set(arguments.slot, {arguments.name, arguments.description, *kind});
}

}  // namespace

void AddFieldCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand field = app.AddCommand("field", "The custom fields of a list: 64 slots, used as $(NAME)");
    field.RequireCommand();

    CCommand ls = field.AddCommand("ls", "Print the fields");
    ls.AddOption("LIST", arguments->list).Required();
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(*arguments); });

    CCommand set = field.AddCommand("set", "Define a slot, or name it anew");
    set.AddOption("LIST", arguments->list).Required();
    set.AddOption("SLOT", arguments->slot).Required().Within(0, CCustomFields::SlotCount - 1);
    set.AddOption("NAME", arguments->name).Required();
    set.AddOption("--description", arguments->description);
    set.AddOption("--kind", arguments->kind, "text, number, date or choice").ShowsDefault();
    set.OnRun([arguments] { Set(*arguments); });

    CCommand clear = field.AddCommand("clear", "Free a slot; the members keep its values");
    clear.AddOption("LIST", arguments->list).Required();
    clear.AddOption("SLOT", arguments->slot).Required().Within(0, CCustomFields::SlotCount - 1);
    clear.OnRun([arguments] {
        CCustomFields fields = LoadFields(arguments->list);
        fields.Clear(arguments->slot);
    });
}
