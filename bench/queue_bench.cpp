// What the queue costs: claim, hand to a sender that does nothing, file as
// sent, beside the file operations that cannot be saved; and whether a long
// queue slows a step.
//
//   queue_bench [MESSAGES [FOLDER]]
//
// FOLDER decides which disk is measured; it must not exist and is removed.

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

struct CQueueCase {
    int connections;
    bool save;
    double best = 1e9;  // seconds
};

// The limit and each case in turn, so that whatever else the machine does hits
// them alike; the best of the rounds counts.
void CompareThroughput(const std::string& folder, int count) {
    double limit = 1e9;
    CQueueCase cases[] = {{1, true}, {4, true}, {1, false}, {4, false}};
    for (int round = 0; round < Rounds; ++round) {
        limit = std::min(limit, TimeLimit(JoinPath(folder, "limit"), count));
        for (std::size_t i = 0; i < std::size(cases); ++i) {
            CQueueCase& each = cases[(i + static_cast<std::size_t>(round)) % std::size(cases)];
            const double seconds = TimeQueue(JoinPath(folder, "SendDaemon"), count, each.connections, each.save);
            each.best = std::min(each.best, seconds);
        }
    }
    std::printf("%-44s %9.0f /s\n", "two renames and one unlink", count / limit);
    for (const CQueueCase& each : cases) {
        std::printf("queue, %d connection(s), %-20s %9.0f /s   %.2f of it\n", each.connections,
                    each.save ? "kept in .Sent" : "deleted when sent", count / each.best, limit / each.best);
    }
}

void TimeSteps(const std::string& folder, int waiting) {
    constexpr int Steps = 500;
    const std::string root = JoinPath(folder, "SendDaemon");
    FillQueue(JoinPath(root, "1"), waiting);
    auto daemon = StartDaemon(root, Steps, false);
    std::vector<double> times;
    for (int i = 0; i < Steps; ++i) {
        while (daemon->IsAnySending())
            daemon->WaitForProgress(daemon->GetProgress(), std::chrono::milliseconds(1));
        const auto start = Clock::now();
        if (!daemon->DispatchAll()) Die("nothing was dispatched");
        times.push_back(SecondsSince(start) * 1e6);
    }
    const double first = times.front();
    std::sort(times.begin(), times.end());
    std::printf("step with %7d waiting: first %.0f us, median %.0f us, 99 %% %.0f us, longest %.0f us\n", waiting,
                first, times[Steps / 2], times[Steps * 99 / 100], times.back());
    daemon->CancelSenders();
    daemon.reset();
    RemoveFolderTree(root);
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 20000;
    const std::string folder =
        argc > 2 ? std::string(argv[2])
                 : JoinPath(Platform::TemporaryFolder(), "queue-bench-" + std::to_string(Platform::RandomNumber()));
    if (count <= 0 || !Platform::MakeFolder(folder)) {
        std::fprintf(stderr, "usage: queue_bench [MESSAGES [FOLDER]]; FOLDER must not exist\n");
        return 2;
    }
    UseDataFolder(folder);
    SendDaemon::RegisterSenderKind("Nothing", [] { return std::make_unique<CNothingSender>(); });
    Platform::SetFlushEnabled(false);
    CompareThroughput(folder, count);
    TimeSteps(folder, 1000);
    TimeSteps(folder, 200000);
    return RemoveFolderTree(folder) ? 0 : 1;
}
