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
#include "programs/listhaven/commandline.h"
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
            std::printf("%s%s", first ? "" : ",\n", SerializedJson(MemberAsJson(member, list.fields)).c_str());
            first = false;
            return std::ferror(stdout) == 0;
        });
        std::printf("]\n");
        return;
    }
    list.members.ForEach(NoSlots, [&](std::int32_t, const CMember& member) {
        std::printf("%-40s  %-7s  %s%s\n", Printable(member.address).c_str(),
                    std::string(DeliveryModeName(member.mode)).c_str(), Printable(member.name).c_str(),
                    member.IsInactive() ? "  (inactive)" : "");
        return std::ferror(stdout) == 0;
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
    const std::string bounces = member.GetProperty("Bounces");
    if (!bounces.empty()) table.AddRow({"Bounces", bounces});
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

void AddValueOptions(CCommand command, const std::shared_ptr<CArguments>& arguments) {
    command.AddOption(
        "--name",
        [arguments](const std::string& name) {
            arguments->name = name;
            arguments->nameGiven = true;
        },
        "First and last name, or \"Last, First\"");
    command.AddOption("--mode", arguments->mode, "regular (each message), both (and the digest), digest (only it)");
    command.AddOption("--field", arguments->fields, "A custom field; may be given several times")
        .NamesValue("NAME=VALUE")
        .OneEachTime();
}

}  // namespace

void AddMemberCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand member = app.AddCommand("member", "The members of a list");
    member.RequireCommand();
    const auto addCommand = [&](const char* name, const char* what, bool withAddress) {
        CCommand command = member.AddCommand(name, what);
        command.AddOption("LIST", arguments->list).Required();
        if (withAddress) command.AddOption("ADDRESS", arguments->address).Required();
        return command;
    };

    CCommand add = addCommand("add", "Add a member", true);
    AddValueOptions(add, arguments);
    add.OnRun([arguments] { Add(*arguments); });

    CCommand ls = addCommand("ls", "Print the members", false);
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(*arguments); });

    CCommand show = addCommand("show", "Print one member", true);
    show.AddFlag("--json", arguments->json);
    show.OnRun([arguments] { Show(*arguments); });

    CCommand set = addCommand("set", "Change a member", true);
    AddValueOptions(set, arguments);
    set.AddOption("--address", arguments->newAddress, "The new address");
    set.AddOption(
        "--inactive",
        [arguments](const std::string& reason) {
            arguments->inactive = reason;
            arguments->inactiveGiven = true;
        },
        "Why the member gets no broadcasts; \"\" makes it active again");
    set.OnRun([arguments] { Set(*arguments); });

    CCommand remove = addCommand("remove", "Remove a member", true);
    remove.OnRun([arguments] { Remove(*arguments); });

    AddImportCommands(member);
}
