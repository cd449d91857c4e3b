#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/daemonhost.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/progressbar.h"
#include "programs/listhaven/tableprinter.h"
#include "senddaemon/sendloop.h"

namespace {

std::string CountsText(const SendDaemon::CDispatchTotals& totals) {
    const std::pair<std::uint64_t, const char*> parts[] = {{totals.sent, "sent"},
                                                           {totals.deferred, "deferred"},
                                                           {totals.failed, "failed"},
                                                           {totals.parked, "held back"},
                                                           {totals.expired, "expired"}};
    std::string text;
    for (const auto& [count, name] : parts) {
        if (count == 0) continue;
        if (!text.empty()) text += ", ";
        text += std::to_string(count) + " " + name;
    }
    return text;
}

// One piece per list that has sent or tried to: "Harbour News: 120 sent, 3 deferred".
std::string ProgressText(const CDaemonHost& host) {
    std::string text;
    for (const CListProgress& list : host.GetProgress()) {
        const std::string counts = CountsText(list.totals);
        if (counts.empty()) continue;
        if (!text.empty()) text += " | ";
        text += Printable(list.name) + ": " + counts;
    }
    return text;
}

boost::json::array ListsAsJson(const std::vector<CListProgress>& lists) {
    boost::json::array document;
    for (const CListProgress& list : lists) {
        const SendDaemon::CDispatchTotals& totals = list.totals;
        document.push_back({{"number", list.number},
                            {"list", JsonText(list.name)},
                            {"sent", totals.sent},
                            {"failed", totals.failed},
                            {"heldBack", totals.parked},
                            {"expired", totals.expired},
                            {"deferred", totals.deferred}});
    }
    return document;
}

void PrintResult(const SendDaemon::CSendResult& result, const std::vector<CListProgress>& lists) {
    std::printf("%llu sent, %llu failed, %llu held back, %llu expired, %llu deferred\n",
                static_cast<unsigned long long>(result.sent), static_cast<unsigned long long>(result.failed),
                static_cast<unsigned long long>(result.heldBack), static_cast<unsigned long long>(result.expired),
                static_cast<unsigned long long>(result.deferred));
    const auto isActive = [](const CListProgress& list) { return !CountsText(list.totals).empty(); };
    if (std::count_if(lists.begin(), lists.end(), isActive) < 2) return;
    for (const CListProgress& list : lists) {
        if (isActive(list)) std::printf("  %s: %s\n", Printable(list.name).c_str(), CountsText(list.totals).c_str());
    }
}

void Send(bool once, bool json) {
    OpenDataFolder();
    Platform::CatchStopSignals();
    SendDaemon::CSendResult result;
    std::vector<CListProgress> lists;
    {
        CDaemonHost host;
        if (!host.Start()) FailWithLastError("nothing was sent");
        CProgressBar bar("Sending:");
        SendDaemon::CSendLoopOptions options;
        options.stopRequested = [] { return Platform::StopSignalled(); };
        options.progress = [&](const SendDaemon::CSendResult&) { bar.Show([&] { return ProgressText(host); }); };
        result = once ? RunOnce(host.GetDaemon(), options) : RunUntilEmpty(host.GetDaemon(), options);
        lists = host.GetProgress();
    }
    if (json)
        PrintJson({{"sent", result.sent},
                   {"failed", result.failed},
                   {"heldBack", result.heldBack},
                   {"expired", result.expired},
                   {"deferred", result.deferred},
                   {"waiting", result.waiting},
                   {"lists", ListsAsJson(lists)}});
    else
        PrintResult(result, lists);
    if (result.gaveUp) throw CCommandFailure("messages are left in the queue: " + result.reason);
    if (result.wasStopped) throw CCommandFailure("stopped; what is left in the queue is sent by the next run");
    if (result.waiting > 0) {
        throw CCommandFailure(std::to_string(result.waiting) + " messages wait until " +
                              PrintableTime(result.waitingUntil) + ": " + result.waitingFor);
    }
}

}  // namespace

void AddSendCommand(CLI::App& app) {
    struct CArguments {
        bool once = false;
        bool json = false;
    };
    auto arguments = std::make_shared<CArguments>();
    CLI::App* send = app.add_subcommand("send", "Send what waits until the queues are empty");
    send->add_flag("--once", arguments->once, "Go through every queue once");
    send->add_flag("--json", arguments->json);
    send->callback([arguments] { Send(arguments->once, arguments->json); });
}
