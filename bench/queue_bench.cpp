// What the queue costs: claim, hand to a sender that does nothing, file as
// sent, beside the file operations that cannot be saved; and whether a long
// queue slows a step.
//
// The folder for temporary files decides which disk is measured (TMPDIR).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "app/datafolder.h"
#include "platform/file.h"
#include "platform/guid.h"
#include "platform/knownfolders.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/senddaemon.h"
#include "senddaemon/senderfactory.h"
#include "senddaemon/sendloop.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int PerBatch = 5000;
constexpr int Rounds = 5;

class CNothingSender : public SendDaemon::CMessageSender {
public:
    ~CNothingSender() override { Shutdown(); }
    bool DoSend(const SendDaemon::CConfiguration&, const std::string&, const std::string&,
                const std::string&) override {
        return true;
    }
    std::string_view GetMethodName() const override { return "Nothing"; }
};

[[noreturn]] void Die(const std::string& what) {
    std::fprintf(stderr, "queue_bench: %s: %s\n", what.c_str(), DescribeLastError().c_str());
    std::exit(1);
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void FillQueue(const std::string& queue, int count) {
    const std::string text =
        "From: \"Harbour News\" <news@harbour.example>\r\nTo: \"Ann Berg\" <ann@there.example>\r\n"
        "Subject: News\r\nMIME-Version: 1.0\r\nContent-Type: text/plain\r\n\r\n" +
        std::string(2000, 'x');
    for (int i = 0; i < count; ++i) {
        const std::string batch = JoinPath(queue, std::to_string(i / PerBatch));
        Platform::CFile file;
        if (i % PerBatch == 0 && !EnsureFolder(batch)) Die(batch);
        if (!file.Open(JoinPath(batch, std::to_string(i) + ".eml"), Platform::FileMode::CreateNew) ||
            !file.Write(text)) {
            Die(batch);
        }
    }
}

// The same files, two renames and one unlink each.
double TimeLimit(const std::string& folder, int count) {
    const std::string claimed = JoinPath(folder, "claimed");
    const std::string sent = JoinPath(folder, "sent");
    FillQueue(JoinPath(folder, "waiting"), count);
    if (!EnsureFolder(claimed) || !EnsureFolder(sent)) Die(folder);
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i) {
        const std::string name = std::to_string(i) + ".eml";
        const std::string waiting = JoinPath(JoinPath(JoinPath(folder, "waiting"), std::to_string(i / PerBatch)), name);
        if (!Platform::RenameReplacing(waiting, JoinPath(claimed, name)) ||
            !Platform::RenameReplacing(JoinPath(claimed, name), JoinPath(sent, name)) ||
            !Platform::RemoveFile(JoinPath(sent, name))) {
            Die(name);
        }
    }
    const double seconds = SecondsSince(start);
    RemoveFolderTree(folder);
    return seconds;
}

std::unique_ptr<SendDaemon::CSendDaemon> StartDaemon(const std::string& root, int connections, bool save) {
    const std::string account = JoinPath(root, "1");
    SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(account));
    auto daemon = std::make_unique<SendDaemon::CSendDaemon>();
    SendDaemon::CConfiguration* server = nullptr;
    if (!config.SetValue("SendMethod", "Nothing") || !config.SetValue("SaveSentMessages", save ? "1" : "0") ||
        !config.SetValue("MaxConnections", std::to_string(connections)) || !daemon->Initialize(root, server) ||
        !daemon->AddAccount(account)) {
        Die(root);
    }
    return daemon;
}

double TimeQueue(const std::string& root, int count, int connections, bool save) {
    FillQueue(JoinPath(root, "1"), count);
    auto daemon = StartDaemon(root, connections, save);
    const auto start = Clock::now();
    const SendDaemon::CSendResult result = RunUntilEmpty(*daemon, {});
    const double seconds = SecondsSince(start);
    if (result.sent != static_cast<std::uint64_t>(count)) Die("not all messages were sent");
    daemon.reset();
    RemoveFolderTree(root);
    return seconds;
}

std::string benchFolder;

// The limit and the queue in turn, so that whatever else the machine does hits
// both alike; the best of the rounds counts.
void BM_Queue(benchmark::State& state) {
    constexpr int Count = 10000;
    const auto connections = static_cast<int>(state.range(0));
    double limit = 1e9;
    double best = 1e9;
    for (auto round : state) {
        static_cast<void>(round);
        limit = std::min(limit, TimeLimit(JoinPath(benchFolder, "limit"), Count));
        const double seconds = TimeQueue(JoinPath(benchFolder, "SendDaemon"), Count, connections, state.range(1) != 0);
        best = std::min(best, seconds);
        state.SetIterationTime(seconds);
    }
    state.counters["per_s"] = Count / best;
    state.counters["limit_per_s"] = Count / limit;
    state.counters["of_limit"] = limit / best;
}
BENCHMARK(BM_Queue)
    ->ArgNames({"connections", "kept"})
    ->ArgsProduct({{1, 4, 10}, {0, 1}})
    ->Iterations(Rounds)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BM_DispatchStep(benchmark::State& state) {
    constexpr int Steps = 500;
    const std::string root = JoinPath(benchFolder, "SendDaemon");
    FillQueue(JoinPath(root, "1"), static_cast<int>(state.range(0)));
    auto daemon = StartDaemon(root, Steps, false);
    std::vector<double> times;
    for (auto step : state) {
        static_cast<void>(step);
        while (daemon->IsAnySending())
            daemon->WaitForProgress(daemon->GetProgress(), std::chrono::milliseconds(1));
        const auto start = Clock::now();
        if (!daemon->DispatchAll()) Die("nothing was dispatched");
        times.push_back(SecondsSince(start));
        state.SetIterationTime(times.back());
    }
    std::sort(times.begin(), times.end());
    state.counters["median_us"] = times[times.size() / 2] * 1e6;
    state.counters["p99_us"] = times[times.size() * 99 / 100] * 1e6;
    daemon->CancelSenders();
    daemon.reset();
    RemoveFolderTree(root);
}
BENCHMARK(BM_DispatchStep)
    ->ArgName("waiting")
    ->Arg(1000)
    ->Arg(200000)
    ->Iterations(500)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchFolder = JoinPath(Platform::TemporaryFolder(), "queue-bench-" + std::to_string(Platform::RandomNumber()));
    if (!Platform::MakeFolder(benchFolder)) Die(benchFolder);
    UseDataFolder(benchFolder);
    SendDaemon::RegisterSenderKind("Nothing", [] { return std::make_unique<CNothingSender>(); });
    Platform::SetFlushEnabled(false);
    benchmark::RunSpecifiedBenchmarks();
    return RemoveFolderTree(benchFolder) ? 0 : 1;
}
