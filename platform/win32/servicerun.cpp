// The running service's side: the dispatcher of the service manager, and the
// system's event log.

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "platform/process.h"
#include "platform/service.h"
#include "platform/systemerror.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

// Longer than between two signs of progress; the server ends within ten seconds.
constexpr DWORD PendingHint = 20000;
constexpr std::chrono::seconds TickInterval{5};

// One per process.
struct CRunning {
    std::wstring name;
    const std::function<int()>* serve = nullptr;
    int result = 0;

    std::mutex lock;
    std::condition_variable wake;  // not "_any", whose wait for a stop can miss it in libstdc++ 12 on this system
    bool isServed = false;
    SERVICE_STATUS_HANDLE handle = nullptr;
    SERVICE_STATUS status{};
};

CRunning& TheService() {
    static CRunning* const running = new CRunning;  // the system calls back until the process ends
    return *running;
}

// With the lock held.
void Report(CRunning& running) {
    if (running.handle != nullptr) SetServiceStatus(running.handle, &running.status);
}

bool IsPending(DWORD state) {
    return state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
}

// A stop that has begun goes on: ready comes too late then.
void ChangeState(DWORD state) {
    CRunning& running = TheService();
    const std::lock_guard guard(running.lock);
    SERVICE_STATUS& status = running.status;
    if (status.dwCurrentState == SERVICE_STOP_PENDING && state != SERVICE_STOPPED) return;
    status.dwCurrentState = state;
    status.dwControlsAccepted =
        state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PRESHUTDOWN : 0;
    status.dwCheckPoint = IsPending(state) ? 1 : 0;
    status.dwWaitHint = IsPending(state) ? PendingHint : 0;
    Report(running);
}

// What is under way may take longer than the service manager would wait.
void Tick() {
    CRunning& running = TheService();
    std::unique_lock lock(running.lock);
    while (!running.wake.wait_for(lock, TickInterval, [&] { return running.isServed; })) {
        if (!IsPending(running.status.dwCurrentState)) continue;
        ++running.status.dwCheckPoint;
        Report(running);
    }
}

DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*) {
    switch (control) {
        case SERVICE_CONTROL_STOP:
        case SERVICE_CONTROL_SHUTDOWN:
        case SERVICE_CONTROL_PRESHUTDOWN:
            ChangeState(SERVICE_STOP_PENDING);
            SignalStop();
            return NO_ERROR;
        case SERVICE_CONTROL_INTERROGATE:
            return NO_ERROR;
        default:
            return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void WINAPI ServiceMain(DWORD, wchar_t**) {
    CRunning& running = TheService();
    running.status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    running.handle = RegisterServiceCtrlHandlerExW(running.name.c_str(), OnControl, nullptr);
    if (running.handle == nullptr) return;
    ChangeState(SERVICE_START_PENDING);
    {
        const std::jthread ticker(Tick);
        running.result = (*running.serve)();
        const std::lock_guard guard(running.lock);
        running.isServed = true;
        running.wake.notify_all();
    }
    if (running.result != 0) {  // so that the service manager starts it anew
        running.status.dwWin32ExitCode = ERROR_SERVICE_SPECIFIC_ERROR;
        running.status.dwServiceSpecificExitCode = static_cast<DWORD>(running.result);
    }
    ChangeState(SERVICE_STOPPED);
}

}  // namespace

int RunAsService(std::string_view name, const std::function<int()>& serve) {
    CRunning& running = TheService();
    running.name = ToWide(name);
    running.serve = &serve;
    const SERVICE_TABLE_ENTRYW table[] = {{running.name.data(), ServiceMain}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(table)) {
        const SystemError code = LastSystemError();
        running.name.clear();
        throw std::runtime_error("Only the service manager starts a service: " + SystemErrorText(code));
    }
    return running.result;
}

void NotifyServiceReady() {
    ChangeState(SERVICE_RUNNING);
}

void NotifyServiceStopping() {
    ChangeState(SERVICE_STOP_PENDING);
}

// This service manager does not watch what runs.
void NotifyServiceAlive() {}

std::optional<std::chrono::milliseconds> ServiceWatchInterval() {
    return std::nullopt;
}

void ReportToSystemLog(std::string_view text) {
    constexpr DWORD TextAlone = 1;  // in the messages that Install() names
    const std::wstring& name = TheService().name;
    const HANDLE source = name.empty() ? nullptr : RegisterEventSourceW(nullptr, name.c_str());
    if (source == nullptr) return;
    const std::wstring wide = ToWide(text).substr(0, 31000);  // what an entry may hold
    const wchar_t* strings[] = {wide.c_str()};
    ReportEventW(source, EVENTLOG_ERROR_TYPE, 0, TextAlone, nullptr, 1, 0, strings, nullptr);
    DeregisterEventSource(source);
}

}  // namespace Platform
