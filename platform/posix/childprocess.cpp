#include "platform/childprocess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "platform/systemerror.h"

extern char** environ;

namespace Platform {

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
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> variables;
    for (const std::string& variable : options.environment)
        variables.push_back(const_cast<char*>(variable.c_str()));
    for (char** variable = environ; *variable; ++variable)
        variables.push_back(*variable);
    variables.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    constexpr int WriteFlags = O_WRONLY | O_CREAT | O_APPEND;
    if (!options.outputFile.empty())
        posix_spawn_file_actions_addopen(&actions, 1, options.outputFile.c_str(), WriteFlags, 0660);
    if (!options.errorFile.empty())
        posix_spawn_file_actions_addopen(&actions, 2, options.errorFile.c_str(), WriteFlags, 0660);

    auto state = std::make_unique<CState>();
    const int fault = posix_spawn(&state->pid, program.c_str(), &actions, nullptr, argv.data(), variables.data());
    posix_spawn_file_actions_destroy(&actions);
    if (fault != 0) {
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
