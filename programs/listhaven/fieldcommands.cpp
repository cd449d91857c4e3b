#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "engine/catalogue.h"
#include "engine/customfields.h"
#include "programs/listhaven/command.h"
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

void AddFieldCommands(CLI::App& app) {
    auto arguments = std::make_shared<CArguments>();
    CLI::App* field = app.add_subcommand("field", "The custom fields of a list: 64 slots, used as $(NAME)");
    field->require_subcommand(1);
    const CLI::Range slots(0, CCustomFields::SlotCount - 1);

    CLI::App* ls = field->add_subcommand("ls", "Print the fields");
    ls->add_option("LIST", arguments->list)->required();
    ls->add_flag("--json", arguments->json);
    ls->callback([arguments] { List(*arguments); });

    CLI::App* set = field->add_subcommand("set", "Define a slot, or name it anew");
    set->add_option("LIST", arguments->list)->required();
    set->add_option("SLOT", arguments->slot)->required()->check(slots);
    set->add_option("NAME", arguments->name)->required();
    set->add_option("--description", arguments->description);
    set->add_option("--kind", arguments->kind, "text, number, date or choice")->capture_default_str();
    set->callback([arguments] { Set(*arguments); });

    CLI::App* clear = field->add_subcommand("clear", "Free a slot; the members keep its values");
    clear->add_option("LIST", arguments->list)->required();
    clear->add_option("SLOT", arguments->slot)->required()->check(slots);
    clear->callback([arguments] {
        CCustomFields fields = LoadFields(arguments->list);
        fields.Clear(arguments->slot);
    });
}
