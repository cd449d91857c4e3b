#include "tests/smtpscript/peer.h"

#include <utility>

namespace SmtpScript {

namespace {
constexpr std::size_t LongestLine = 1 << 20;
constexpr int MostDrained = 10000;  // chunks
}  // namespace

void CPeer::Take(boost::asio::ip::tcp::socket socket) {
    boost::system::error_code ignored;
    m_socket = std::move(socket);
    m_socket.set_option(boost::asio::ip::tcp::no_delay(true), ignored);
}

bool CPeer::Handshake(boost::asio::ssl::context& context) {
    m_tls.emplace(m_socket, context);
    m_input.clear();
    m_start = 0;
    return m_waiter.Run(
        [this](auto done) { m_tls->async_handshake(boost::asio::ssl::stream_base::server, std::move(done)); });
}

bool CPeer::ReadLine(std::string& line, bool& isBare) {
    std::size_t end = 0;
    for (std::size_t seen = m_start; (end = m_input.find('\n', seen)) == std::string::npos;) {
        m_input.erase(0, std::exchange(m_start, 0));
        seen = m_input.size();
        if (seen > LongestLine) return false;
        const bool isGood = m_waiter.Run([this](auto done) {
            const auto buffer = boost::asio::buffer(m_chunk);
            m_tls ? m_tls->async_read_some(buffer, std::move(done)) : m_socket.async_read_some(buffer, std::move(done));
        });
        if (!isGood) return false;
        m_input.append(m_chunk.data(), m_waiter.GetCount());
    }
    line = m_input.substr(m_start, end - m_start);
    m_start = end + 1;
    const bool isWhole = !line.empty() && line.back() == '\r';
    if (isWhole) line.pop_back();
    isBare = !isWhole || line.find('\r') != std::string::npos;
    return true;
}

bool CPeer::Write(std::string_view bytes) {
    return m_waiter.Run([&](auto done) {
        const auto buffer = boost::asio::buffer(bytes.data(), bytes.size());
        m_tls ? boost::asio::async_write(*m_tls, buffer, std::move(done))
              : boost::asio::async_write(m_socket, buffer, std::move(done));
    });
}

void CPeer::Wait(std::chrono::milliseconds time) {
    boost::asio::steady_timer timer(m_waiter.io, time);
    m_waiter.Run([&](auto done) { timer.async_wait(std::move(done)); });
}

void CPeer::Drain() {
    boost::system::error_code ignored;
    m_socket.shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
    for (int i = 0; i < MostDrained; ++i) {
        if (!m_waiter.Run(
                [this](auto done) { m_socket.async_read_some(boost::asio::buffer(m_chunk), std::move(done)); }))
            return;
    }
}

void CPeer::Close() {
    boost::system::error_code ignored;
    m_socket.close(ignored);
}

}  // namespace SmtpScript
