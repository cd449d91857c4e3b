#include <cstdio>
#include <iostream>
#include <mutex>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "app/notifications.h"
#include "app/pumpmessages.h"
#include "app/thisapp.h"
#include "engine/catalogue.h"
#include "engine/daemonhost.h"
#include "engine/eventlog.h"
#include "engine/loglistener.h"
#include "engine/repair.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/tableprinter.h"
#include "senddaemon/notificationlistener.h"
#include "senddaemon/sendloop.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

constexpr std::uint32_t LookInterval = 250;   // milliseconds between two looks at the server while sending
constexpr std::uint32_t WatchInterval = 100;  // and while it runs

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
    void ReportProblem(const std::string& message) override {
        std::fprintf(stderr, "%s\n", Printable(OneLine(message)).c_str());
    }

    bool IsLogShown() const { return m_showLog; }
    const std::string& GetStopMessage() const { return m_stop; }

private:
    bool m_showLog = false;
    std::string m_stop;
};

void Say(const std::string& line) {
    std::printf("%s\n", Printable(line).c_str());
    std::fflush(stdout);
}

void PrintLogLine(const std::string& line) {
    Say(std::string(TrimRight(line)));
}

// "" for a kind that is not known, and for a list that is gone.
std::string Describe(std::uint32_t kind, std::uint32_t number) {
    const std::int32_t index = GetCatalogue().FindByNumber(number);
    if (index == CCatalogue::None) return {};
    const std::string list = "\"" + GetCatalogue().GetName(index) + "\"";
    switch (static_cast<Notification>(kind)) {
        case Notification::MailProcessed:
            return "The server has processed mail of the list " + list + ".";
        case Notification::MessageHeld:
            return "Messages to the list " + list + " wait for the moderator.";
    }
    return {};
}

// Both listeners of the front end.  The server's log lines are printed as they
// come; what it notifies of waits until it is reported.
class CListeners {
public:
    // Starts what does not listen yet, or no longer.  A mailslot that cannot be made is logged once.
    void KeepListening() {
        if (!m_log.IsListening() && !m_log.Start(PrintLogLine)) Complain("log");
        const auto note = [this](std::uint32_t kind, std::uint32_t number) {
            const std::lock_guard guard(m_lock);
            m_notes.emplace_back(kind, number);
        };
        if (!m_notifications.IsListening() && !m_notifications.Start(note)) Complain("notification");
    }

    void Report() {
        std::vector<std::pair<std::uint32_t, std::uint32_t>> notes;
        {
            const std::lock_guard guard(m_lock);
            notes.swap(m_notes);
        }
        for (const auto& [kind, number] : notes) {
            const std::string text = Describe(kind, number);
            if (!text.empty()) Say(text);
        }
    }

private:
    void Complain(const char* which) {
        if (m_complained.insert(which).second) Log(LogWarning, "The %s mailslot cannot be made.", which);
    }

    std::mutex m_lock;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> m_notes;
    std::set<std::string> m_complained;
    CLogListener m_log;
    SendDaemon::CNotificationListener m_notifications;
};

// While the server runs it is the one that sends: one look at it costs some system calls.
class CServerLook {
public:
    bool IsRunning() {
        const std::uint32_t now = Platform::ClockMilliseconds();
        if (m_hasLooked && now - m_looked < LookInterval) return m_isRunning;
        m_hasLooked = true;
        m_looked = now;
        return m_isRunning = IsServerRunning();
    }

private:
    bool m_hasLooked = false;
    bool m_isRunning = false;
    std::uint32_t m_looked = 0;
};

void WatchServer(CListeners& listeners) {
    Say("The server is running: it sends and looks after the mail; its log follows. Ctrl-C ends the front end only.");
    while (!Platform::StopSignalled() && IsServerRunning()) {
        listeners.KeepListening();
        listeners.Report();
        Platform::SleepMilliseconds(WatchInterval);
    }
    listeners.Report();
    if (!Platform::StopSignalled()) Say("The server has ended.");
}

void PrintCounts(const SendDaemon::CSendResult& result) {
    std::printf("%llu sent, %llu failed, %llu held back, %llu expired, %llu deferred\n",
                static_cast<unsigned long long>(result.sent), static_cast<unsigned long long>(result.failed),
                static_cast<unsigned long long>(result.heldBack), static_cast<unsigned long long>(result.expired),
                static_cast<unsigned long long>(result.deferred));
    std::fflush(stdout);
}

// Until the server runs, or the front end is to end.
void SendHere() {
    CServerLook server;
    CDaemonHost host;
    if (IsSomebodySending()) Say("Another program is sending; it is waited for.");
    if (!host.StartWhenFree([&] { return Platform::StopSignalled() || server.IsRunning(); })) {
        if (Platform::StopSignalled() || server.IsRunning()) return;
        throw CCommandFailure("nothing can be sent: " + DescribeLastError());
    }
    Say("Dispatching; Ctrl-C ends.");
    // Interrupted broadcasts go on beside the dispatching.
    std::jthread resuming([](const std::stop_token& stop) {
        ResumeBroadcasts([&stop] { return stop.stop_requested() || Platform::StopSignalled(); });
    });
    SendDaemon::CSendLoopOptions options;
    options.stopRequested = [] { return Platform::StopSignalled(); };
    options.handOver = [&server] { return server.IsRunning(); };
    options.housekeeping = [&] {
        host.FollowCatalogue();
        KeepLogWithinLimit();
    };
    PrintCounts(RunUntilStopped(host.GetDaemon(), options));
}

void Run() {
    OpenDataFolder();
    Platform::CatchStopSignals();
    SetMessagePump([] { return !Platform::StopSignalled(); });
    CConsoleFrontEnd frontEnd;
    CThisApp application(frontEnd);
    if (!application.InitInstance()) throw CCommandFailure(frontEnd.GetStopMessage());
    try {
        CListeners listeners;
        listeners.KeepListening();
        if (frontEnd.IsLogShown()) SetLogView(PrintLogLine);
        while (!Platform::StopSignalled()) {
            if (IsServerRunning())
                WatchServer(listeners);
            else
                SendHere();
        }
        SetLogView({});
    } catch (...) {
        SetLogView({});
        application.ExitInstance();
        throw;
    }
    application.ExitInstance();
}

}  // namespace

void AddRunCommand(CCommand app) {
    CCommand run = app.AddCommand("run", "The front end without a window: resumes broadcasts and sends until Ctrl-C");
    run.OnRun(Run);
}
