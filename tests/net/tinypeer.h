// tinypeer.h - the other end of one connection, which says given things at
// given moments, whatever sense they make.

#ifndef LISTHAVEN_TESTS_NET_TINYPEER_H
#define LISTHAVEN_TESTS_NET_TINYPEER_H

#include <boost/asio.hpp>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

class CTinyPeer {
public:
    // Each pair: what to wait for, and what to say then.  At the end it reads
    // until the other side closes.
    using Script = std::vector<std::pair<std::string, std::string>>;

    // answering: called, when given, with what has come, before that is answered
    explicit CTinyPeer(Script script, std::function<void(const std::string& what)> answering = {})
        : m_answering(std::move(answering)),
          m_acceptor(m_context, Tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0)),
          m_thread([this, script = std::move(script)] { Play(script); }) {}
    CTinyPeer(const CTinyPeer&) = delete;
    CTinyPeer& operator=(const CTinyPeer&) = delete;
    ~CTinyPeer() { GetReceived(); }

    std::uint16_t GetPort() const { return m_acceptor.local_endpoint().port(); }

    // Waits until the other side has closed; it must have connected.
    const std::string& GetReceived() {
        if (m_thread.joinable()) m_thread.join();
        return m_received;
    }

private:
    using Tcp = boost::asio::ip::tcp;

    void Play(const Script& script) {
        boost::system::error_code error;
        Tcp::socket socket(m_context);
        m_acceptor.accept(socket, error);
        auto received = boost::asio::dynamic_buffer(m_received);
        std::size_t seen = 0;
        for (const auto& [what, reply] : script) {
            while (!error && m_received.find(what, seen) == std::string::npos) {
                char chunk[4096];
                m_received.append(chunk, socket.read_some(boost::asio::buffer(chunk), error));
            }
            if (error) return;
            seen = m_received.find(what, seen) + what.size();
            if (m_answering) m_answering(what);
            boost::asio::write(socket, boost::asio::buffer(reply), error);
        }
        boost::asio::read(socket, received, error);
    }

    std::function<void(const std::string& what)> m_answering;
    boost::asio::io_context m_context;
    Tcp::acceptor m_acceptor;
    std::string m_received;
    std::thread m_thread;
};

#endif  // LISTHAVEN_TESTS_NET_TINYPEER_H
