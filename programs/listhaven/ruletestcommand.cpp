#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/catalogue.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/forwarding.h"
#include "engine/incoming/listview.h"
#include "engine/incoming/messageplan.h"
#include "engine/incoming/originalfields.h"
#include "engine/rules/addressmatch.h"
#include "engine/rules/rulestore.h"
#include "platform/filestatus.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/paths.h"

namespace {

struct CArguments {
    std::string list;
    std::string message;
    bool isAccepted = false;
    bool json = false;
};

struct CTrial {
    std::vector<CMessageRule> rules;
    CIncomingMessage message;
    CMessagePlan plan;
};

std::string_view NameOf(ActionKind kind) noexcept {
    switch (kind) {
        case ActionKind::Reply:
            return "reply";
        case ActionKind::AddMember:
            return "add";
        case ActionKind::RemoveMember:
            return "remove";
        case ActionKind::SetMode:
            return "mode";
        case ActionKind::UpdateMember:
            return "update";
        case ActionKind::Forward:
            return "forward";
        case ActionKind::SendMessage:
            return "send";
        case ActionKind::AddToDigest:
            return "digest";
        case ActionKind::Hold:
            return "hold";
        case ActionKind::RedirectLoop:
            return "redirect";
    }
    return "";
}

LoopOptions ReadLoopOptions(std::int32_t index) {
    CCatalogue& catalogue = GetCatalogue();
    LoopOptions loops;
    loops.bits = catalogue.GetNumber(index, ListColumn::LoopProtection);
    loops.redirect = catalogue.GetFlag(index, ListColumn::RedirectLoops);
    loops.redirectAddress = catalogue.GetText(index, ListColumn::RedirectAddress);
    loops.remove = catalogue.GetFlag(index, ListColumn::RemoveLoops);
    return loops;
}

// A post that has a format which cannot be forwarded is answered instead.
void ExplainForwarding(const BroadcastList& list, CTrial& trial) {
    for (const CAction& action : trial.plan.actions) {
        if (action.kind != ActionKind::Forward) continue;
        CMimeMessage forwarded;
        std::string invalid;
        if (MakeForwardMessage(trial.rules[action.rule].Get(), trial.message, list, forwarded, invalid)) continue;
        const auto step = std::find_if(trial.plan.steps.begin(), trial.plan.steps.end(),
                                       [&](const CRuleStep& candidate) { return candidate.rule == action.rule; });
        std::string text = "does not forward it after all: " + invalid;
        if (!action.address.empty()) text += "; answers " + action.address + " with the invalid-format reply";
        step->done.push_back(std::move(text));
    }
}

void Try(const CArguments& arguments, CTrial& trial) {
    const std::int32_t index = FindList(arguments.list);
    const std::uint32_t number = GetCatalogue().GetListNumber(index);
    // What was answered and posted before counts, unless a cycle is at work on it this instant.
    const CCycleLock lock(number);
    CCycleState state;
    const bool hasState =
        lock.IsHeld() && Platform::FileIsThere(JoinPath(GetInboxFolder(number), ".state")) && state.Open(number);
    CListView view(number, Platform::SecondsSince1970(), hasState ? &state : nullptr);
    trial.rules = CRuleStore(number).Load();
    if (!ReadIncomingMessage(arguments.message, OwnAddresses(view.GetList()), trial.message))
        FailWithLastError(arguments.message);
    trial.message.isAccepted = arguments.isAccepted;
    SetIncomingFields(trial.message, view.GetList());
    trial.plan = PlanMessage(trial.rules, trial.message, ReadLoopOptions(index), view);
    ExplainForwarding(view.GetList(), trial);
}

const CRuleStep* FindStep(const CMessagePlan& plan, std::size_t rule) {
    const auto found =
        std::find_if(plan.steps.begin(), plan.steps.end(), [&](const CRuleStep& step) { return step.rule == rule; });
    return found == plan.steps.end() ? nullptr : &*found;
}

std::string DescribeBounce(const CBounceReport& bounce) {
    if (!bounce.IsBounce()) return "";
    std::string text(BounceClassName(bounce.GetClass()));
    for (const CBouncedRecipient& recipient : bounce.recipients) {
        text.append(", ").append(recipient.address.empty() ? "no address" : recipient.address);
        if (!recipient.status.empty()) text.append(" ").append(recipient.status);
    }
    return text;
}

void PrintMessage(const CIncomingMessage& message) {
    const auto line = [](const char* name, const std::string& value) {
        if (!value.empty()) std::printf("%-10s %s\n", name, Printable(value).c_str());
    };
    line("From:", FormatMailbox(message.sender));
    std::string to;
    for (const CMailbox& mailbox : message.to)
        to.append(to.empty() ? "" : ", ").append(mailbox.address);
    line("To:", to);
    line("Subject:", message.subject);
    line("Automatic:", WhyAutomatic(message));
    line("Bounce:", DescribeBounce(message.bounce));
    std::printf("\n");
}

void PrintRule(std::size_t index, const CMessageRule& rule, const CRuleStep* step) {
    std::string verdict = step == nullptr ? "is disabled" : step->result.applies ? "applies" : "does not apply";
    if (!rule.GetFault().empty()) verdict = "is damaged: " + rule.GetFault() + "; the mail of the list waits";
    std::printf("Rule %zu \"%s\" %s\n", index + 1, Printable(rule.Get().name).c_str(), Printable(verdict).c_str());
    if (step == nullptr) return;
    if (step->result.conditions.empty()) std::printf("    yes  it has no conditions\n");
    for (const CConditionResult& condition : step->result.conditions) {
        std::printf("    %-4s %s: %s\n", condition.holds ? "yes" : "no", condition.condition.c_str(),
                    Printable(condition.why).c_str());
    }
    for (const std::string& done : step->done)
        std::printf("      -> %s\n", Printable(done).c_str());
}

void PrintForPeople(const CTrial& trial) {
    PrintMessage(trial.message);
    const std::size_t count = trial.plan.isLoop ? 0 : trial.rules.size();
    std::size_t reached = count;  // behind the last one that was
    while (reached > 0 && FindStep(trial.plan, reached - 1) == nullptr)
        --reached;
    for (std::size_t i = 0; i < reached; ++i)
        PrintRule(i, trial.rules[i], FindStep(trial.plan, i));
    if (reached + 1 == count) std::printf("Rule %zu is not reached\n", count);
    if (reached + 1 < count) std::printf("Rules %zu to %zu are not reached\n", reached + 1, count);
    if (!trial.plan.isLoop && !trial.plan.matched) std::printf("No rule applies\n");
    if (!trial.plan.notes.empty()) std::printf("\n");
    for (const std::string& note : trial.plan.notes)
        std::printf("Log: %s\n", Printable(note).c_str());
}

boost::json::object MessageInJson(const CIncomingMessage& message) {
    boost::json::array to;
    for (const CMailbox& mailbox : message.to)
        to.emplace_back(JsonText(mailbox.address));
    boost::json::array bounced;
    for (const CBouncedRecipient& recipient : message.bounce.recipients) {
        bounced.push_back({{"address", JsonText(recipient.address)},
                           {"class", JsonText(BounceClassName(recipient.bounceClass))},
                           {"status", JsonText(recipient.status)},
                           {"evidence", JsonText(recipient.evidence)}});
    }
    return {{"from", JsonText(message.sender.address)},
            {"name", JsonText(message.sender.displayName)},
            {"to", to},
            {"subject", JsonText(message.subject)},
            {"automatic", JsonText(WhyAutomatic(message))},
            {"kind", JsonText(NoticeKindName(message.bounce.kind))},
            {"bounced", bounced}};
}

boost::json::object RuleInJson(std::size_t index, const RuleFields& rule, const CRuleStep* step) {
    boost::json::array conditions;
    boost::json::array done;
    if (step != nullptr) {
        for (const CConditionResult& condition : step->result.conditions) {
            conditions.push_back({{"condition", JsonText(condition.condition)},
                                  {"holds", condition.holds},
                                  {"why", JsonText(condition.why)}});
        }
        for (const std::string& text : step->done)
            done.emplace_back(JsonText(text));
    }
    return {{"number", index + 1},
            {"name", JsonText(rule.name)},
            {"enabled", rule.enabled},
            {"reached", step != nullptr},
            {"applies", step != nullptr && step->result.applies},
            {"conditions", conditions},
            {"done", done}};
}

void PrintTrialJson(const CTrial& trial) {
    boost::json::array rules;
    for (std::size_t i = 0; i < trial.rules.size(); ++i)
        rules.push_back(RuleInJson(i, trial.rules[i].Get(), FindStep(trial.plan, i)));
    boost::json::array actions;
    for (const CAction& action : trial.plan.actions) {
        boost::json::object entry{{"action", JsonText(NameOf(action.kind))}, {"address", JsonText(action.address)}};
        if (action.kind != ActionKind::RedirectLoop) entry["rule"] = action.rule + 1;
        actions.push_back(std::move(entry));
    }
    boost::json::array notes;
    for (const std::string& note : trial.plan.notes)
        notes.emplace_back(JsonText(note));
    PrintJson({{"message", MessageInJson(trial.message)},
               {"loop", trial.plan.isLoop},
               {"held", trial.plan.isHeld},
               {"removeFromServer", trial.plan.removeFromServer},
               {"rules", rules},
               {"actions", actions},
               {"notes", notes}});
}

void TestRules(const CArguments& arguments) {
    OpenDataFolder();
    CTrial trial;
    Try(arguments, trial);
    if (arguments.json)
        PrintTrialJson(trial);
    else
        PrintForPeople(trial);
}

}  // namespace

void AddRuleTestCommand(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand test = app.GetGroup("rule").AddCommand(
        "test", "What the rules would do with a message, and why; nothing is done, nothing is sent");
    test.AddOption("LIST", arguments->list).Required();
    test.AddOption("MESSAGE", arguments->message, "a message file (.eml)").Required();
    test.AddFlag("--accepted", arguments->isAccepted, "as if the moderator had accepted it");
    test.AddFlag("--json", arguments->json);
    test.OnRun([arguments] { TestRules(*arguments); });
}
