#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "engine/catalogue.h"
#include "engine/rules/listcreation.h"
#include "engine/rules/rulestore.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/rulejson.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/files.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::size_t number = 0;
    std::size_t to = 0;
    std::string file;
    std::string key;
    std::string value;
    bool yes = false;
    bool json = false;
};

// The rules of a list, and what is needed to print them.
struct CRules {
    std::int32_t index;
    CRuleStore store;
    CCustomFields fields;
    std::vector<CMessageRule> rules;

    explicit CRules(std::int32_t listIndex) : index(listIndex), store(GetCatalogue().GetListNumber(listIndex)) {
        fields.Load(GetCatalogue().GetListNumber(index));
        rules = store.Load();
    }

    CMessageRule& Find(std::size_t number) {
        if (number == 0 || number > rules.size())
            throw CCommandFailure("there is no rule " + std::to_string(number) + "; the list has " +
                                  std::to_string(rules.size()));
        return rules[number - 1];
    }
};

CRules OpenRules(const CArguments& arguments) {
    OpenDataFolder();
    return CRules(FindList(arguments.list));
}

void AddMembers(std::vector<std::string>& words, const RuleMembers& members) {
    if (!members.subscribers || (!members.regular && !members.digestOnly)) return;
    words.push_back(!members.regular ? "digest members" : members.digestOnly ? "members" : "regular members");
}

std::string Named(const char* what, const std::vector<std::string>& entries, const RuleMembers& members = {}) {
    std::vector<std::string> words = entries;
    AddMembers(words, members);
    return std::string(what) + " " + Join(words, " | ");
}

std::string Conditions(const RuleFields& rule) {
    std::vector<std::string> parts;
    if (rule.checkFrom) parts.push_back(Named("from", rule.fromAddresses, rule.fromOptions.members));
    if (rule.checkTo) parts.push_back(Named("to", rule.toAddresses, rule.toOptions.members));
    if (rule.checkSubject) parts.push_back(Named("subject", rule.subjectWords));
    if (rule.checkBody) parts.push_back(Named("body", rule.bodyWords));
    if (rule.replyToSigned) parts.emplace_back("reply to a signed message");
    if (rule.signedMessage) parts.emplace_back("signed");
    if (rule.checkBounce) parts.push_back("bounce: " + std::string(BounceKindName(rule.bounceKind)));
    return parts.empty() ? "every message" : Join(parts, ", ");
}

std::string Actions(const RuleFields& rule) {
    std::vector<std::string> parts;
    if (rule.addSender) parts.emplace_back("add sender");
    if (rule.removeSender) parts.emplace_back("remove sender");
    if (rule.changeDigestMode) parts.emplace_back(rule.digestMode == DigestModeOn ? "digest on" : "digest off");
    if (rule.reply) parts.emplace_back("reply");
    if (rule.forward) parts.push_back(Named("forward to", rule.forwardAddresses, rule.forwardMembers));
    if (rule.sendMessage) parts.push_back(Named("send a message to", rule.sendToAddresses, rule.sendToMembers));
    if (rule.addToDigest) parts.emplace_back("add to digest");
    if (!rule.parseFields.empty()) parts.emplace_back("parse fields");
    if (rule.removeFromServer) parts.emplace_back("remove from server");
    if (rule.stopProcessing) parts.emplace_back("stop");
    return Join(parts, ", ");
}

boost::json::object AsJson(const CRules& rules, const CMessageRule& rule, std::size_t number) {
    boost::json::object document = RuleAsJson(rule.Get(), rules.fields);
    document["number"] = number;
    document["id"] = rule.GetId();
    if (!rule.GetFault().empty()) document["fault"] = JsonText(rule.GetFault());
    return document;
}

void List(const CArguments& arguments) {
    const CRules rules = OpenRules(arguments);
    boost::json::array document;
    constexpr std::size_t ConditionsShown = 60;  // "rule show" has them whole
    CTablePrinter table({"No", "Name", "On", "When", "Does"});
    for (std::size_t i = 0; i < rules.rules.size(); ++i) {
        const CMessageRule& rule = rules.rules[i];
        document.push_back(AsJson(rules, rule, i + 1));
        table.AddRow({std::to_string(i + 1), rule.Get().name,
                      !rule.GetFault().empty() ? "damaged"
                      : rule.Get().enabled     ? "yes"
                                               : "no",
                      Shortened(Conditions(rule.Get()), ConditionsShown), Actions(rule.Get())});
    }
    arguments.json ? PrintJson(document) : table.Print();
}

void Show(const CArguments& arguments) {
    CRules rules = OpenRules(arguments);
    const CMessageRule& rule = rules.Find(arguments.number);
    if (arguments.json) return PrintJson(AsJson(rules, rule, arguments.number));
    if (!rule.GetFault().empty()) std::printf("damaged: %s\n", Printable(rule.GetFault()).c_str());
    for (const RuleFieldText& field : RuleAsTexts(rule.Get(), rules.fields)) {
        const std::vector<std::string_view> lines = Split(TrimRight(field.value), '\n');
        if (lines.size() == 1) {
            std::printf("%s: %s\n", field.key.c_str(), Printable(lines.front()).c_str());
            continue;
        }
        std::printf("%s:\n", field.key.c_str());
        for (const std::string_view line : lines)
            std::printf("    %s\n", Printable(line).c_str());
    }
}

boost::json::value ReadJson(const std::string& file) {
    std::string text;
    if (!ReadWholeFile(file, text)) FailWithLastError(file);
    boost::system::error_code fault;
    boost::json::value document = boost::json::parse(text, fault);
    if (fault) throw CCommandFailure(file + " is no JSON: " + fault.message());
    return document;
}

// One rule, or an array of rules, as they are printed.
void Add(const CArguments& arguments) {
    CRules rules = OpenRules(arguments);
    const boost::json::value document = ReadJson(arguments.file);
    std::vector<CMessageRule> added;
    const auto add = [&](const boost::json::value& each) {
        added.emplace_back().Edit() = RuleFromJson(each, rules.fields);
    };
    if (document.is_array()) {
        for (const boost::json::value& each : document.get_array())
            add(each);
    } else {
        add(document);
    }
    rules.store.Append(added);
    for (std::size_t i = 0; i < added.size(); ++i)
        std::printf("%zu\n", rules.rules.size() + i + 1);
}

void Set(const CArguments& arguments) {
    CRules rules = OpenRules(arguments);
    CMessageRule& rule = rules.Find(arguments.number);
    SetRuleField(rule.Edit(), arguments.key, arguments.value, rules.fields);
    rules.store.Save(rule);
}

void Move(const CArguments& arguments) {
    CRules rules = OpenRules(arguments);
    const CMessageRule& rule = rules.Find(arguments.number);
    rules.Find(arguments.to);
    rules.store.Move(rule.GetId(), arguments.to - 1);
}

void Delete(const CArguments& arguments) {
    CRules rules = OpenRules(arguments);
    rules.store.Delete(rules.Find(arguments.number).GetId());
}

void Reset(const CArguments& arguments) {
    OpenDataFolder();
    const std::int32_t index = FindList(arguments.list);
    if (!arguments.yes) {
        if (!Platform::InputIsTerminal()) throw CUsageFailure("--yes is required to replace all rules");
        std::fprintf(stderr, "Replace all rules and the usage text of the list \"%s\" by the standard ones? [y/N] ",
                     Printable(GetCatalogue().GetName(index)).c_str());
        std::string answer;
        std::getline(std::cin, answer);
        if (!EqualNoCase(Trim(answer), "y") && !EqualNoCase(Trim(answer), "yes"))
            throw CCommandFailure("nothing was changed");
    }
    ResetRules(index);
}

}  // namespace

void AddRuleCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand rule = app.AddCommand("rule", "What is done with incoming mail");
    rule.RequireCommand();
    const auto command = [&](const char* name, const char* what, bool takesNumber) {
        CCommand added = rule.AddCommand(name, what);
        added.AddOption("LIST", arguments->list).Required();
        if (takesNumber) added.AddOption("N", arguments->number, "Its place, from 1").Required();
        return added;
    };

    CCommand ls = command("ls", "Print the rules in the order in which they apply", false);
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(*arguments); });

    CCommand show = command("show", "Print what is set of a rule", true);
    show.AddFlag("--json", arguments->json);
    show.OnRun([arguments] { Show(*arguments); });

    CCommand add = command("add", "Add rules behind the others, as show and ls print them; prints their places", false);
    add.AddOption("--json", arguments->file, "A rule, or an array of rules").Required().NamesValue("FILE");
    add.OnRun([arguments] { Add(*arguments); });

    CCommand set = command("set", "Change a field of a rule", true);
    set.AddOption("KEY", arguments->key).Required();
    set.AddOption("VALUE", arguments->value, "A list: separated by commas or lines; @FILE: what a file holds")
        .Required();
    set.OnRun([arguments] { Set(*arguments); });

    CCommand move = command("move", "Move a rule to another place", true);
    move.AddOption("TO", arguments->to).Required();
    move.OnRun([arguments] { Move(*arguments); });

    command("delete", "Delete a rule", true).OnRun([arguments] { Delete(*arguments); });

    CCommand reset = command("reset", "Replace all rules by the standard ones of the list's kind", false);
    reset.AddFlag("--yes", arguments->yes, "Do not ask");
    reset.OnRun([arguments] { Reset(*arguments); });
}
