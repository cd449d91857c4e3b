#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "app/pumpmessages.h"
#include "app/thisapp.h"
#include "engine/daemonhost.h"
#include "engine/eventlog.h"
#include "engine/loglistener.h"
#include "engine/repair.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/tableprinter.h"
#include "senddaemon/notificationlistener.h"
#include "senddaemon/sendloop.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

// The front end without a window: what it would show is printed.
class CConsoleFrontEnd : public IFrontEnd {
public:
    bool ActivateOtherInstance() override { return false; }
    bool ShowSplash() override { return true; }
    void CloseSplash() override {}
    bool PrepareControls() override { return true; }

    // Without somebody to ask, repair is the safe answer: it removes nothing but
    // what a crash has left half-written.
    bool AskForRepair() override {
        std::fprintf(stderr, "The last run did not end cleanly.\n");
        if (!Platform::InputIsTerminal()) return true;
        std::fprintf(stderr, "Repair the data files before going on? [Y/n] ");
        std::string answer;
        std::getline(std::cin, answer);
        const std::string_view word = Trim(answer);
        return word.empty() || EqualNoCase(word, "y") || EqualNoCase(word, "yes");
    }

    bool Repair() override {
        RepairDataFolder([](const std::string& action) { std::printf("%s\n", Printable(action).c_str()); });
        return true;
    }

    bool LoadMainWindow() override { return true; }
    bool RunFirstSetup() override { return true; }
    void OpenLogWindow(bool visible) override { m_showLog = visible; }
    void ReportStop(const std::string& message) override { m_stop = Trim(message); }
    void ReportProblem(const std::string& message) override { std::fprintf(stderr, "%s\n", message.c_str()); }

    bool IsLogShown() const { return m_showLog; }
    const std::string& GetStopMessage() const { return m_stop; }

private:
    bool m_showLog = false;
    std::string m_stop;
};

void PrintLogLine(const std::string& line) {
    std::printf("%s\n", Printable(TrimRight(line)).c_str());
    std::fflush(stdout);
}

// Both listeners of the front end; a mailslot that cannot be made is logged.
class CListeners {
public:
    explicit CListeners(bool showLog) {
        const auto show = [showLog](const std::string& line) {
            if (showLog) PrintLogLine(line);
        };
        if (!m_log.Start(show)) Log(LogWarning, "The log mailslot cannot be made.");
        const auto onNotification = [](std::uint32_t first, std::uint32_t second) {
            Log(LogDebug, "Notification %u %u", first, second);
        };
        if (!m_notifications.Start(onNotification)) Log(LogWarning, "The notification mailslot cannot be made.");
    }

private:
    CLogListener m_log;
    SendDaemon::CNotificationListener m_notifications;
};

void DispatchUntilStopped(CDaemonHost& host) {
    SendDaemon::CSendLoopOptions options;
    options.stopRequested = [] { return Platform::StopSignalled(); };
    options.housekeeping = [&] {
        host.FollowCatalogue();
        KeepLogWithinLimit();
    };
    const SendDaemon::CSendResult result = RunUntilStopped(host.GetDaemon(), options);
    std::printf("%llu sent, %llu failed, %llu held back, %llu expired, %llu deferred\n",
                static_cast<unsigned long long>(result.sent), static_cast<unsigned long long>(result.failed),
                static_cast<unsigned long long>(result.heldBack), static_cast<unsigned long long>(result.expired),
                static_cast<unsigned long long>(result.deferred));
}

void Run() {
    OpenDataFolder();
    Platform::CatchStopSignals();
    SetMessagePump([] { return !Platform::StopSignalled(); });
    CConsoleFrontEnd frontEnd;
    CThisApp application(frontEnd);
    if (!application.InitInstance()) throw CCommandFailure(frontEnd.GetStopMessage());
    {
        CListeners listeners(frontEnd.IsLogShown());
        if (frontEnd.IsLogShown()) SetLogView(PrintLogLine);
        CDaemonHost host;
        if (!host.Start()) {
            const std::string reason = DescribeLastError();
            application.ExitInstance();
            throw CCommandFailure("nothing can be sent: " + reason);
        }
        std::printf("Dispatching; Ctrl-C ends.\n");
        std::fflush(stdout);
        // Interrupted broadcasts go on beside the dispatching.
        std::jthread resuming(ResumeBroadcasts, [] { return Platform::StopSignalled(); });
        DispatchUntilStopped(host);
        resuming.join();
        SetLogView({});
    }
    application.ExitInstance();
}

}  // namespace

void AddRunCommand(CLI::App& app) {
    CLI::App* run =
        app.add_subcommand("run", "The front end without a window: resumes broadcasts and sends until Ctrl-C");
    run->callback(Run);
}
