#include <algorithm>
#include <thread>

#include "platform/childprocess.h"
#include "platform/filestatus.h"
#include "platform/process.h"
#include "tests/platform/temporaryfolder.h"
#include "tests/servers/serverprocess.h"
#include "utility/text.h"

namespace TestServers {

namespace {

constexpr std::chrono::seconds Patience{60};
constexpr int SignalStatus = 128;  // of the shell, for a program that a signal ended

// A file appears under its name when it is whole.
constexpr const char* RunScript = R"(d=$1 o=$2; shift 2; exec </dev/null >>"$o" 2>&1; "$@" & echo $! >"$d/p"
mv "$d/p" "$d/pid"; wait $!; echo $? >"$d/e"; mv "$d/e" "$d/ended")";

bool WaitForFile(const std::string& path, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!Platform::FileIsThere(path)) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Its result says nothing: there is no handle.
void RunShell(const char* script, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"-c", script, "sh"});
    Platform::CChildProcess().Start(TestPath("/bin/sh"), arguments);
}

}  // namespace

struct CServerProcess::CState {
    CTemporaryFolder folder;
    std::string pid;

    bool HasEnded() const { return Platform::FileIsThere(folder / "ended"); }
};

CServerProcess::CServerProcess() = default;

CServerProcess::~CServerProcess() {
    Kill();
}

bool CServerProcess::Start(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& outputFile) {
    Kill();
    if (!Platform::FileIsThere(TestPath("/bin/sh"))) return false;
    m_state = std::make_unique<CState>();
    std::vector<std::string> all = {ServerPath(m_state->folder.GetPath()), ServerPath(outputFile), program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    RunShell(RunScript, all);
    if (!WaitForFile(m_state->folder / "pid", Patience)) {
        m_state.reset();
        return false;
    }
    m_state->pid = std::string(Trim(Get(m_state->folder / "pid")));
    return true;
}

bool CServerProcess::IsRunning() {
    return m_state && !m_state->HasEnded();
}

bool CServerProcess::WaitFor(std::chrono::milliseconds limit, int& status) {
    if (!m_state || !WaitForFile(m_state->folder / "ended", limit)) return false;
    status = std::stoi(Get(m_state->folder / "ended"));
    if (status > SignalStatus) status += 256 - SignalStatus;
    return true;
}

bool CServerProcess::AskToStop() {
    if (!IsRunning()) return false;
    RunShell("kill -TERM $1", {m_state->pid});
    return true;
}

void CServerProcess::Kill() {
    if (!IsRunning()) return;
    RunShell("kill -KILL $1", {m_state->pid});
    WaitForFile(m_state->folder / "ended", Patience);
}

// From scripts/wine-run.sh; 1 is always there.
std::string TestProcess() {
    return Platform::EnvironmentValue("LISTHAVEN_TEST_PROCESS").value_or("1");
}

// Z: is the root there, and each drive has a name in the prefix.
std::string ServerPath(const std::string& path) {
    std::string result = path;
    std::replace(result.begin(), result.end(), '\\', '/');
    if (result.size() < 2 || result[1] != ':') return result;
    const char drive = ToLowerAscii(result[0]);
    result.erase(0, 2);
    if (drive == 'z') return result;
    return Platform::EnvironmentValue("LISTHAVEN_WINEPREFIX").value_or("") + "/dosdevices/" + drive + ':' + result;
}

std::string TestPath(const std::string& path) {
    return "Z:" + path;
}

// Sockets, which Windows programs cannot even open.
void RemoveLeftBehind(const std::string& folder) {
    CServerProcess process;
    int status = 0;
    if (process.Start("/bin/rm", {"-rf", ServerPath(folder)}, folder + "/log")) process.WaitFor(Patience, status);
}

}  // namespace TestServers
