// serverprocess.h - a program of the system that the test servers are made
// for, run by a test.
//
// On that system it is a child process.  A test that runs as a Windows program
// under Wine has the same servers: it starts them through the shell of the
// system below, which writes the process id and how it ended into files, since
// Wine gives no handle of such a program.
//
// Errors   false.
// Threads  One at a time.

#ifndef LISTHAVEN_TESTS_SERVERS_SERVERPROCESS_H
#define LISTHAVEN_TESTS_SERVERS_SERVERPROCESS_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace TestServers {

class CServerProcess {
public:
    CServerProcess();
    CServerProcess(const CServerProcess&) = delete;
    CServerProcess& operator=(const CServerProcess&) = delete;
    ~CServerProcess();  // kills and waits

    // program and arguments have the paths of the servers' system; output and
    // errors are added to outputFile, which is a path of the test.
    bool Start(const std::string& program, const std::vector<std::string>& arguments, const std::string& outputFile);
    bool IsRunning();
    bool WaitFor(std::chrono::milliseconds limit, int& status);  // as Platform::CChildProcess does
    bool AskToStop();
    void Kill();

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

std::string TestProcess();  // the id of this process on the servers' system

std::string ServerPath(const std::string& path);  // a path of the test, as the servers write it
std::string TestPath(const std::string& path);    // and the other way round

// What servers have left in a folder and the test's system could not remove.
void RemoveLeftBehind(const std::string& folder);

}  // namespace TestServers

#endif  // LISTHAVEN_TESTS_SERVERS_SERVERPROCESS_H
