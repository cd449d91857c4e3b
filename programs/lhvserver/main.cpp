// The server: processes the lists' mail, and sends what it, the front end and
// others put into the queues.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "app/datafolder.h"
#include "app/productname.h"
#include "app/settings.h"
#include "engine/daemonhost.h"
#include "engine/eventlog.h"
#include "engine/loglistener.h"
#include "platform/clock.h"
#include "platform/namedmutex.h"
#include "platform/process.h"
#include "programs/lhvserver/mailthread.h"
#include "senddaemon/sendloop.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr int Failed = 1;
constexpr int WrongUsage = 2;

int Complain(const std::string& what, int status) {
    std::fprintf(stderr, "lhvserver: %s\n", OneLine(what).c_str());
    return status;
}

void CheckData() {
    if (const std::string fault = CheckDataFolder(GetDataFolder()); !fault.empty())
        throw CLhvException(std::string(Trim(fault.substr(0, fault.find('\n')))));
    if (const std::string fault = CheckSettingsFile(); !fault.empty()) throw CLhvException(fault);
    ApplyDurabilitySetting();
}

// On its thread, so that a conversation with a server can be ended from here.
void ProcessMailOnce() {
    CMailThread mail(CMailThread::Mode::Once);
    while (!mail.IsDone() && !Platform::StopSignalled())
        Platform::SleepMilliseconds(20);
    mail.Stop();
}

void Serve(bool once) {
    CheckData();
    Platform::CatchStopSignals();
    Platform::CPresence presence;
    if (presence.Acquire(ServerMutexName) != Platform::CPresence::Result::Acquired)
        throw CLhvException("The server is running already on this data folder.");
    // The front end, if there is one, shows the lines as well.
    SetLogView([](const std::string& line) { WriteLogLineToMailslot(line); });
    CDaemonHost host;
    if (!host.Start()) throw CLhvException("Nothing can be sent: " + DescribeLastError());
    Log(LogInfo, "The server has started.");
    SendDaemon::CSendLoopOptions options;
    options.stopRequested = [] { return Platform::StopSignalled(); };
    options.housekeeping = [&] {
        host.FollowCatalogue();
        KeepLogWithinLimit();
    };
    if (once) {
        ProcessMailOnce();
        RunOnce(host.GetDaemon(), options);
    } else {
        CMailThread mail(CMailThread::Mode::UntilStopped);
        RunUntilStopped(host.GetDaemon(), options);
        mail.Stop();
    }
    Log(LogInfo, "The server has ended.");
}

int Run(int argc, char** argv) {
    CLI::App app("The Listhaven server", "lhvserver");
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string(ProductVersionText()));
    app.add_option_function<std::string>(
           "--data-folder", [](const std::string& folder) { SetDataFolder(folder); },
           "Where everything is kept (else $LISTHAVEN_DATA_FOLDER, else the system's place)")
        ->type_name("DIR")
        ->trigger_on_parse();
    bool once = false;
    CLI::App* run = app.add_subcommand("run", "Serve in the foreground until Ctrl-C or the request to end");
    run->add_flag("--once", once,
                  "One mail-processing cycle of every list, digests, broadcasts, one pass of sending, and end");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version);
    } catch (const CLI::ParseError& fault) {
        return Complain(fault.what(), WrongUsage);
    }
    Serve(once);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Platform::PrepareProcess();
    try {
        return Run(argc, argv);
    } catch (const std::exception& exception) {
        return Complain(exception.what(), Failed);
    }
}
