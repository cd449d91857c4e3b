#include "platform/childprocess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "platform/systemerror.h"

extern char** environ;

namespace Platform {

namespace {

// From here to Become() runs in the child of a process that may have threads:
// only calls that are allowed in a signal handler.
bool Redirect(int target, const char* path, int flags) {
    const int opened = open(path, flags, 0660);
    if (opened < 0 || opened == target) return opened == target;
    const bool isDone = dup2(opened, target) == target;
    close(opened);
    return isDone;
}

struct CProgram {
    std::vector<char*> arguments;
    std::vector<char*> variables;
    const char* outputFile = nullptr;
    const char* errorFile = nullptr;
};

// The reason goes to the parent, if it fails.
[[noreturn]] void Become(const CProgram& program, pid_t parent, int report) {
    constexpr int WriteFlags = O_WRONLY | O_CREAT | O_APPEND;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent && Redirect(0, "/dev/null", O_RDONLY) &&
        (!program.outputFile || Redirect(1, program.outputFile, WriteFlags)) &&
        (!program.errorFile || Redirect(2, program.errorFile, WriteFlags)))
        execve(program.arguments[0], program.arguments.data(), program.variables.data());
    const int fault = errno;
    if (write(report, &fault, sizeof fault) < 0) _exit(126);
    _exit(127);
}

// 0, or what the system said.
int Spawn(const CProgram& program, pid_t& pid) {
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) return errno;
    const pid_t parent = getpid();
    pid = fork();
    int fault = pid < 0 ? errno : 0;
    if (pid == 0) Become(program, parent, report[1]);
    close(report[1]);
    ssize_t got;
    do {
        got = pid < 0 ? 0 : read(report[0], &fault, sizeof fault);
    } while (got < 0 && errno == EINTR);
    close(report[0]);
    if (got > 0) waitpid(pid, nullptr, 0);
    return fault;
}

const char* NameOrNull(const std::string& path) {
    return path.empty() ? nullptr : path.c_str();
}

}  // namespace

struct CChildProcess::CState {
    pid_t pid = -1;
    bool ended = false;
    int status = 0;

    bool Collect(int flags) {
        if (ended) return true;
        int raw = 0;
        pid_t got;
        do {
            got = waitpid(pid, &raw, flags);
        } while (got < 0 && errno == EINTR);
        if (got != pid) return false;
        ended = true;
        status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 256 + WTERMSIG(raw);
        return true;
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
    CProgram run;
    run.arguments.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& argument : arguments)
        run.arguments.push_back(const_cast<char*>(argument.c_str()));
    run.arguments.push_back(nullptr);
    for (const std::string& variable : options.environment)
        run.variables.push_back(const_cast<char*>(variable.c_str()));
    for (char** variable = environ; *variable; ++variable)
        run.variables.push_back(*variable);
    run.variables.push_back(nullptr);
    run.outputFile = NameOrNull(options.outputFile);
    run.errorFile = NameOrNull(options.errorFile);

    auto state = std::make_unique<CState>();
    if (const int fault = Spawn(run, state->pid)) {
        SetLastSystemError(static_cast<SystemError>(fault));
        return false;
    }
    m_state = std::move(state);
    return true;
}

bool CChildProcess::IsRunning() {
    return m_state && !m_state->Collect(WNOHANG);
}

bool CChildProcess::WaitFor(std::chrono::milliseconds limit, int& status) {
    if (!m_state) return false;
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!m_state->Collect(WNOHANG)) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    status = m_state->status;
    return true;
}

bool CChildProcess::AskToStop() {
    return m_state && !m_state->ended && kill(m_state->pid, SIGINT) == 0;
}

bool CChildProcess::Kill() {
    if (!m_state || m_state->ended) return true;
    kill(m_state->pid, SIGKILL);
    return m_state->Collect(0);
}

}  // namespace Platform
