// The service by the system's service manager.

#include "platform/service.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>

#include "platform/systemerror.h"
#include "platform/win32/commandline.h"
#include "platform/win32/serviceaccount.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

using std::chrono::steady_clock;

struct CServiceCloser {
    void operator()(SC_HANDLE handle) const {
        const DWORD code = GetLastError();
        CloseServiceHandle(handle);
        SetLastError(code);
    }
};
using CServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CServiceCloser>;

constexpr std::chrono::minutes StartLimit{12};  // there may be a crash to repair
constexpr std::chrono::minutes StopLimit{1};    // the server ends within ten seconds
constexpr std::chrono::milliseconds LookInterval{50};
constexpr const wchar_t* EventSources = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\";

std::string Fault(std::string_view what) {
    const SystemError code = LastSystemError();
    if (code == ERROR_ACCESS_DENIED) return "Only an administrator may do that: " + std::string(what) + ".";
    if (code == ERROR_SERVICE_DOES_NOT_EXIST) return "The service is not installed.";
    return std::string(what) + ": " + SystemErrorText(code);
}

CServiceHandle OpenManager(DWORD access) {
    return CServiceHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | access));
}

// "" or the reason.
std::string OpenInstalled(const std::string& name, DWORD access, CServiceHandle& service) {
    const CServiceHandle manager = OpenManager(0);
    if (!manager) return Fault("The service manager cannot be reached");
    service.reset(OpenServiceW(manager.get(), ToWide(name).c_str(), access | SERVICE_QUERY_STATUS));
    return service ? std::string() : Fault("The service cannot be opened");
}

bool Query(const CServiceHandle& service, SERVICE_STATUS_PROCESS& status) {
    DWORD needed = 0;
    return QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                                &needed) != FALSE;
}

std::wstring OwnProgram() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        const bool fits = length < path.size();
        path.resize(fits ? length : path.size() * 2);
        if (fits) return path;
    }
}

std::string WhyItEnded(const SERVICE_STATUS_PROCESS& status) {
    if (status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR)
        return "It ended with status " + std::to_string(status.dwServiceSpecificExitCode) + ": the event log says why.";
    return "It ended: " + SystemErrorText(status.dwWin32ExitCode);
}

// Wine's service manager knows few of the details; the service does without them.
bool Configure(SC_HANDLE service, DWORD level, void* detail) {
    return ChangeServiceConfig2W(service, level, detail) || GetLastError() == ERROR_INVALID_LEVEL;
}

// After a crash, or an end with a failure: at once, then after half a minute, then
// every five minutes.
bool SetFailureActions(SC_HANDLE service) {
    SC_ACTION actions[] = {{SC_ACTION_RESTART, 1000}, {SC_ACTION_RESTART, 30000}, {SC_ACTION_RESTART, 300000}};
    SERVICE_FAILURE_ACTIONSW failure{};
    failure.dwResetPeriod = 24 * 3600;
    failure.cActions = 3;
    failure.lpsaActions = actions;
    SERVICE_FAILURE_ACTIONS_FLAG always{TRUE};
    return Configure(service, SERVICE_CONFIG_FAILURE_ACTIONS, &failure) &&
           Configure(service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &always);
}

bool SetDetails(SC_HANDLE service, const ServiceSetup& setup) {
    std::wstring description = ToWide(setup.description);
    SERVICE_DESCRIPTIONW text{description.data()};
    SERVICE_PRESHUTDOWN_INFO shutdown{20000};
    SERVICE_SID_INFO identity{SERVICE_SID_TYPE_UNRESTRICTED};
    return Configure(service, SERVICE_CONFIG_DESCRIPTION, &text) && SetFailureActions(service) &&
           Configure(service, SERVICE_CONFIG_PRESHUTDOWN_INFO, &shutdown) &&
           Configure(service, SERVICE_CONFIG_SERVICE_SID_INFO, &identity);
}

// The system's own program has messages that are the text alone.
bool AddEventSource(const std::wstring& name) {
    const std::wstring file = L"%SystemRoot%\\System32\\EventCreate.exe";
    const std::wstring key = EventSources + name;
    const DWORD types = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;
    LSTATUS code = RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"EventMessageFile", REG_EXPAND_SZ, file.c_str(),
                                   static_cast<DWORD>((file.size() + 1) * sizeof(wchar_t)));
    if (code == ERROR_SUCCESS)
        code = RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"TypesSupported", REG_DWORD, &types, sizeof types);
    SetLastError(static_cast<DWORD>(code));
    return code == ERROR_SUCCESS;
}

std::wstring AccountFor(const ServiceSetup& setup, const std::wstring& service) {
    return setup.account.empty() ? L"NT SERVICE\\" + service : FullAccountName(ToWide(setup.account));
}

// "" or the reason.
std::string WaitForStart(const CServiceHandle& service) {
    for (const auto end = steady_clock::now() + StartLimit; steady_clock::now() < end;) {
        SERVICE_STATUS_PROCESS status{};
        if (!Query(service, status)) return Fault("The service cannot be asked");
        if (status.dwCurrentState == SERVICE_RUNNING) return {};
        if (status.dwCurrentState == SERVICE_STOPPED) return WhyItEnded(status);
        std::this_thread::sleep_for(LookInterval);
    }
    return "The service does not get on with its start.";
}

std::string WaitForEnd(const CServiceHandle& service) {
    for (const auto end = steady_clock::now() + StopLimit; steady_clock::now() < end;) {
        SERVICE_STATUS_PROCESS status{};
        if (!Query(service, status)) return Fault("The service cannot be asked");
        if (status.dwCurrentState == SERVICE_STOPPED) return {};
        std::this_thread::sleep_for(LookInterval);
    }
    return "The service does not end.";
}

std::string EndService(const CServiceHandle& service) {
    SERVICE_STATUS status{};
    if (!ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
        const DWORD code = GetLastError();
        if (code == ERROR_SERVICE_NOT_ACTIVE) return {};
        if (code != ERROR_SERVICE_CANNOT_ACCEPT_CTRL) return Fault("The service cannot be ended");
        SERVICE_STATUS_PROCESS now{};
        if (Query(service, now) && now.dwCurrentState == SERVICE_START_PENDING) {  // takes no orders yet
            if (std::string fault = WaitForStart(service); !fault.empty()) return {};
            return EndService(service);
        }
    }
    return WaitForEnd(service);
}

// Others may have it open; the name is free when they have closed it.
void WaitUntilGone(const std::string& name) {
    for (const auto end = steady_clock::now() + std::chrono::seconds(5); steady_clock::now() < end;) {
        CServiceHandle service;
        if (!OpenInstalled(name, 0, service).empty()) return;
        service.reset();
        std::this_thread::sleep_for(LookInterval);
    }
}

std::string CheckAccount(const ServiceSetup& setup) {
    SidBytes sid;
    if (setup.account.empty() || FindAccountSid(ToWide(setup.account), sid)) return {};
    return "There is no account " + setup.account + ": " + SystemErrorText(LastSystemError());
}

}  // namespace

CServiceControl::CServiceControl(std::string name) : m_name(std::move(name)) {}

std::string CServiceControl::CheckInstall(const ServiceSetup& setup) const {
    const CServiceHandle manager = OpenManager(SC_MANAGER_CREATE_SERVICE);
    if (!manager) return Fault("The service manager cannot be reached");
    const CServiceHandle service(OpenServiceW(manager.get(), ToWide(m_name).c_str(), SERVICE_QUERY_STATUS));
    if (service) return "The service is installed already: uninstall it first.";
    return CheckAccount(setup);
}

std::string CServiceControl::Install(const ServiceSetup& setup) {
    if (std::string fault = CheckInstall(setup); !fault.empty()) return fault;
    const std::wstring name = ToWide(m_name);
    const std::wstring account = AccountFor(setup, name);
    SidBytes sid;
    // A virtual account has the right to log on from the system.
    if (!setup.account.empty() && (!FindAccountSid(account, sid) || !GrantServiceLogon(sid)))
        return Fault("The account " + setup.account + " cannot be given the right to log on as a service");
    const CServiceHandle manager = OpenManager(SC_MANAGER_CREATE_SERVICE);
    const std::wstring command = CommandLine(OwnProgram(), setup.arguments);
    std::wstring password = ToWide(setup.password);
    const CServiceHandle service(CreateServiceW(manager.get(), name.c_str(), ToWide(setup.displayName).c_str(),
                                                SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
                                                SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr,
                                                account.c_str(), password.empty() ? nullptr : password.c_str()));
    SecureZeroMemory(password.data(), password.size() * sizeof(wchar_t));
    if (!service) return Fault("The service cannot be created");
    std::string fault;
    if (!SetDetails(service.get(), setup)) fault = Fault("The service cannot be set up");
    if (fault.empty() && !AddEventSource(name)) fault = Fault("The event log cannot be told of the service");
    if (fault.empty() && !(GetServiceSid(name, sid) && LetIntoFolder(SystemPath(setup.dataFolder), sid)))
        fault = Fault("The service cannot be let into " + setup.dataFolder);
    if (!fault.empty()) {
        DeleteService(service.get());
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, (EventSources + name).c_str());
    }
    return fault;
}

std::string CServiceControl::Uninstall() {
    {
        CServiceHandle service;
        std::string fault = OpenInstalled(m_name, SERVICE_STOP | DELETE, service);
        if (fault.empty()) fault = EndService(service);
        if (!fault.empty()) return fault;
        if (!DeleteService(service.get()) && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE)
            return Fault("The service cannot be removed");
    }
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (EventSources + ToWide(m_name)).c_str());
    WaitUntilGone(m_name);
    return {};
}

std::string CServiceControl::Start() {
    CServiceHandle service;
    if (std::string fault = OpenInstalled(m_name, SERVICE_START, service); !fault.empty()) return fault;
    if (!StartServiceW(service.get(), 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING)
        return Fault("The service cannot be started");
    return WaitForStart(service);
}

std::string CServiceControl::Stop() {
    CServiceHandle service;
    std::string fault = OpenInstalled(m_name, SERVICE_STOP, service);
    return fault.empty() ? EndService(service) : fault;
}

std::string CServiceControl::GetStatus(ServiceStatus& status) const {
    status = {};
    CServiceHandle service;
    const std::string fault = OpenInstalled(m_name, SERVICE_QUERY_CONFIG, service);
    if (!service) return LastSystemError() == ERROR_SERVICE_DOES_NOT_EXIST ? std::string() : fault;
    SERVICE_STATUS_PROCESS now{};
    if (!Query(service, now)) return Fault("The service cannot be asked");
    const bool hasFailed = now.dwWin32ExitCode != NO_ERROR && now.dwWin32ExitCode != ERROR_SERVICE_NEVER_STARTED;
    switch (now.dwCurrentState) {
        case SERVICE_STOPPED:
            status.state = hasFailed ? ServiceState::Failed : ServiceState::Stopped;
            break;
        case SERVICE_START_PENDING:
            status.state = ServiceState::Starting;
            break;
        case SERVICE_STOP_PENDING:
            status.state = ServiceState::Stopping;
            break;
        default:
            status.state = ServiceState::Running;
            break;
    }
    if (status.state == ServiceState::Failed) status.reason = WhyItEnded(now);
    status.processId = now.dwProcessId;
    DWORD needed = 0;
    QueryServiceConfigW(service.get(), nullptr, 0, &needed);
    std::vector<std::uint64_t> buffer(needed / sizeof(std::uint64_t) + 1);
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    if (!QueryServiceConfigW(service.get(), config, needed, &needed)) return Fault("The service cannot be asked");
    if (config->lpServiceStartName != nullptr) status.account = FromWide(config->lpServiceStartName);
    status.startsWithSystem = config->dwStartType == SERVICE_AUTO_START;
    return {};
}

}  // namespace Platform
