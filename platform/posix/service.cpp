// The service by systemd: a unit, and an account of its own.

#include "platform/service.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>

#include "platform/childprocess.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/posix/servicefolder.h"
#include "platform/posix/systemdunit.h"
#include "platform/systemerror.h"

namespace Platform {

namespace {

constexpr const char* OwnAccount = "listhaven";
constexpr std::chrono::minutes CommandLimit{12};  // longer than TimeoutStartSec

std::string UnitPath(const std::string& name) {
    return "/etc/systemd/system/" + name + ".service";
}

std::string AccountFilePath(const std::string& name) {
    return "/etc/sysusers.d/" + name + ".conf";
}

std::string Reason() {
    return SystemErrorText(LastSystemError());
}

std::string OwnProgram() {
    std::string path(4096, '\0');
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    path.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return path;
}

std::string FindProgram(const std::string& name) {
    for (const char* folder : {"/usr/bin/", "/bin/"})
        if (access((folder + name).c_str(), X_OK) == 0) return folder + name;
    return {};
}

std::string ReadAll(int fd) {
    std::string text;
    char block[4096];
    for (off_t at = 0;;) {
        const ssize_t got = pread(fd, block, sizeof block, at);
        if (got <= 0) return text;
        text.append(block, static_cast<std::size_t>(got));
        at += got;
    }
}

struct CommandResult {
    int status = -1;
    std::string output;  // with what it complained of
};

// "" and status -1 when it cannot be run.
CommandResult RunCommand(const std::string& program, const std::vector<std::string>& arguments) {
    CommandResult result;
    const std::string path = FindProgram(program);
    const int fd = memfd_create("output", MFD_CLOEXEC);
    if (!path.empty() && fd >= 0) {
        CChildProcess child;
        ChildOptions options;
        options.outputFile = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd);
        options.errorFile = options.outputFile;
        options.environment = {"LC_ALL=C", "SYSTEMD_COLORS=0", "SYSTEMD_PAGER="};
        if (!child.Start(path, arguments, options) || !child.WaitFor(CommandLimit, result.status)) result.status = -1;
        result.output = ReadAll(fd);
    }
    if (fd >= 0) close(fd);
    return result;
}

// "" or what was complained of, in one line.
std::string Order(const std::string& program, const std::vector<std::string>& arguments) {
    const CommandResult result = RunCommand(program, arguments);
    if (result.status == 0) return {};
    std::string text = result.output;
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return program + " " + arguments.front() + ": " + (text.empty() ? "it fails" : text);
}

std::string Systemctl(const std::string& verb, const std::string& name = {}) {
    std::vector<std::string> arguments{verb};
    if (!name.empty()) arguments.push_back(name + ".service");
    return Order("systemctl", arguments);
}

std::string CheckManager() {
    if (!FolderIsThere("/run/systemd/system") || FindProgram("systemctl").empty())
        return "There is no service manager here: systemd does not run.";
    return {};
}

std::string CheckOrders() {
    if (std::string fault = CheckManager(); !fault.empty()) return fault;
    return geteuid() == 0 ? std::string() : "Only root may do that.";
}

// Readable for everybody, whatever the file creation mask is.
bool WriteSystemFile(const std::string& path, const std::string& content) {
    const std::string aside = path + ".new";
    RemoveFile(aside);
    CFile file;
    const bool isWritten = file.Open(aside, FileMode::CreateNew) && file.Write(content) && file.Flush() &&
                           file.Close() && chmod(aside.c_str(), 0644) == 0 && RenameReplacing(aside, path);
    if (!isWritten) {
        const SystemError code = LastSystemError();
        RemoveFile(aside);
        SetLastSystemError(code);
    }
    return isWritten;
}

bool HasControlCharacter(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

std::string WithoutSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::map<std::string, std::string> ShowUnit(const std::string& name) {
    std::map<std::string, std::string> values;
    const std::string what = "--property=LoadState,ActiveState,SubState,MainPID,Result,UnitFileState,User";
    const CommandResult result = RunCommand("systemctl", {"show", name + ".service", what});
    for (std::size_t at = 0; at < result.output.size();) {
        const std::size_t end = std::min(result.output.find('\n', at), result.output.size());
        const std::string line = result.output.substr(at, end - at);
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) values[line.substr(0, equals)] = line.substr(equals + 1);
        at = end + 1;
    }
    return values;
}

void RemoveInstallation(const std::string& name) {
    RemoveFile(UnitPath(name));
    RemoveFile(UnitPath(name) + ".new");
    RemoveFile(AccountFilePath(name));
    RemoveFile(AccountFilePath(name) + ".new");
    Systemctl("daemon-reload");
}

// Of an account that is yet to be made everybody's rights are asked for.
std::string CheckWays(const UnixAccount& account, const std::string& program, const std::string& folder) {
    OpenWayTo(folder);
    if (!MayAccess(account, program, X_OK))
        return "An account of a service may not run " + program + ": put the program where others get to it.";
    const std::string parent = folder.substr(0, std::max<std::size_t>(folder.rfind('/'), 1));
    if (!MayAccess(account, parent, X_OK))
        return "The account of the service does not get to " + folder + ": it may not pass " + parent + ".";
    return {};
}

std::string MakeOwnAccount(const std::string& name, const ServiceSetup& setup, UnixAccount& account) {
    mkdir("/etc/sysusers.d", 0755);
    chmod("/etc/sysusers.d", 0755);
    const std::string path = AccountFilePath(name);
    const std::string line = std::string("u ") + OwnAccount + " - " + QuoteForUnit(setup.displayName) + "\n";
    if (!WriteSystemFile(path, line)) return path + " cannot be written: " + Reason();
    if (std::string fault = Order("systemd-sysusers", {path}); !fault.empty()) return fault;
    if (!FindAccount(OwnAccount, account)) return std::string("The account ") + OwnAccount + " could not be made.";
    return {};
}

std::string WriteUnit(const std::string& name, const ServiceSetup& setup, const std::string& program) {
    if (!WriteSystemFile(UnitPath(name), MakeUnit(setup, program)))
        return UnitPath(name) + " cannot be written: " + Reason();
    if (std::string fault = Systemctl("daemon-reload"); !fault.empty()) return fault;
    const std::string loaded = ShowUnit(name)["LoadState"];
    if (loaded != "loaded") return "systemd does not take " + UnitPath(name) + ": " + loaded + ".";
    return Systemctl("enable", name);
}

}  // namespace

CServiceControl::CServiceControl(std::string name) : m_name(std::move(name)) {}

std::string CServiceControl::CheckInstall(const ServiceSetup& setup) const {
    if (std::string fault = CheckOrders(); !fault.empty()) return fault;
    if (FileIsThere(UnitPath(m_name))) return "The service is installed already: uninstall it first.";
    if (!setup.password.empty()) return "Accounts of services have no password here: leave --password-file out.";
    UnixAccount account;
    if (setup.account.empty()) return {};
    if (!FindAccount(setup.account, account)) return "There is no account " + setup.account + ".";
    return account.user == 0 ? "The server needs none of root's rights: name another account." : std::string();
}

std::string CServiceControl::Install(const ServiceSetup& setup) {
    if (std::string fault = CheckInstall(setup); !fault.empty()) return fault;
    const std::string program = OwnProgram();
    ServiceSetup whole = setup;
    whole.dataFolder = WithoutSlashes(setup.dataFolder);
    if (whole.dataFolder.empty() || whole.dataFolder[0] != '/' || HasControlCharacter(program + whole.dataFolder))
        return "A service cannot use the folder \"" + setup.dataFolder + "\".";
    UnixAccount account{"nobody", 65534, 65534};
    if (!setup.account.empty()) FindAccount(setup.account, account);
    std::string fault = CheckWays(account, program, whole.dataFolder);
    if (!fault.empty()) return fault;
    if (setup.account.empty()) fault = MakeOwnAccount(m_name, setup, account);
    whole.account = account.name;
    if (fault.empty()) fault = GiveFolder(whole.dataFolder, account);
    if (fault.empty() && !MayAccess(account, whole.dataFolder, R_OK | W_OK | X_OK))
        fault = "The account " + account.name + " may not write in " + whole.dataFolder + ".";
    if (fault.empty()) fault = WriteUnit(m_name, whole, program);
    if (!fault.empty()) RemoveInstallation(m_name);
    return fault;
}

std::string CServiceControl::Uninstall() {
    if (std::string fault = CheckOrders(); !fault.empty()) return fault;
    if (!FileIsThere(UnitPath(m_name)) && !FileIsThere(AccountFilePath(m_name))) return "The service is not installed.";
    if (FileIsThere(UnitPath(m_name))) {
        if (std::string fault = Stop(); !fault.empty()) return fault;
        if (std::string fault = Systemctl("disable", m_name); !fault.empty()) return fault;
    }
    Systemctl("reset-failed", m_name);  // nothing to reset is no fault
    RemoveInstallation(m_name);
    return FileIsThere(UnitPath(m_name)) ? UnitPath(m_name) + " cannot be removed." : std::string();
}

std::string CServiceControl::Start() {
    if (std::string fault = CheckOrders(); !fault.empty()) return fault;
    if (ShowUnit(m_name)["LoadState"] == "not-found") return "The service is not installed.";
    return Systemctl("start", m_name);
}

std::string CServiceControl::Stop() {
    if (std::string fault = CheckOrders(); !fault.empty()) return fault;
    if (ShowUnit(m_name)["LoadState"] == "not-found") return "The service is not installed.";
    return Systemctl("stop", m_name);
}

std::string CServiceControl::GetStatus(ServiceStatus& status) const {
    status = {};
    if (std::string fault = CheckManager(); !fault.empty()) return fault;
    auto values = ShowUnit(m_name);
    if (!values.contains("ActiveState")) return "systemd does not answer.";
    if (values["LoadState"] == "not-found") return {};
    const std::string& active = values["ActiveState"];
    const bool isWaiting = values["SubState"] == "auto-restart";
    status.state = active == "active" || active == "reloading" ? ServiceState::Running
                   : active == "failed" || isWaiting           ? ServiceState::Failed
                   : active == "activating"                    ? ServiceState::Starting
                   : active == "deactivating"                  ? ServiceState::Stopping
                                                               : ServiceState::Stopped;
    if (status.state == ServiceState::Failed)
        status.reason = values["Result"] + (isWaiting ? ", it is started anew soon" : "");
    status.processId = static_cast<std::uint32_t>(std::strtoul(values["MainPID"].c_str(), nullptr, 10));
    status.account = values["User"];
    status.startsWithSystem = values["UnitFileState"] == "enabled";
    return {};
}

}  // namespace Platform
