#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "engine/catalogue.h"
#include "engine/customfields.h"
#include "engine/displayname.h"
#include "engine/memberstore.h"
#include "platform/filestatus.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/importcommand.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::string address;
    std::string name;
    std::string mode;
    std::string newAddress;
    std::string inactive;
    std::vector<std::string> fields;
    bool nameGiven = false;
    bool inactiveGiven = false;
    bool json = false;
};

struct COpenList {
    std::uint32_t number = 0;
    std::string name;
    CCustomFields fields;
    CMemberStore members;

    explicit COpenList(const std::string& list, CMemberStore::Access access = CMemberStore::Access::ReadWrite) {
        OpenDataFolder();
        const std::int32_t index = FindList(list);
        number = GetCatalogue().GetListNumber(index);
        name = GetCatalogue().GetName(index);
        fields.Load(number);
        members.Open(number, access);
    }

    std::int32_t Find(const std::string& address) {
        const std::int32_t index = members.Find(Trim(address));
        if (index == CMemberStore::None)
            throw CCommandFailure(std::string(Trim(address)) + " is no member of \"" + name + "\"");
        return index;
    }
};

boost::json::object MemberAsJson(const CMember& member, const CCustomFields& fields) {
    const std::string inactive = member.GetProperty("Inactive");
    boost::json::object values;
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        const std::string name = fields.GetSlot(slot).name;
        if (!name.empty()) values[JsonText(name)] = JsonText(member.GetField(slot));
    }
    return {{"address", JsonText(member.address)},
            {"name", JsonText(member.name)},
            {"first", JsonText(member.firstName)},
            {"middle", JsonText(member.middleName)},
            {"last", JsonText(member.lastName)},
            {"mode", JsonText(DeliveryModeName(member.mode))},
            {"inactive", inactive.empty() ? boost::json::value() : boost::json::value(JsonText(inactive))},
            {"fields", values}};
}

void SetName(CMember& member, const std::string& name) {
    const CDisplayName parts = SplitDisplayName(name);
    member.firstName = parts.first;
    member.middleName = parts.middle;
    member.lastName = parts.last;
    member.name = Trim(name);
}

void ApplyValues(const CArguments& arguments, const CCustomFields& fields, CMember& member) {
    if (arguments.nameGiven) SetName(member, arguments.name);
    if (!arguments.mode.empty()) {
        const auto mode = ParseDeliveryMode(arguments.mode);
        if (!mode) throw CUsageFailure("--mode: " + arguments.mode + " is none; use regular, both or digest");
        member.mode = *mode;
    }
    for (const std::string& field : arguments.fields) {
        const std::size_t equals = field.find('=');
        if (equals == std::string::npos) throw CUsageFailure("--field: " + field + " is not NAME=VALUE");
        const int slot = fields.FindSlot(field.substr(0, equals));
        if (slot < 0) throw CCommandFailure("the list has no field \"" + field.substr(0, equals) + "\"");
        member.SetField(slot, field.substr(equals + 1));
    }
    if (arguments.inactiveGiven) member.SetProperty("Inactive", arguments.inactive);
}

void Prepare(CMember& member) {
    std::string reason;
    if (!PrepareMember(member, reason)) throw CCommandFailure(member.address + ": " + reason);
}

void Add(const CArguments& arguments) {
    COpenList list(arguments.list);
    CMember member;
    member.address = arguments.address;
    ApplyValues(arguments, list.fields, member);
    member.SetProperty("Subscribed", std::to_string(Platform::SecondsSince1970()));
    Prepare(member);
    if (list.members.Find(member.address) != CMemberStore::None)
        throw CCommandFailure(member.address + " is a member of \"" + list.name + "\" already");
    list.members.Add(member);
}

void List(const CArguments& arguments) {
    COpenList list(arguments.list, CMemberStore::Access::ReadOnly);
    if (arguments.json) {
        // Written member by member: a list may be larger than the memory.
        std::printf("[");
        bool first = true;
        list.members.ForEach(AllSlots, [&](std::int32_t, const CMember& member) {
            std::printf("%s%s", first ? "" : ",\n", boost::json::serialize(MemberAsJson(member, list.fields)).c_str());
            first = false;
            return true;
        });
        std::printf("]\n");
        return;
    }
    list.members.ForEach(NoSlots, [&](std::int32_t, const CMember& member) {
        std::printf("%-40s  %-7s  %s%s\n", Printable(member.address).c_str(),
                    std::string(DeliveryModeName(member.mode)).c_str(), Printable(member.name).c_str(),
                    member.IsInactive() ? "  (inactive)" : "");
        return true;
    });
}

void Show(const CArguments& arguments) {
    COpenList list(arguments.list, CMemberStore::Access::ReadOnly);
    CMember member;
    if (!list.members.Read(list.Find(arguments.address), member)) throw CCommandFailure("the member is gone");
    if (arguments.json) return PrintJson(MemberAsJson(member, list.fields));
    CTablePrinter table({"Field", "Value"});
    table.AddRow({"Address", member.address});
    table.AddRow({"Name", member.name});
    table.AddRow({"First name", member.firstName});
    table.AddRow({"Middle name", member.middleName});
    table.AddRow({"Last name", member.lastName});
    table.AddRow({"Mode", std::string(DeliveryModeName(member.mode))});
    if (member.IsInactive()) table.AddRow({"Inactive", member.GetProperty("Inactive")});
    const auto subscribed = ParseNumber(member.GetProperty("Subscribed"));
    table.AddRow({"Subscribed", PrintableTime(subscribed.value_or(0))});
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        const std::string name = list.fields.GetSlot(slot).name;
        if (!name.empty()) table.AddRow({name, std::string(member.GetField(slot))});
    }
    table.Print();
}

void Set(const CArguments& arguments) {
    COpenList list(arguments.list);
    const std::int32_t index = list.Find(arguments.address);
    CMember member;
    if (!list.members.Read(index, member)) throw CCommandFailure("the member is gone");
    ApplyValues(arguments, list.fields, member);
    if (!arguments.newAddress.empty()) member.address = arguments.newAddress;
    Prepare(member);
    if (!list.members.Update(index, member)) throw CCommandFailure("the member is gone");
}

void Remove(const CArguments& arguments) {
    COpenList list(arguments.list);
    if (!list.members.Remove(list.Find(arguments.address))) throw CCommandFailure("the member is gone");
}

void AddValueOptions(CLI::App* command, const std::shared_ptr<CArguments>& arguments) {
    command->add_option_function<std::string>(
        "--name",
        [arguments](const std::string& name) {
            arguments->name = name;
            arguments->nameGiven = true;
        },
        "First and last name, or \"Last, First\"");
    command->add_option("--mode", arguments->mode, "regular (each message), both (and the digest), digest (only it)");
    command->add_option("--field", arguments->fields, "A custom field; may be given several times")
        ->type_name("NAME=VALUE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace

void AddMemberCommands(CLI::App& app) {
    auto arguments = std::make_shared<CArguments>();
    CLI::App* member = app.add_subcommand("member", "The members of a list");
    member->require_subcommand(1);
    const auto addCommand = [&](const char* name, const char* what, bool withAddress) {
        CLI::App* command = member->add_subcommand(name, what);
        command->add_option("LIST", arguments->list)->required();
        if (withAddress) command->add_option("ADDRESS", arguments->address)->required();
        return command;
    };

    CLI::App* add = addCommand("add", "Add a member", true);
    AddValueOptions(add, arguments);
    add->callback([arguments] { Add(*arguments); });

    CLI::App* ls = addCommand("ls", "Print the members", false);
    ls->add_flag("--json", arguments->json);
    ls->callback([arguments] { List(*arguments); });

    CLI::App* show = addCommand("show", "Print one member", true);
    show->add_flag("--json", arguments->json);
    show->callback([arguments] { Show(*arguments); });

    CLI::App* set = addCommand("set", "Change a member", true);
    AddValueOptions(set, arguments);
    set->add_option("--address", arguments->newAddress, "The new address");
    set->add_option_function<std::string>(
        "--inactive",
        [arguments](const std::string& reason) {
            arguments->inactive = reason;
            arguments->inactiveGiven = true;
        },
        "Why the member gets no broadcasts; \"\" makes it active again");
    set->callback([arguments] { Set(*arguments); });

    CLI::App* remove = addCommand("remove", "Remove a member", true);
    remove->callback([arguments] { Remove(*arguments); });

    AddImportCommands(*member);
}
