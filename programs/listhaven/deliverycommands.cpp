#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "engine/broadcastjob.h"
#include "engine/catalogue.h"
#include "engine/deliveries.h"
#include "engine/listaccount.h"
#include "platform/filestatus.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"

namespace {

using SendDaemon::CDeliveryLine;

struct CArguments {
    std::string list;
    std::string broadcast;
    std::string recipient;
    std::vector<std::string> statuses;
    bool all = false;
    bool expired = false;
    bool json = false;
};

std::uint32_t OpenList(const std::string& list) {
    OpenDataFolder();
    return GetCatalogue().GetListNumber(FindList(list));
}

std::string Number(std::uint64_t number) {
    return std::to_string(number);
}

boost::json::object LineAsJson(const CDeliveryLine& line) {
    return {{"time", line.time},
            {"status", JsonText(GetDeliveryStatusName(line.status))},
            {"broadcast", JsonText(line.broadcast)},
            {"message", JsonText(line.message)},
            {"recipient", JsonText(line.recipient)},
            {"host", JsonText(line.host)},
            {"code", line.code},
            {"enhanced", JsonText(line.enhanced)},
            {"text", JsonText(line.text)}};
}

// A ledger has no bounded length: lines are printed as they come.
void PrintLine(const CDeliveryLine& line) {
    std::string reason = line.code == 0 ? std::string() : std::to_string(line.code) + " ";
    if (!line.enhanced.empty()) reason += line.enhanced + " ";
    reason += line.text;
    if (!line.host.empty()) reason += " [" + line.host + "]";
    std::printf("%s  %-8s  %s  %s  %s\n", PrintableTime(line.time).c_str(),
                std::string(GetDeliveryStatusName(line.status)).c_str(),
                line.broadcast.empty() ? "-" : Printable(line.broadcast).c_str(), Printable(line.recipient).c_str(),
                Printable(reason).c_str());
}

void SayUnreadable(std::uint64_t lines) {
    if (lines == 0) return;
    std::fflush(stdout);
    std::fprintf(stderr, "listhaven: %s lines of the delivery log could not be read\n", Number(lines).c_str());
}

// Asked when nothing came of it, which a broadcast that never was is the likeliest reason of.
void CheckBroadcast(const std::string& id) {
    BroadcastInfo info;
    if (!id.empty() && !CBroadcastJobs().Get(id, info)) FailWithLastError("broadcast " + id);
}

void Show(const CArguments& arguments) {
    if (arguments.list.empty()) throw CUsageFailure("LIST is required");
    CDeliveryFilter filter{
        .broadcast = arguments.broadcast, .recipient = arguments.recipient, .everyLine = arguments.all};
    for (const std::string& name : arguments.statuses) {
        SendDaemon::DeliveryStatus status{};
        if (!ParseDeliveryStatus(name, status))
            throw CUsageFailure("--status: \"" + name +
                                "\" is none; use accepted, sent, deferred, failed, expired, parked or requeued");
        filter.statuses.push_back(status);
    }
    const std::string root = GetAccountRoot(OpenList(arguments.list));
    bool isFirst = true;
    std::uint64_t skipped = 0;
    if (arguments.json) std::fputs("[", stdout);
    const bool isRead = ForEachDelivery(
        root, filter,
        [&](const CDeliveryLine& line) {
            if (!arguments.json) {
                PrintLine(line);
            } else {
                std::printf("%s\n%s", isFirst ? "" : ",", SerializedJson(LineAsJson(line)).c_str());
            }
            isFirst = false;
            return std::ferror(stdout) == 0;
        },
        &skipped);
    if (arguments.json) std::fputs("\n]\n", stdout);
    if (!isRead) FailWithLastError("the delivery log could not be read");
    SayUnreadable(skipped);
    if (isFirst) CheckBroadcast(arguments.broadcast);
}

void Summarize(const CArguments& arguments) {
    std::vector<CBroadcastDeliveries> broadcasts;
    std::uint64_t skipped = 0;
    if (!SummarizeDeliveries(OpenList(arguments.list), broadcasts, &skipped))
        FailWithLastError("the deliveries could not be counted");
    boost::json::array document;
    CTablePrinter table(
        {"Broadcast", "Subject", "Copies", "Sent", "Deferred", "Failed", "Expired", "Parked", "Waiting"});
    for (const CBroadcastDeliveries& counts : broadcasts) {
        document.push_back({{"broadcast", JsonText(counts.broadcast)},
                            {"subject", JsonText(counts.subject)},
                            {"copies", counts.copies},
                            {"sent", counts.sent},
                            {"deferred", counts.deferred},
                            {"failed", counts.failed},
                            {"expired", counts.expired},
                            {"parked", counts.parked},
                            {"waiting", counts.waiting}});
        table.AddRow({counts.broadcast.empty() ? "-" : counts.broadcast, counts.subject, Number(counts.copies),
                      Number(counts.sent), Number(counts.deferred), Number(counts.failed), Number(counts.expired),
                      Number(counts.parked), Number(counts.waiting)});
    }
    arguments.json ? PrintJson(document) : table.Print();
    SayUnreadable(skipped);
}

void Retry(const CArguments& arguments) {
    const std::string root = GetAccountRoot(OpenList(arguments.list));
    const RetryScope scope = arguments.expired ? RetryScope::FailedAndExpired : RetryScope::Failed;
    CRetryResult result;
    if (!RetryFailed(root, arguments.broadcast, scope, Platform::SecondsSince1970(), result))
        FailWithLastError("the messages could not be put back into the queue");
    if (result.messages + result.settled + result.doubles + result.failures == 0) CheckBroadcast(arguments.broadcast);
    if (arguments.json)
        PrintJson({{"messages", result.messages},
                   {"recipients", result.recipients},
                   {"settled", result.settled},
                   {"doubles", result.doubles},
                   {"failures", result.failures}});
    else
        std::printf("%s messages for %s recipients are in the queue again.\n", Number(result.messages).c_str(),
                    Number(result.recipients).c_str());
    std::fflush(stdout);
    if (result.settled != 0 && !arguments.json)
        std::printf("%s messages stay where they are: a recipient has got, or may yet get, the message.\n",
                    Number(result.settled).c_str());
    if (result.doubles != 0 && !arguments.json)
        std::printf("%s messages stay where they are: another one for the same recipient was put back.\n",
                    Number(result.doubles).c_str());
    if (result.failures != 0)
        throw CCommandFailure(Number(result.failures) +
                              " messages could not be put back into the queue: " + result.failure);
}

}  // namespace

void AddDeliveryCommands(CCommand app) {
    auto arguments = std::make_shared<CArguments>();
    CCommand delivery = app.AddCommand("delivery", "Who got what, and what became of the rest");
    delivery.AddOption("LIST", arguments->list);
    delivery.AddOption("--broadcast", arguments->broadcast, "Only copies of this broadcast").NamesValue("ID");
    delivery.AddOption("--recipient", arguments->recipient, "Only this recipient").NamesValue("ADDRESS");
    delivery.AddOption("--status", arguments->statuses, "accepted, sent, deferred, failed, expired, parked or requeued")
        .NamesValue("NAME")
        .OneEachTime();
    delivery.AddFlag("--all", arguments->all, "Every line, rather than the last of each recipient");
    delivery.AddFlag("--json", arguments->json);
    delivery.AllowCommand();

    CCommand summary = delivery.AddCommand("summary", "Count the recipients of each broadcast by state");
    summary.AddOption("LIST", arguments->list).Required();
    summary.AddFlag("--json", arguments->json);
    summary.OnRun([arguments] { Summarize(*arguments); });

    CCommand retry = delivery.AddCommand("retry", "Put what failed back into the queue");
    retry.AddOption("LIST", arguments->list).Required();
    retry.AddOption("--broadcast", arguments->broadcast).Required().NamesValue("ID");
    retry.AddFlag("--expired", arguments->expired, "Also what expired");
    retry.AddFlag("--json", arguments->json);
    retry.OnRun([arguments] { Retry(*arguments); });

    delivery.OnRun([arguments, delivery] {
        if (!delivery.IsCommandGiven()) Show(*arguments);
    });
}
