#include "platform/process.h"

#include <windows.h>
//
#include <fcntl.h>
#include <io.h>
#include <malloc.h>
#include <psapi.h>
#include <shellapi.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/win32/handle.h"
#include "platform/win32/sessionend.h"
#include "platform/win32/stopevent.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

std::atomic<bool> g_stopSignalled{false};

bool IsTerminal(DWORD which) noexcept {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(which), &mode) != FALSE;
}

bool IsService() noexcept {
    DWORD session = 1;
    return ProcessIdToSessionId(GetCurrentProcessId(), &session) && session == 0;
}

// On a thread of the system.  What cannot be declined ends the process when
// this returns, so it does not: the process ends itself in time, or is ended.
BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (event == CTRL_LOGOFF_EVENT && IsService()) return TRUE;  // another user went
    const bool isSecond = g_stopSignalled.exchange(true, std::memory_order_relaxed);
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) return isSecond ? FALSE : TRUE;
    Sleep(INFINITE);
    return TRUE;
}

void WatchStopEvent(HANDLE event) {
    while (WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0) {
        if (g_stopSignalled.exchange(true, std::memory_order_relaxed))
            ExitProcess(static_cast<UINT>(STATUS_CONTROL_C_EXIT));
    }
}

// A console shows bytes by its code page, which outlives the program.
UINT g_codePageBefore = 0;

void RestoreConsole() {
    SetConsoleOutputCP(g_codePageBefore);
}

void PrepareConsole() {
    if (!IsTerminal(STD_OUTPUT_HANDLE) && !IsTerminal(STD_ERROR_HANDLE)) return;
    g_codePageBefore = GetConsoleOutputCP();
    if (g_codePageBefore != CP_UTF8 && SetConsoleOutputCP(CP_UTF8)) std::atexit(RestoreConsole);
}

// The run-time library knows only those that the code page of the system can write.
void TakeWideArguments(int count, char** arguments) {
    int found = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &found);
    if (!wide || found != count) return;
    static std::vector<std::string> kept;
    for (int i = 0; i < count; ++i)
        kept.push_back(FromWide(wide[i]));
    for (int i = 0; i < count; ++i)
        arguments[i] = kept[static_cast<std::size_t>(i)].data();
    LocalFree(wide);
}

}  // namespace

ThreadId CurrentThreadId() noexcept {
    return GetCurrentThreadId();
}

std::uint32_t CurrentProcessId() noexcept {
    return GetCurrentProcessId();
}

std::optional<std::string> EnvironmentValue(std::string_view name) {
    const std::wstring wide = ToWide(name);
    std::wstring value(256, L'\0');
    for (;;) {
        SetLastError(ERROR_SUCCESS);
        const DWORD size = GetEnvironmentVariableW(wide.c_str(), value.data(), static_cast<DWORD>(value.size()));
        if (size == 0 && GetLastError() != ERROR_SUCCESS) return std::nullopt;
        const bool fits = size < value.size();
        value.resize(size);
        if (fits) return FromWide(value);
    }
}

bool ErrorOutputIsTerminal() noexcept {
    return IsTerminal(STD_ERROR_HANDLE);
}

std::size_t ErrorOutputColumns() noexcept {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info)) return 80;
    const int columns = info.srWindow.Right - info.srWindow.Left + 1;
    return columns > 0 ? static_cast<std::size_t>(columns) : 80;
}

bool InputIsTerminal() noexcept {
    return IsTerminal(STD_INPUT_HANDLE);
}

OutputState FlushOutput() noexcept {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return OutputState::Written;
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    if (output == nullptr || output == INVALID_HANDLE_VALUE) return OutputState::Written;  // there is none
    return GetFileType(output) == FILE_TYPE_PIPE ? OutputState::ReaderGone : OutputState::Failed;
}

void CatchStopSignals() {
    static std::atomic<bool> isCaught{false};
    if (isCaught.exchange(true)) return;
    SetConsoleCtrlHandler(nullptr, FALSE);  // a parent may have told us to ignore Ctrl-C
    SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
    if (GetConsoleWindow()) WatchSessionEnd([] { SignalStop(); });  // without a terminal there is no user to log off
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, StopEventName(GetCurrentProcessId()).c_str());
    if (event) std::thread(WatchStopEvent, event).detach();  // both live as long as the process
}

bool StopSignalled() noexcept {
    return g_stopSignalled.load(std::memory_order_relaxed);
}

void KeepMemoryTogether() noexcept {}  // one heap is what a process has

void ReturnFreeMemory() noexcept {
    _heapmin();
    HeapCompact(GetProcessHeap(), 0);
}

void SignalStop() noexcept {
    g_stopSignalled.store(true, std::memory_order_relaxed);
}

void PrepareProcess(int argumentCount, char** arguments) {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    for (std::FILE* file : {stdin, stdout, stderr})
        _setmode(_fileno(file), _O_BINARY);
    PrepareConsole();
    if (GetACP() != CP_UTF8) TakeWideArguments(argumentCount, arguments);
}

std::uint64_t ResidentMemory() {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) ? counters.WorkingSetSize : 0;
}

std::size_t OpenFileLimit() {
    return SIZE_MAX;
}

}  // namespace Platform
