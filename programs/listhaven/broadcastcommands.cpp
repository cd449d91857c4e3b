#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/broadcastjob.h"
#include "engine/catalogue.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/progressbar.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::optional<std::string> message;
    std::vector<std::string> lists;
    std::string modes;
    std::optional<std::string> id;
    bool resume = false;
    bool json = false;
};

BroadcastModes ParseModes(const std::string& text) {
    if (text.empty()) return {};
    BroadcastModes modes{false, false, false};
    for (const std::string_view part : Split(text, ',')) {
        const auto mode = ParseDeliveryMode(Trim(part));
        if (!mode) throw CUsageFailure("--modes: \"" + std::string(part) + "\" is none; use regular, both, digest");
        if (*mode == DeliveryMode::Regular) modes.regular = true;
        if (*mode == DeliveryMode::Both) modes.both = true;
        if (*mode == DeliveryMode::Digest) modes.digest = true;
    }
    return modes;
}

void PrintResult(const BroadcastInfo& info, bool json) {
    if (json)
        PrintJson({{"id", JsonText(info.id)},
                   {"state", JsonText(BroadcastStateName(info.state))},
                   {"copies", info.counts.copies},
                   {"skipped", info.counts.skipped},
                   {"blocked", info.counts.blocked}});
    else
        std::printf(
            "Broadcast %s, %s: %llu copies, %llu skipped, %llu blocked\n", info.id.c_str(),
            std::string(BroadcastStateName(info.state)).c_str(), static_cast<unsigned long long>(info.counts.copies),
            static_cast<unsigned long long>(info.counts.skipped), static_cast<unsigned long long>(info.counts.blocked));
}

// A new broadcast: the server may begin it first, or leave off to do other work.
bool RunNewJob(CBroadcastJobs& jobs, const std::string& id, const BroadcastStop& stop,
               const BroadcastProgress& progress, BroadcastInfo& info) {
    constexpr std::uint32_t Pause = 100;  // milliseconds
    while (jobs.Get(id, info)) {
        if (info.state == BroadcastState::Done || info.state == BroadcastState::Cancelled) return true;
        if (info.state == BroadcastState::Interrupted) {
            if (jobs.Run(id, stop, progress, info)) return true;
            const std::string reason = GetLastErrorText();
            if (!jobs.Get(id, info) || info.state == BroadcastState::Interrupted) {
                SetLastErrorText(reason);
                return false;
            }
        }
        if (stop()) {
            SetLastErrorText("The server goes on with it.");
            return false;
        }
        progress(info.position, info.total);
        Platform::SleepMilliseconds(Pause);
    }
    return false;
}

enum class Job { New, Resumed };

// Ctrl-C stops between two members; the broadcast can then be resumed.
void RunJob(CBroadcastJobs& jobs, const std::string& id, Job job, bool json) {
    Platform::CatchStopSignals();
    BroadcastInfo info;
    bool succeeded;
    {
        CProgressBar bar("Generating");
        const BroadcastStop stop = [] { return Platform::StopSignalled(); };
        const BroadcastProgress progress = [&](std::uint64_t position, std::uint64_t total) {
            bar.Show(position, total);
        };
        succeeded = job == Job::New ? RunNewJob(jobs, id, stop, progress, info) : jobs.Run(id, stop, progress, info);
    }
    if (!succeeded) {
        const bool isInterrupted = !info.id.empty() && info.state == BroadcastState::Interrupted;
        FailWithLastError("broadcast " + id + (isInterrupted ? " was interrupted (see broadcast --resume)" : ""));
    }
    PrintResult(info, json);
    if (info.state == BroadcastState::Interrupted)
        throw CCommandFailure("broadcast " + id + " was stopped; resume it with: broadcast --resume " + id);
}

void Start(const CArguments& arguments) {
    if (arguments.lists.empty()) throw CUsageFailure("--list is required");
    const BroadcastModes modes = ParseModes(arguments.modes);
    OpenDataFolder();
    std::vector<std::uint32_t> numbers;
    for (const std::string& list : arguments.lists)
        numbers.push_back(GetCatalogue().GetListNumber(FindList(list)));
    CBroadcastJobs jobs;
    std::string id;
    if (!jobs.Create(*arguments.message, numbers, modes, id)) FailWithLastError(*arguments.message);
    RunJob(jobs, id, Job::New, arguments.json);
}

void Resume(const CArguments& arguments) {
    OpenDataFolder();
    CBroadcastJobs jobs;
    if (arguments.id) return RunJob(jobs, *arguments.id, Job::Resumed, arguments.json);
    Platform::CatchStopSignals();
    std::vector<BroadcastInfo> ran;
    bool succeeded;
    {
        CProgressBar bar("Generating");
        succeeded =
            jobs.ResumeAll([] { return Platform::StopSignalled(); },
                           [&](std::uint64_t position, std::uint64_t total) { bar.Show(position, total); }, ran);
    }
    const std::string reason = succeeded ? std::string() : DescribeLastError();
    if (arguments.json) {
        boost::json::array document;
        for (const BroadcastInfo& info : ran)
            document.push_back({{"id", JsonText(info.id)},
                                {"state", JsonText(BroadcastStateName(info.state))},
                                {"copies", info.counts.copies},
                                {"skipped", info.counts.skipped},
                                {"blocked", info.counts.blocked}});
        PrintJson(document);
    } else {
        for (const BroadcastInfo& info : ran)
            PrintResult(info, false);
        if (ran.empty() && succeeded) std::printf("No broadcast is interrupted.\n");
    }
    if (!succeeded) throw CCommandFailure("a broadcast could not be resumed: " + reason);
    if (!ran.empty() && ran.back().state == BroadcastState::Interrupted)
        throw CCommandFailure("broadcast " + ran.back().id + " was stopped; resume it with: broadcast --resume");
}

void List(bool json) {
    OpenDataFolder();
    std::vector<BroadcastInfo> jobs;
    if (!CBroadcastJobs().List(jobs)) FailWithLastError("the broadcasts could not be listed");
    boost::json::array document;
    CTablePrinter table({"Id", "State", "Position", "Members", "Copies", "Skipped", "Blocked", "Started", "Subject"});
    for (const BroadcastInfo& info : jobs) {
        boost::json::array lists(info.lists.begin(), info.lists.end());
        document.push_back({{"id", JsonText(info.id)},
                            {"state", JsonText(BroadcastStateName(info.state))},
                            {"subject", JsonText(info.subject)},
                            {"lists", lists},
                            {"position", info.position},
                            {"total", info.total},
                            {"copies", info.counts.copies},
                            {"skipped", info.counts.skipped},
                            {"blocked", info.counts.blocked},
                            {"started", info.started}});
        table.AddRow({info.id, std::string(BroadcastStateName(info.state)), std::to_string(info.position),
                      std::to_string(info.total), std::to_string(info.counts.copies),
                      std::to_string(info.counts.skipped), std::to_string(info.counts.blocked),
                      PrintableTime(info.started), info.subject});
    }
    json ? PrintJson(document) : table.Print();
}

}  // namespace

void AddBroadcastCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand broadcast = app.AddCommand("broadcast", "Write one personalised copy per member into the send queue");
    broadcast.AddOption("--list", arguments->lists, "A list's number or name; may be given several times")
        .NamesValue("LIST")
        .OneEachTime();
    broadcast.AddOption("--modes", arguments->modes, "Who gets it: regular, both, digest (default: regular,both)");
    broadcast.AddFlag("--resume", arguments->resume, "Go on with one interrupted broadcast, or with all");
    broadcast.AddFlag("--json", arguments->json);
    broadcast.AddOption("MESSAGE", arguments->message, "The message (.eml); with --resume a broadcast's identifier");
    broadcast.AllowCommand();

    CCommand ls = broadcast.AddCommand("ls", "Print the broadcasts: running, interrupted, done, cancelled");
    ls.AddFlag("--json", arguments->json);
    ls.OnRun([arguments] { List(arguments->json); });

    CCommand cancel = broadcast.AddCommand("cancel", "End a broadcast for good; copies in the queue stay there");
    cancel.AddOption("ID", arguments->id).Required();
    cancel.OnRun([arguments] {
        OpenDataFolder();
        if (!CBroadcastJobs().Cancel(*arguments->id)) FailWithLastError("broadcast " + *arguments->id);
    });

    broadcast.OnRun([arguments, broadcast] {
        if (broadcast.IsCommandGiven()) return;
        if (arguments->resume) {
            if (!arguments->lists.empty()) throw CUsageFailure("--resume takes no --list");
            arguments->id = arguments->message;
            return Resume(*arguments);
        }
        if (!arguments->message) throw CUsageFailure("MESSAGE.eml is required");
        Start(*arguments);
    });
}
