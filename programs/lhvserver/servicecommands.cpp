#include "programs/lhvserver/servicecommands.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "app/datafolder.h"
#include "platform/filestatus.h"
#include "platform/service.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

// Of "status"; others may ask for them, so they stay as they are.
constexpr int IsRunning = 0;
constexpr int IsStopped = 3;  // also: has failed
constexpr int IsNotInstalled = 4;
constexpr int IsChanging = 5;

struct CInstallOptions {
    std::string account;
    std::string passwordFile;
};

void Require(const std::string& fault) {
    if (!fault.empty()) throw CLhvException(fault);
}

// The first line.
std::string ReadPassword(const std::string& path) {
    std::string content;
    if (!ReadWholeFile(path, content))
        throw CLhvException("The password file " + path + " cannot be read.", Platform::LastSystemError());
    std::string password = content.substr(0, content.find_first_of("\r\n"));
    std::fill(content.begin(), content.end(), '\0');
    if (password.empty()) throw CLhvException("The first line of the password file " + path + " is empty.");
    return password;
}

// The account gets the folder with all that is in it, so it must be ours.
void CheckIsOwn(const std::string& folder) {
    bool isOwn = true;
    for (const char* mark : {"Lhv.cfg", "LISTS.CST", "log.txt"})
        if (Platform::FileIsThere(JoinPath(folder, mark))) return;
    ListFolder(folder, "*",
               [&](const std::string& name, bool) { return isOwn = name == ".locks" || name == ".mailslots"; });
    if (!isOwn) throw CLhvException("The folder " + folder + " holds other things: name one for the data alone.");
}

int Install(const CInstallOptions& options) {
    if (!options.passwordFile.empty() && options.account.empty())
        throw CLhvException("--password-file is the password of an account: name it with --account.");
    Platform::CServiceControl service(ServiceName);
    Platform::ServiceSetup setup;
    setup.displayName = "Listhaven server";
    setup.description = "Listhaven server: processes the mail of mailing lists and sends it";
    setup.account = options.account;
    if (!options.passwordFile.empty()) setup.password = ReadPassword(options.passwordFile);
    Require(service.CheckInstall(setup));
    CheckIsOwn(NameDataFolder());  // before anything is made in it
    const std::string folder = GetDataFolder();
    if (const std::string fault = CheckDataFolder(folder); !fault.empty())
        throw CLhvException(std::string(Trim(fault.substr(0, fault.find('\n')))));
    setup.dataFolder = WithoutSeparator(folder);
    setup.arguments = {"--data-folder", setup.dataFolder, "run", "--service"};
    const std::string fault = service.Install(setup);
    std::fill(setup.password.begin(), setup.password.end(), '\0');
    Require(fault);
    if (const std::string start = service.Start(); !start.empty())
        throw CLhvException("The service is installed, but does not start. " + start);
    std::printf("The service %s is installed and runs.\n", ServiceName);
    return 0;
}

int PrintStatus() {
    using Platform::ServiceState;
    Platform::ServiceStatus status;
    Require(Platform::CServiceControl(ServiceName).GetStatus(status));
    std::string line = std::string(ServiceName) + ": ";
    int exitStatus = IsStopped;
    switch (status.state) {
        case ServiceState::NotInstalled:
            std::printf("%snot installed\n", line.c_str());
            return IsNotInstalled;
        case ServiceState::Running:
            line += "running (process " + std::to_string(status.processId) + ")";
            exitStatus = IsRunning;
            break;
        case ServiceState::Starting:
        case ServiceState::Stopping:
            line += status.state == ServiceState::Starting ? "starting" : "stopping";
            exitStatus = IsChanging;
            break;
        case ServiceState::Stopped:
            line += "stopped";
            break;
        case ServiceState::Failed:
            line += "failed (" + status.reason + ")";
            break;
    }
    line += ", account " + status.account;
    line += status.startsWithSystem ? ", starts with the system" : ", does not start with the system";
    std::printf("%s\n", line.c_str());
    return exitStatus;
}

int Tell(const std::string& fault, const char* done) {
    Require(fault);
    std::printf("The service %s %s.\n", ServiceName, done);
    return 0;
}

}  // namespace

void AddServiceCommands(CLI::App& app, std::function<int()>& chosen) {
    const auto add = [&](const char* name, const char* help, std::function<int()> work) {
        CLI::App* const command = app.add_subcommand(name, help);
        command->callback([&chosen, work = std::move(work)] { chosen = work; });
        return command;
    };
    const auto options = std::make_shared<CInstallOptions>();
    CLI::App* const install =
        add("install", "Make it a service of the system, that starts now and with the system, on the data folder",
            [options] { return Install(*options); });
    install->add_option("--account", options->account, "Whom it runs as (else an account of its own)")
        ->type_name("NAME");
    install->add_option("--password-file", options->passwordFile, "Its first line is the password of that account")
        ->type_name("FILE");
    add("uninstall", "Stop the service and take it out of the system; the data stays",
        [] { return Tell(Platform::CServiceControl(ServiceName).Uninstall(), "is not installed any more"); });
    add("start", "Start the service, and wait until it runs",
        [] { return Tell(Platform::CServiceControl(ServiceName).Start(), "runs"); });
    add("stop", "End the service, and wait until it has ended",
        [] { return Tell(Platform::CServiceControl(ServiceName).Stop(), "has ended"); });
    add("status", "Print what the service does; status 0: it runs, 3: stopped, 4: not installed, 5: in between",
        PrintStatus);
}
