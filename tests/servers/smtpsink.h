// smtpsink.h - Postfix's smtp-sink: takes every message, or refuses as told.

#ifndef LISTHAVEN_TESTS_SERVERS_SMTPSINK_H
#define LISTHAVEN_TESTS_SERVERS_SMTPSINK_H

#include "tests/servers/testserver.h"

namespace TestServers {

enum class SinkKeeps : std::uint8_t { Messages, Nothing };

class CSmtpSink : public CTestServer {
public:
    // options: such as {"-r", "RCPT"} (450), {"-f", "MAIL"} (500), {"-q", "DATA"}
    // (hangs up), {"-Q", "."} (421), {"-e"} (no EHLO), {"-p"} (no PIPELINING).
    // port 0: a free one.  With another address than 127.0.0.1 several sinks
    // can have one port.
    explicit CSmtpSink(std::vector<std::string> options = {}, SinkKeeps keeps = SinkKeeps::Messages,
                       std::string address = "127.0.0.1", std::uint16_t port = 0);

    std::uint16_t GetPort() const { return m_port; }
    const std::string& GetAddress() const { return m_address; }

    // What has arrived, in no order: the message behind the lines X-Mail-Args
    // and X-Rcpt-Args, which hold the envelope.  Complete as soon as the client
    // has the reply to the end of the data.  What is still under way, at most
    // 4 KB of it, does not count: its file is empty.  Under Wine it can stay so,
    // for the connection of a killed client can stay open there.
    std::vector<std::string> GetMessages() const;
    std::size_t CountMessages() const;

private:
    bool Prepare(CCommand& command) override;

    std::vector<std::string> m_options;
    SinkKeeps m_keeps;
    std::string m_address;
    std::uint16_t m_wantedPort;
    std::uint16_t m_port = 0;
};

}  // namespace TestServers

#endif  // LISTHAVEN_TESTS_SERVERS_SMTPSINK_H
