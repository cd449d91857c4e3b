// peer.h - one connection that a test's server has accepted.  Calls wait, and
// fail when the other side is gone or after Stop().

#ifndef LISTHAVEN_TESTS_SMTPSCRIPT_PEER_H
#define LISTHAVEN_TESTS_SMTPSCRIPT_PEER_H

#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace SmtpScript {

// One asynchronous call at a time, waited for, that another thread can end.
class CWaiter {
public:
    boost::asio::io_context io;

    template <class Start>
    bool Run(Start start) {
        io.restart();
        if (m_isStopping) return false;
        bool isGood = false;
        start([&isGood, this](const boost::system::error_code& error, std::size_t count = 0) {
            isGood = !error;
            m_count = count;
        });
        io.run();
        return isGood;
    }
    void Stop() {
        m_isStopping = true;
        io.stop();
    }
    bool IsStopping() const { return m_isStopping; }
    std::size_t GetCount() const { return m_count; }

private:
    std::atomic<bool> m_isStopping = false;
    std::size_t m_count = 0;
};

class CPeer {
public:
    CPeer() : m_socket(m_waiter.io) {}

    boost::asio::io_context& GetContext() { return m_waiter.io; }
    void Take(boost::asio::ip::tcp::socket socket);
    bool Handshake(boost::asio::ssl::context& context);
    bool IsEncrypted() const { return m_tls.has_value(); }

    bool ReadLine(std::string& line, bool& isBare);  // without line end; bare: not CR LF, or a CR within
    void Forget() { m_input.clear(), m_start = 0; }  // what came and was not read
    bool Write(std::string_view bytes);
    void Wait(std::chrono::milliseconds time);
    void Drain();  // after the last reply: until the other side has closed too
    void Close();
    void Stop() { m_waiter.Stop(); }

private:
    CWaiter m_waiter;
    boost::asio::ip::tcp::socket m_socket;
    std::optional<boost::asio::ssl::stream<boost::asio::ip::tcp::socket&>> m_tls;
    std::array<char, 16384> m_chunk{};
    std::string m_input;
    std::size_t m_start = 0;  // of what has not been read yet
};

}  // namespace SmtpScript

#endif  // LISTHAVEN_TESTS_SMTPSCRIPT_PEER_H
