#include "platform/childprocess.h"
#include "platform/process.h"
#include "tests/servers/serverprocess.h"

namespace TestServers {

struct CServerProcess::CState {
    Platform::CChildProcess child;
};

CServerProcess::CServerProcess() : m_state(std::make_unique<CState>()) {}
CServerProcess::~CServerProcess() = default;

bool CServerProcess::Start(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& outputFile) {
    return m_state->child.Start(program, arguments,
                                {.environment = {}, .outputFile = outputFile, .errorFile = outputFile});
}

bool CServerProcess::IsRunning() {
    return m_state->child.IsRunning();
}

bool CServerProcess::WaitFor(std::chrono::milliseconds limit, int& status) {
    return m_state->child.WaitFor(limit, status);
}

bool CServerProcess::AskToStop() {
    return m_state->child.AskToStop();
}

void CServerProcess::Kill() {
    m_state->child.Kill();
}

std::string TestProcess() {
    return std::to_string(Platform::CurrentProcessId());
}

std::string ServerPath(const std::string& path) {
    return path;
}

std::string TestPath(const std::string& path) {
    return path;
}

void RemoveLeftBehind(const std::string&) {}

}  // namespace TestServers
