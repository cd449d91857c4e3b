#include "tests/servers/testserver.h"

#include <boost/asio.hpp>
#include <filesystem>
#include <thread>
#include <utility>

#include "utility/files.h"

namespace TestServers {

namespace {

namespace Asio = boost::asio;

// Becomes the server $2...  What watches is no child of it: the server ends when the test $1 was killed, and the
// children of a master that is gone end by themselves.
constexpr const char* WatchedServer = R"(t=$1 p=$$; shift
((while kill -0 $p; do kill -0 $t || kill -9 $p; sleep 1; done) >/dev/null 2>&1 &)
exec "$@")";

bool BindsBoth(const Asio::ip::address& address, std::uint16_t port) {
    Asio::io_context context;
    boost::system::error_code fault;
    Asio::ip::tcp::acceptor stream(context, Asio::ip::tcp::v4());
    stream.bind({address, port}, fault);
    if (fault) return false;
    Asio::ip::udp::socket datagram(context, Asio::ip::udp::v4());
    datagram.bind({address, port}, fault);
    return !fault;
}

}  // namespace

// Below those that systems give to whoever asks for any, and apart from those of
// tests that run beside this one: nobody takes the port before the server does,
// nor while it is away.
std::uint16_t FindFreePort(const std::string& address) {
    constexpr unsigned long First = 10000;
    constexpr unsigned long PerProcess = 20;
    constexpr unsigned long Processes = 1000;
    static unsigned long tried = std::stoul(TestProcess()) % Processes * PerProcess;
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const auto port = static_cast<std::uint16_t>(First + tried++ % (PerProcess * Processes));
        if (BindsBoth(Asio::ip::make_address(address), port)) return port;
    }
    return 0;
}

bool CanConnect(const std::string& address, std::uint16_t port) {
    Asio::io_context context;
    Asio::ip::tcp::socket socket(context);
    boost::system::error_code fault;
    socket.connect({Asio::ip::make_address(address), port}, fault);
    return !fault;
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

bool IsAdministrator() {
    std::string output;
    return RunProgram(FindProgram("id"), {"-u"}, output) && output == "0\n";
}

std::string FindProgram(std::string_view name) {
    for (const char* folder : {"/usr/sbin/", "/usr/bin/", "/usr/local/sbin/", "/usr/local/bin/", "/sbin/", "/bin/"}) {
        const std::string path = folder + std::string(name);
        if (std::filesystem::exists(TestPath(path))) return path;
    }
    return {};
}

bool RunProgram(const std::string& program, const std::vector<std::string>& arguments, std::string& output) {
    const CTemporaryFolder folder;
    CServerProcess process;
    int status = -1;
    const std::string file = folder / "output";
    const bool ran = !program.empty() && process.Start(program, arguments, file) && process.WaitFor(Patience, status);
    output = Get(file);
    return ran && status == 0;
}

bool MakeCertificate(const std::string& folder, CTestCertificate& certificate) {
    certificate = {folder + "/certificate.pem", folder + "/key.pem"};
    std::string output;
    return RunProgram(FindProgram("openssl"),
                      {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "30", "-subj", "/CN=localhost",
                       "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-keyout",
                       ServerPath(certificate.keyFile), "-out", ServerPath(certificate.certificateFile)},
                      output);
}

CTestServer::CTestServer(std::string_view program, Ending ending)
    : m_program(FindProgram(program)), m_programName(program), m_ending(ending) {
    using std::filesystem::perms;  // servers give up the rights of the user who starts them
    std::filesystem::permissions(m_folder.GetPath(), perms::owner_all | perms::group_read | perms::group_exec |
                                                         perms::others_read | perms::others_exec);
}

CTestServer::~CTestServer() {
    Stop();
    RemoveLeftBehind(m_folder.GetPath());
}

bool CTestServer::IsInstalled() {
    return !m_program.empty() || Fail(m_programName + " is not installed");
}

bool CTestServer::Fail(std::string text) {
    m_whyNot = std::move(text);
    return false;
}

bool CTestServer::Start() {
    if (!IsInstalled()) return false;
    for (int attempt = 0; attempt < 5; ++attempt) {
        CCommand command;
        command.program = m_program;
        if (!Prepare(command)) return false;
        command.arguments.insert(command.arguments.begin(),
                                 {"-c", WatchedServer, "sh", TestProcess(), command.program});
        if (!m_child.Start("/bin/sh", command.arguments, m_folder / "log"))
            return Fail(command.program + " could not be started");
        WaitUntil([&] { return !m_child.IsRunning() || IsReady(command); });
        if (m_child.IsRunning() && IsReady(command)) return true;
        Stop();
    }
    return Fail(m_programName + " does not answer: " + GetLog());
}

void CTestServer::Stop() {
    int status = 0;
    const bool isAsked = m_ending == Ending::Ask && m_child.AskToStop();
    if (!isAsked || !m_child.WaitFor(std::chrono::seconds(20), status)) m_child.Kill();
}

}  // namespace TestServers
