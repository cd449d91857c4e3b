// Stands between a client and a server on loopback as a long line would: what
// one side sends reaches the other after a fixed time.  The bandwidth is not
// limited, and nothing is joined or split on purpose.
//
// usage: delay_proxy TARGET_PORT MILLISECONDS      prints the port it listens on; ends when it is killed

#include <boost/asio.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace {

namespace Asio = boost::asio;
using Asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using Error = boost::system::error_code;

constexpr std::size_t BlockSize = 65536;

// One direction of one connection.  Reading never waits for writing.
class CLane : public std::enable_shared_from_this<CLane> {
public:
    CLane(std::shared_ptr<tcp::socket> from, std::shared_ptr<tcp::socket> to, Clock::duration delay)
        : m_from(std::move(from)), m_to(std::move(to)), m_timer(m_from->get_executor()), m_delay(delay) {}

    void Read() {
        m_from->async_read_some(Asio::buffer(m_block), [self = shared_from_this()](Error error, std::size_t count) {
            // An empty block is the end.
            self->m_waiting.emplace_back(Clock::now() + self->m_delay, std::string(self->m_block.data(), count));
            if (self->m_waiting.size() == 1) self->WaitForFirst();
            if (!error) self->Read();
        });
    }

private:
    void WaitForFirst() {
        m_timer.expires_at(m_waiting.front().first);
        m_timer.async_wait([self = shared_from_this()](Error error) {
            if (!error) self->WriteFirst();
        });
    }

    void WriteFirst() {
        Error ignored;
        if (m_waiting.front().second.empty()) {
            m_to->shutdown(tcp::socket::shutdown_send, ignored);
            return;
        }
        Asio::async_write(*m_to, Asio::buffer(m_waiting.front().second),
                          [self = shared_from_this()](Error error, std::size_t) {
                              self->m_waiting.pop_front();
                              Error closed;
                              if (error)
                                  self->m_from->close(closed);
                              else if (!self->m_waiting.empty())
                                  self->WaitForFirst();
                          });
    }

    std::shared_ptr<tcp::socket> m_from;
    std::shared_ptr<tcp::socket> m_to;
    Asio::steady_timer m_timer;
    Clock::duration m_delay;
    std::array<char, BlockSize> m_block{};
    std::deque<std::pair<Clock::time_point, std::string>> m_waiting;
};

class CProxy {
public:
    CProxy(Asio::io_context& io, std::uint16_t targetPort, Clock::duration delay)
        : m_io(io),
          m_acceptor(io, tcp::endpoint(Asio::ip::address_v4::loopback(), 0)),
          m_target(Asio::ip::address_v4::loopback(), targetPort),
          m_delay(delay) {
        m_acceptor.listen();
    }

    std::uint16_t GetPort() const { return m_acceptor.local_endpoint().port(); }

    void Accept() {
        m_acceptor.async_accept([this](Error error, tcp::socket socket) {
            if (error) return;
            Connect(std::make_shared<tcp::socket>(std::move(socket)));
            Accept();
        });
    }

private:
    // The server hears of the client after one delay; so its greeting comes after two.
    void Connect(const std::shared_ptr<tcp::socket>& client) {
        auto timer = std::make_shared<Asio::steady_timer>(m_io, m_delay);
        timer->async_wait([this, client, timer](Error) {
            auto server = std::make_shared<tcp::socket>(m_io);
            server->async_connect(m_target, [this, client, server](Error error) {
                if (error) return;
                client->set_option(tcp::no_delay(true));
                server->set_option(tcp::no_delay(true));
                std::make_shared<CLane>(client, server, m_delay)->Read();
                std::make_shared<CLane>(server, client, m_delay)->Read();
            });
        });
    }

    Asio::io_context& m_io;
    tcp::acceptor m_acceptor;
    tcp::endpoint m_target;
    Clock::duration m_delay;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: delay_proxy TARGET_PORT MILLISECONDS\n");
        return 2;
    }
    try {
        Asio::io_context io;
        CProxy proxy(io, static_cast<std::uint16_t>(std::atoi(argv[1])), std::chrono::milliseconds(std::atoi(argv[2])));
        proxy.Accept();
        std::printf("%u\n", static_cast<unsigned>(proxy.GetPort()));
        std::fflush(stdout);
        io.run();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "delay_proxy: %s\n", problem.what());
        return 1;
    }
    return 0;
}
