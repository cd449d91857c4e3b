#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "app/thisapp.h"
#include "engine/daemonhost.h"
#include "engine/listaccount.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/progressbar.h"
#include "programs/listhaven/tableprinter.h"
#include "senddaemon/accountfolders.h"
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
// The sum of them where that does not fit.
std::string ProgressText(const CDaemonHost& host, std::size_t columns) {
    std::string text;
    SendDaemon::CDispatchTotals sum;
    std::size_t active = 0;
    for (const CListProgress& list : host.GetProgress()) {
        const std::string counts = CountsText(list.totals);
        if (counts.empty()) continue;
        if (++active > 1) text += " | ";
        text += Printable(list.name) + ": " + counts;
        sum.sent += list.totals.sent;
        sum.failed += list.totals.failed;
        sum.parked += list.totals.parked;
        sum.expired += list.totals.expired;
        sum.deferred += list.totals.deferred;
    }
    if (text.size() <= columns) return text;
    return std::to_string(active) + (active == 1 ? " list: " : " lists: ") + CountsText(sum);
}

// What earlier attempts have left in .Deferred, too.
SendDaemon::CDeferredMessages FindDeferred(const std::vector<CListProgress>& lists) {
    SendDaemon::CDeferredMessages all;
    for (const CListProgress& list : lists) {
        const SendDaemon::CDeferredMessages of = SendDaemon::FindDeferredMessages(GetAccountRoot(list.number));
        all.count += of.count;
        if (of.firstDue != 0 && (all.firstDue == 0 || of.firstDue < all.firstDue)) all.firstDue = of.firstDue;
    }
    return all;
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

void PrintDeferred(const SendDaemon::CDeferredMessages& deferred, const SendDaemon::CSendResult& result) {
    if (deferred.count == 0) return;
    if (result.waiting == 0 && !result.waitingFor.empty()) std::printf("%s\n", Printable(result.waitingFor).c_str());
    std::printf("%llu deferred in all, tried again from %s on\n", static_cast<unsigned long long>(deferred.count),
                PrintableTime(deferred.firstDue).c_str());
}

void PrintResultAsJson(const SendDaemon::CSendResult& result, const SendDaemon::CDeferredMessages& deferred,
                       const std::vector<CListProgress>& lists) {
    PrintJson({{"sent", result.sent},
               {"failed", result.failed},
               {"heldBack", result.heldBack},
               {"expired", result.expired},
               {"deferred", result.deferred},
               {"deferredInAll", deferred.count},
               {"nextAttempt", deferred.firstDue},
               {"waiting", result.waiting},
               {"waitingUntil", result.waitingUntil},
               {"waitingFor", JsonText(result.waitingFor)},
               {"lists", ListsAsJson(lists)}});
}

void Send(bool once, bool json) {
    OpenDataFolder();
    Platform::CatchStopSignals();
    SendDaemon::CSendResult result;
    std::vector<CListProgress> lists;
    std::string failure;
    {
        CDaemonHost host;
        if (!host.Start()) {
            if (IsServerRunning())
                throw CCommandFailure("nothing was sent: the server is running, which sends what waits");
            FailWithLastError("nothing was sent");
        }
        CProgressBar bar("Sending:");
        SendDaemon::CSendLoopOptions options;
        options.stopRequested = [] { return Platform::StopSignalled(); };
        options.progress = [&](const SendDaemon::CSendResult&) {
            bar.Show([&](std::size_t columns) { return ProgressText(host, columns); });
        };
        result = once ? RunOnce(host.GetDaemon(), options) : RunUntilEmpty(host.GetDaemon(), options);
        lists = host.GetProgress();
        failure = host.GetFailure();
    }
    const SendDaemon::CDeferredMessages deferred = FindDeferred(lists);
    if (json) {
        PrintResultAsJson(result, deferred, lists);
    } else {
        PrintResult(result, lists);
        PrintDeferred(deferred, result);
    }
    if (result.gaveUp) throw CCommandFailure("messages are left in the queue: " + result.reason);
    if (!failure.empty()) throw CCommandFailure(failure);
    if (result.wasStopped) throw CCommandFailure("stopped; what is left in the queue is sent by the next run");
    if (result.waiting > 0) {
        throw CCommandFailure(std::to_string(result.waiting) + " messages wait until " +
                              PrintableTime(result.waitingUntil) + ": " + result.waitingFor);
    }
}

}  // namespace

void AddSendCommand(CCommand app) {
    struct CArguments {
        bool once = false;
        bool json = false;
    };
    auto arguments = std::make_shared<CArguments>();
    CCommand send = app.AddCommand("send", "Send what waits until the queues are empty");
    send.AddFlag("--once", arguments->once, "Go through every queue once");
    send.AddFlag("--json", arguments->json);
    send.OnRun([arguments] { Send(arguments->once, arguments->json); });
}
