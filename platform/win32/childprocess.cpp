#include "platform/childprocess.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "platform/win32/commandline.h"
#include "platform/win32/handle.h"
#include "platform/win32/stopevent.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

// Exit statuses as childprocess.h has them; the numbers are those of SIGINT,
// SIGKILL and SIGSEGV.
constexpr int Interrupted = 256 + 2;
constexpr int Killed = 256 + 9;
constexpr int Crashed = 256 + 11;

int ToStatus(DWORD code) {
    if (code == static_cast<DWORD>(STATUS_CONTROL_C_EXIT)) return Interrupted;
    constexpr DWORD FirstFault = 0xC0000000;  // what a process is ended with that did not end itself
    return code >= FirstFault && code < 0xD0000000 ? Crashed : static_cast<int>(code);
}

// Backslashes count double before a quote only.
std::wstring Quote(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"*?") == std::wstring::npos) return argument;
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"') quoted.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    return quoted.append(backslashes, L'\\') + L'"';
}

std::wstring NameOf(const std::wstring& variable) {
    return variable.substr(0, variable.find(L'=', 1));  // those of drives begin with "="
}

bool NamesLess(const std::wstring& left, const std::wstring& right) {
    const std::wstring a = NameOf(left);
    const std::wstring b = NameOf(right);
    return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()), TRUE) ==
           CSTR_LESS_THAN;
}

// Sorted, as the system wants it; each name once, and ours first.
std::wstring EnvironmentBlock(const std::vector<std::string>& further) {
    std::vector<std::wstring> variables;
    for (const std::string& variable : further)
        variables.push_back(ToWide(variable));
    wchar_t* const own = GetEnvironmentStringsW();
    for (const wchar_t* at = own; at && *at; at += std::char_traits<wchar_t>::length(at) + 1)
        variables.emplace_back(at);
    FreeEnvironmentStringsW(own);
    std::stable_sort(variables.begin(), variables.end(), NamesLess);
    std::wstring block;
    for (std::size_t i = 0; i < variables.size(); ++i) {
        if (i == 0 || NamesLess(variables[i - 1], variables[i])) block += variables[i] + L'\0';
    }
    return block + L'\0';
}

SECURITY_ATTRIBUTES Inheritable() {
    return {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
}

CHandle OpenNothing() {
    SECURITY_ATTRIBUTES attributes = Inheritable();
    return CHandle(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &attributes,
                               OPEN_EXISTING, 0, nullptr));
}

// The file, to be appended to; without one what this process has, or nothing.
CHandle OpenOutput(const std::string& path, DWORD own) {
    if (!path.empty()) {
        SECURITY_ATTRIBUTES attributes = Inheritable();
        return CHandle(CreateFileW(SystemPath(path).c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &attributes, OPEN_ALWAYS,
                                   FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    HANDLE copy = nullptr;
    const HANDLE source = GetStdHandle(own);
    if (source && source != INVALID_HANDLE_VALUE &&
        DuplicateHandle(GetCurrentProcess(), source, GetCurrentProcess(), &copy, 0, TRUE, DUPLICATE_SAME_ACCESS))
        return CHandle(copy);
    return OpenNothing();
}

// The child gets these three handles and no others: one that it kept open
// would hold what is ours beyond our end.
class CStartup {
public:
    CStartup(const ChildOptions& options)
        : m_input(OpenNothing()),
          m_output(OpenOutput(options.outputFile, STD_OUTPUT_HANDLE)),
          m_error(OpenOutput(options.errorFile, STD_ERROR_HANDLE)) {
        if (!m_input || !m_output || !m_error) return;
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        m_memory.resize(size);
        auto* const list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_memory.data());
        if (!InitializeProcThreadAttributeList(list, 1, 0, &size)) return;
        m_info.lpAttributeList = list;
        m_isReady = UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles, sizeof m_handles,
                                              nullptr, nullptr) != FALSE;
        m_info.StartupInfo.cb = sizeof m_info;
        m_info.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        m_info.StartupInfo.hStdInput = m_handles[0];
        m_info.StartupInfo.hStdOutput = m_handles[1];
        m_info.StartupInfo.hStdError = m_handles[2];
    }
    CStartup(const CStartup&) = delete;
    CStartup& operator=(const CStartup&) = delete;
    ~CStartup() {
        if (m_info.lpAttributeList) DeleteProcThreadAttributeList(m_info.lpAttributeList);
    }

    bool IsReady() const { return m_isReady; }
    STARTUPINFOW* Get() { return &m_info.StartupInfo; }

private:
    CHandle m_input;
    CHandle m_output;
    CHandle m_error;
    HANDLE m_handles[3] = {m_input.Get(), m_output.Get(), m_error.Get()};
    std::vector<unsigned char> m_memory;
    STARTUPINFOEXW m_info{};
    bool m_isReady = false;
};

// Ends with everything that the child started, and when this process ends.
CHandle MakeJob() {
    CHandle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (job) SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
    return job;
}

}  // namespace

std::wstring CommandLine(const std::wstring& program, const std::vector<std::string>& arguments) {
    std::wstring line = L'"' + program + L'"';
    for (const std::string& argument : arguments)
        line += L' ' + Quote(ToWide(argument));
    return line;
}

struct CChildProcess::CState {
    CHandle process;
    CHandle job;  // none where the system does not let us
    DWORD id = 0;

    bool HasEnded(DWORD milliseconds) const {
        return !process || WaitForSingleObject(process.Get(), milliseconds) == WAIT_OBJECT_0;
    }
};

CChildProcess::CChildProcess() = default;
CChildProcess::CChildProcess(CChildProcess&&) noexcept = default;

CChildProcess& CChildProcess::operator=(CChildProcess&& other) noexcept {
    if (m_state) Kill();
    m_state = std::move(other.m_state);
    return *this;
}

CChildProcess::~CChildProcess() {
    if (m_state) Kill();
}

bool CChildProcess::Start(const std::string& program, const std::vector<std::string>& arguments,
                          const ChildOptions& options) {
    if (m_state) Kill();
    m_state.reset();
    const std::wstring path = SystemPath(program);
    std::wstring line = CommandLine(ToWide(program), arguments);
    std::wstring block = EnvironmentBlock(options.environment);
    CStartup startup(options);
    if (!startup.IsReady()) return false;
    constexpr DWORD Flags =
        CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP | EXTENDED_STARTUPINFO_PRESENT;
    PROCESS_INFORMATION made{};
    if (!CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, TRUE, Flags, block.data(), nullptr, startup.Get(),
                        &made))
        return false;
    const CHandle thread(made.hProcess ? made.hThread : nullptr);  // Wine has none of a program of the system below
    auto state = std::make_unique<CState>();
    state->process.Reset(made.hProcess);
    state->id = made.dwProcessId;
    state->job = MakeJob();
    if (state->job && !AssignProcessToJobObject(state->job.Get(), made.hProcess)) state->job.Reset();
    if (thread) ResumeThread(thread.Get());
    m_state = std::move(state);
    return true;
}

bool CChildProcess::IsRunning() {
    return m_state && !m_state->HasEnded(0);
}

bool CChildProcess::WaitFor(std::chrono::milliseconds limit, int& status) {
    if (!m_state) return false;
    const auto milliseconds = static_cast<DWORD>(std::clamp<std::int64_t>(limit.count(), 0, INFINITE - 1));
    DWORD code = 0;
    if (!m_state->HasEnded(milliseconds) || !GetExitCodeProcess(m_state->process.Get(), &code)) return false;
    status = ToStatus(code);
    return true;
}

// One that catches stop signals has made its event; any other is told by its
// console, or ends as Ctrl-C ends a program that does not care.
bool CChildProcess::AskToStop() {
    if (!IsRunning()) return false;
    const CHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, StopEventName(m_state->id).c_str()));
    if (event) return SetEvent(event.Get()) != FALSE;
    return GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, m_state->id) ||
           TerminateProcess(m_state->process.Get(), static_cast<UINT>(STATUS_CONTROL_C_EXIT));
}

bool CChildProcess::Kill() {
    if (!m_state || m_state->HasEnded(0)) return true;
    const bool isKilled = m_state->job && TerminateJobObject(m_state->job.Get(), Killed);
    if (!isKilled && !TerminateProcess(m_state->process.Get(), Killed) && !m_state->HasEnded(0)) return false;
    return m_state->HasEnded(INFINITE);
}

}  // namespace Platform
