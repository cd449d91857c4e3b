// The server: processes the lists' mail, and sends what it, the front end and
// others put into the queues.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <utility>

#include "app/datafolder.h"
#include "app/productname.h"
#include "app/pumpmessages.h"
#include "app/settings.h"
#include "engine/daemonhost.h"
#include "engine/eventlog.h"
#include "engine/loglistener.h"
#include "platform/clock.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/process.h"
#include "platform/service.h"
#include "programs/lhvserver/mailthread.h"
#include "programs/lhvserver/sending.h"
#include "programs/lhvserver/servicecommands.h"
#include "programs/lhvserver/servicelog.h"
#include "programs/lhvserver/servicewatch.h"
#include "senddaemon/sendloop.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/terminaltext.h"
#include "utility/text.h"

namespace {

constexpr int Failed = 1;
constexpr int WrongUsage = 2;

int Complain(const std::string& what, int status) {
    std::fprintf(stderr, "lhvserver: %s\n", Printable(OneLine(what)).c_str());
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

class CServer {
public:
    void ServeOnce();
    void ServeUntilStopped();

private:
    void Begin();
    SendDaemon::CSendLoopOptions MakeOptions(CDaemonHost& host) const;

    Platform::CPresence m_presence;
};

void CServer::Begin() {
    CheckData();
    Platform::CatchStopSignals();
    SetMessagePump([] { return !Platform::StopSignalled(); });  // an upgrade of a table takes long
    if (m_presence.Acquire(ServerMutexName) != Platform::CPresence::Result::Acquired)
        throw CLhvException("The server is running already on this data folder.");
}

SendDaemon::CSendLoopOptions CServer::MakeOptions(CDaemonHost& host) const {
    SendDaemon::CSendLoopOptions options;
    options.stopRequested = [] { return Platform::StopSignalled(); };
    options.housekeeping = [&host] {
        host.FollowCatalogue();
        KeepLogWithinLimit();
    };
    return options;
}

void CServer::ServeOnce() {
    Begin();
    CDaemonHost host;
    if (!host.Start()) throw CLhvException("Nothing can be sent: " + DescribeLastError());
    Log(LogInfo, "The server has started.");
    ProcessMailOnce();
    RunOnce(host.GetDaemon(), MakeOptions(host));
    Log(LogInfo, "The server has ended.");
}

// Mail is processed also while another program sends, and the service counts as
// ready: who starts it must not wait for that.
void CServer::ServeUntilStopped() {
    Begin();
    Log(LogInfo, "The server has started.");
    CMailThread mail(CMailThread::Mode::UntilStopped);
    CServiceWatch watch(mail.GetHeartbeat());
    const auto stop = [&watch] {
        watch.Look();
        return Platform::StopSignalled();
    };
    Platform::NotifyServiceReady();
    CDaemonHost host;
    if (!host.StartWhenFree(stop) && !stop()) throw CLhvException("Nothing can be sent: " + DescribeLastError());
    SendDaemon::CSendLoopOptions options = MakeOptions(host);
    options.stopRequested = stop;
    if (!stop()) SendUntilStopped(host.GetDaemon(), std::move(options), mail);
    Platform::NotifyServiceStopping();
    mail.Stop();
    Log(LogInfo, "The server has ended.");
}

// The front end, if there is one, shows the lines as well.
void ShowLog(CServiceLog* serviceLog) {
    SetLogView([serviceLog](const std::string& line) {
        WriteLogLineToMailslot(line);
        if (serviceLog == nullptr) return;
        const std::string text = serviceLog->Filter(line, Platform::SecondsSince1970());
        if (!text.empty()) Platform::ReportToSystemLog(text);
    });
}

// Nobody sees what a service prints, so why it ends goes into both logs.
int ServeAsService() {
    static CServiceLog serviceLog;
    return Platform::RunAsService(ServiceName, [] {
        try {
            ShowLog(&serviceLog);
            CServer().ServeUntilStopped();
            return 0;
        } catch (const std::exception& exception) {
            const std::string reason = OneLine(exception.what());
            ShowLog(nullptr);
            Log(LogFatal, "The server ends: %s", reason.c_str());
            Platform::ReportToSystemLog("The server ends: " + reason);
            return Failed;
        }
    });
}

int Serve(bool once, bool asService) {
    if (asService) return ServeAsService();
    ShowLog(nullptr);
    if (once)
        CServer().ServeOnce();
    else
        CServer().ServeUntilStopped();
    return 0;
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
    bool asService = false;
    std::function<int()> chosen;
    CLI::App* run = app.add_subcommand("run", "Serve in the foreground until Ctrl-C or the request to end");
    run->add_flag("--once", once,
                  "One mail-processing cycle of every list, digests, broadcasts, one pass of sending, and end");
    run->add_flag("--service", asService, "As the service manager starts it")->group("")->excludes("--once");
    run->callback([&] { chosen = [&] { return Serve(once, asService); }; });
    AddServiceCommands(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version);
    } catch (const CLI::ParseError& fault) {
        return Complain(fault.what(), WrongUsage);
    }
    return chosen();
}

}  // namespace

int main(int argc, char** argv) {
    Platform::PrepareProcess(argc, argv);
    Platform::KeepMemoryTogether();
    try {
        return Run(argc, argv);
    } catch (const std::exception& exception) {
        return Complain(exception.what(), Failed);
    }
}
