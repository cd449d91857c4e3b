#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

#include "engine/daemonhost.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/progressbar.h"
#include "senddaemon/sendloop.h"

namespace {

void Send(bool once, bool json) {
    OpenDataFolder();
    Platform::CatchStopSignals();
    SendDaemon::CSendResult result;
    {
        CDaemonHost host;
        if (!host.Start()) FailWithLastError("nothing was sent");
        CProgressBar bar("Sent");
        SendDaemon::CSendLoopOptions options;
        options.stopRequested = [] { return Platform::StopSignalled(); };
        options.progress = [&](const SendDaemon::CSendResult& now) { bar.Show(now.sent); };
        result = once ? RunOnce(host.GetDaemon(), options) : RunUntilEmpty(host.GetDaemon(), options);
    }
    if (json)
        PrintJson({{"sent", result.sent},
                   {"failed", result.failed},
                   {"heldBack", result.heldBack},
                   {"expired", result.expired}});
    else
        std::printf("%llu sent, %llu failed, %llu held back, %llu expired\n",
                    static_cast<unsigned long long>(result.sent), static_cast<unsigned long long>(result.failed),
                    static_cast<unsigned long long>(result.heldBack), static_cast<unsigned long long>(result.expired));
    if (result.gaveUp) throw CCommandFailure("messages are left in the queue: " + result.reason);
    if (result.wasStopped) throw CCommandFailure("stopped; what is left in the queue is sent by the next run");
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
