#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/broadcastjob.h"
#include "engine/catalogue.h"
#include "engine/daemonhost.h"
#include "engine/incoming/mailcycle.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/lasterror.h"

namespace {

struct CCount {
    const char* key;  // of JSON
    const char* heading;
    std::uint64_t CCycleTotals::*value;
};

constexpr std::array<CCount, 11> Counts = {{
    {"fetched", "Fetched", &CCycleTotals::fetched},
    {"processed", "Processed", &CCycleTotals::processed},
    {"replies", "Answered", &CCycleTotals::replies},
    {"posted", "Posted", &CCycleTotals::posted},
    {"digested", "Digest", &CCycleTotals::digested},
    {"held", "Held", &CCycleTotals::held},
    {"added", "Added", &CCycleTotals::added},
    {"removed", "Removed", &CCycleTotals::removed},
    {"bounces", "Bounces", &CCycleTotals::bounces},
    {"loops", "Loops", &CCycleTotals::loops},
    {"failed", "Failed", &CCycleTotals::failed},
}};

struct CListResult {
    std::uint32_t number = 0;
    std::string name;
    CycleResult result = CycleResult::Done;
    CCycleTotals totals;
    std::string reason;  // of a cycle that is not done
};

const char* ResultName(CycleResult result) {
    return result == CycleResult::Done ? "done" : result == CycleResult::Busy ? "busy" : "failed";
}

std::vector<std::int32_t> ChooseLists(const std::optional<std::string>& list) {
    if (list) return {FindList(*list)};
    std::vector<std::int32_t> enabled;
    for (const std::int32_t index : GetCatalogue().GetLists()) {
        if (GetCatalogue().GetFlag(index, ListColumn::Enabled)) enabled.push_back(index);
    }
    return enabled;
}

CListResult ReceiveList(std::int32_t index) {
    CListResult result;
    result.number = GetCatalogue().GetListNumber(index);
    result.name = GetCatalogue().GetName(index);
    result.result = RunMailCycle(
        result.number, [] { return Platform::StopSignalled(); }, result.totals);
    if (result.result != CycleResult::Done) result.reason = DescribeLastError();
    return result;
}

void Print(const std::vector<CListResult>& results) {
    std::vector<std::string> headings = {"List"};
    for (const CCount& count : Counts)
        headings.emplace_back(count.heading);
    headings.emplace_back("Result");
    CTablePrinter table(headings);
    for (const CListResult& result : results) {
        std::vector<std::string> cells = {result.name};
        for (const CCount& count : Counts)
            cells.push_back(std::to_string(result.totals.*count.value));
        cells.emplace_back(ResultName(result.result));
        table.AddRow(cells);
    }
    table.Print();
}

void PrintAsJson(const std::vector<CListResult>& results) {
    boost::json::array document;
    for (const CListResult& result : results) {
        boost::json::object entry;
        entry["list"] = result.number;
        entry["name"] = JsonText(result.name);
        for (const CCount& count : Counts)
            entry[count.key] = result.totals.*count.value;
        entry["result"] = ResultName(result.result);
        entry["reason"] = result.reason.empty() ? boost::json::value() : JsonText(result.reason);
        document.push_back(std::move(entry));
    }
    PrintJson(document);
}

void CheckResults(const std::vector<CListResult>& results) {
    std::size_t failures = 0;
    const CListResult* first = nullptr;
    for (const CListResult& result : results) {
        if (result.result == CycleResult::Done) continue;
        ++failures;
        if (first == nullptr) first = &result;
    }
    if (first == nullptr) return;
    const std::string others = failures > 1 ? " (and " + std::to_string(failures - 1) + " more lists failed)" : "";
    throw CCommandFailure("list \"" + first->name + "\": " + first->reason + others);
}

// Jobs are run by whoever comes first, this program or a server: a job has one
// runner.
void Receive(const std::optional<std::string>& list, bool json) {
    OpenDataFolder();
    Platform::CatchStopSignals();
    const std::vector<std::int32_t> lists = ChooseLists(list);
    std::vector<CListResult> results;
    for (const std::int32_t index : lists) {
        if (!Platform::StopSignalled()) results.push_back(ReceiveList(index));
    }
    RunNewBroadcasts([] { return Platform::StopSignalled(); });
    json ? PrintAsJson(results) : Print(results);
    CheckResults(results);
    if (Platform::StopSignalled()) throw CCommandFailure("stopped; what is left is done by the next cycle");
    const bool hasMailbox = !list || !GetCatalogue().GetText(lists.front(), ListColumn::PopHost).empty();
    if (!hasMailbox) throw CCommandFailure("list \"" + results.front().name + "\" has no POP3 server (popHost)");
}

}  // namespace

void AddReceiveCommand(CCommand app) {
    struct CArguments {
        std::optional<std::string> list;
        bool json = false;
    };
    auto arguments = std::make_shared<CArguments>();
    CCommand receive = app.AddCommand("receive", "Fetch and process the mail of one list, or of all enabled ones");
    receive.AddOption("LIST", arguments->list, "Its number or name");
    receive.AddFlag("--json", arguments->json);
    receive.OnRun([arguments] { Receive(arguments->list, arguments->json); });
}
