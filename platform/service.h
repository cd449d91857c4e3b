// service.h - a program as a service of the system: the service manager of
// Windows, or systemd.
//
// CServiceControl is for the commands of whoever looks after the machine, the
// functions below it for the program that is the service.
//
// Errors   The functions that return a text: "" when it was done, else one line
//          that says why not.  Where no service manager runs, or this user may
//          not give it orders, nothing has been written.
// Threads  CServiceControl belongs to one thread.  NotifyService...() and
//          ReportToSystemLog() may be called from any.
// Crash    An installation that is cut off may leave its files; Uninstall()
//          removes what it finds.
// Source   systemd: sd_notify(3), systemd.exec(5), sysusers.d(5).

#ifndef LISTHAVEN_PLATFORM_SERVICE_H
#define LISTHAVEN_PLATFORM_SERVICE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

enum class ServiceState { NotInstalled, Stopped, Starting, Running, Stopping, Failed };

struct ServiceSetup {
    std::string displayName;
    std::string description;
    std::vector<std::string> arguments;  // of this program, when it is the service
    std::string dataFolder;              // an absolute path; the account gets it, with all that is in it
    std::string account;                 // "": one of its own, without password and without further rights
    std::string password;                // where accounts of services have one
};

struct ServiceStatus {
    ServiceState state = ServiceState::NotInstalled;
    std::uint32_t processId = 0;  // 0: none runs
    std::string account;
    std::string reason;  // of Failed, in the system's words
    bool startsWithSystem = false;
};

class CServiceControl {
public:
    explicit CServiceControl(std::string name);  // "lhvserver"

    // Whether Install() can be tried; looks only, and only at the system, the
    // user, and the account that is asked for.
    std::string CheckInstall(const ServiceSetup& setup) const;

    // This program, from where it lies now, under that account, started with the
    // system and anew after a crash.  Does not start it now.
    std::string Install(const ServiceSetup& setup);

    // Stops it first.  Its data, and its account, stay.
    std::string Uninstall();

    // Both wait until it is so, Start() also when it is running already.
    std::string Start();
    std::string Stop();

    std::string GetStatus(ServiceStatus& status) const;

private:
    std::string m_name;
};

// Runs "serve" as the service of that name, and returns what it returned (0 is
// well).  The service manager's request to end is StopSignalled() from then on.
// Throws std::runtime_error when no service manager has started this process,
// where that can be told.
int RunAsService(std::string_view name, const std::function<int()>& serve);

// What the service manager is told of this process; nothing where none listens.
void NotifyServiceReady();
void NotifyServiceStopping();
void NotifyServiceAlive();  // as often as one likes; passed on as often as need be

// Within which time NotifyServiceAlive() must be called, or the service manager
// ends this process and starts it anew; none when it does not watch.
std::optional<std::chrono::milliseconds> ServiceWatchInterval();

// An error, in the log that the system keeps for all programs; to be used by a
// service.  Never fails.
void ReportToSystemLog(std::string_view text);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_SERVICE_H
