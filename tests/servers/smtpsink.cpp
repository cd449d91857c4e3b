#include "tests/servers/smtpsink.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace TestServers {

CSmtpSink::CSmtpSink(std::vector<std::string> options, SinkKeeps keeps, std::string address, std::uint16_t port)
    : CTestServer("smtp-sink"),
      m_options(std::move(options)),
      m_keeps(keeps),
      m_address(std::move(address)),
      m_wantedPort(port) {
    std::filesystem::create_directory(m_folder / "mail");
}

bool CSmtpSink::Prepare(CCommand& command) {
    m_port = m_wantedPort ? m_wantedPort : FindFreePort(m_address);
    command.address = m_address;
    command.port = m_port;
    command.arguments = {"-4", "-h", "sink.example"};
    if (IsAdministrator()) {
        std::string output;
        RunProgram(FindProgram("chmod"), {"a+rwx", OnServer("mail")}, output);
        command.arguments.insert(command.arguments.end(), {"-u", "nobody"});
    }
    if (m_keeps == SinkKeeps::Messages) command.arguments.insert(command.arguments.end(), {"-d", OnServer("mail/%s.")});
    command.arguments.insert(command.arguments.end(), m_options.begin(), m_options.end());
    command.arguments.insert(command.arguments.end(), {m_address + ':' + std::to_string(m_port), "200"});
    return true;
}

std::vector<std::string> CSmtpSink::GetMessages() const {
    std::vector<std::string> messages;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder / "mail"))
        if (std::string message = Get(entry.path().string()); !message.empty()) messages.push_back(std::move(message));
    return messages;
}

std::size_t CSmtpSink::CountMessages() const {
    // The sink removes the file of a session that was cut off, perhaps right now.
    const auto hasContent = [](const std::filesystem::directory_entry& entry) {
        std::error_code isGone;
        const std::uintmax_t size = entry.file_size(isGone);
        return !isGone && size > 0;
    };
    const std::filesystem::directory_iterator files(m_folder / "mail");
    return static_cast<std::size_t>(std::count_if(begin(files), end(files), hasContent));
}

}  // namespace TestServers
