// connectionstate.h - the inside of CConnection: asynchronous operations on one
// socket, driven by the thread that waits for them.
//
// At most one read is under way, into the free end of the buffer.  It may
// outlive the call that began it, so that a reply is noticed during a write.

#ifndef LISTHAVEN_NET_CONNECTIONSTATE_H
#define LISTHAVEN_NET_CONNECTIONSTATE_H

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/connection.h"
#include "net/systemnames.h"

namespace Net {

namespace asio = boost::asio;
using ErrorCode = boost::system::error_code;
using Tcp = asio::ip::tcp;
using Deadline = std::chrono::steady_clock::time_point;

struct CConnection::CState {
    using TlsStream = asio::ssl::stream<Tcp::socket&>;
    enum class Wait { Done, TimedOut, Cancelled };

    asio::io_context io{1};
    Tcp::socket socket{io};
    std::unique_ptr<TlsStream> tls;
    CSystemNames names;
    ConnectOptions options;
    Failure failure;
    std::string peerAddress;
    std::string localAddress;
    std::string certificate;
    bool isVerified = false;

    std::vector<char> buffer;  // unread bytes are from begin to end
    std::size_t begin = 0;
    std::size_t end = 0;
    bool isReading = false;
    bool isWriting = false;
    bool isSettling = false;
    bool canWrite = false;
    ErrorCode readError;
    std::size_t pending = 0;  // operations whose handlers have not run

    std::atomic<bool> isCancelled{false};
    bool isCancelTold = false;  // a call has failed for it
    Deadline lastMoment = Deadline::max();

    std::string_view Unread() const noexcept { return {buffer.data() + begin, end - begin}; }

    bool Fail(FailureKind kind, std::string text);  // false, closed
    bool FailIn(Wait wait, std::string_view doing, std::chrono::milliseconds limit);
    bool FailBy(const ErrorCode& error);
    bool IsGivenUp();  // Cancel() was called; the failure is set
    Deadline After(std::chrono::milliseconds limit) const;
    bool IsOver() const;  // the last moment has passed

    // Runs handlers until isDone, the deadline or Cancel().  Something must be
    // under way that makes isDone true some time.
    template <class Condition>
    Wait Drive(Deadline deadline, const Condition& isDone);
    void Settle() noexcept;  // ends what is under way and runs its handlers

    void StartRead();
    void StartWrite(std::string_view bytes, ErrorCode& error, bool& isDone);
    bool WriteAtOnce(std::string_view& bytes, ErrorCode& error);  // what the system takes without waiting
    bool ReadLine(std::string& line, std::size_t maxLength, bool& isWhole, std::chrono::milliseconds limit);
    bool Write(std::string_view bytes, std::chrono::milliseconds limit, bool* hasInput);
    bool FailWriting(const ErrorCode& error);

    bool FindAddresses(Deadline deadline, std::vector<asio::ip::address>& addresses);
    bool Connect(const asio::ip::address& address, Deadline deadline, ErrorCode& error);
    bool ConnectToAny(const std::vector<asio::ip::address>& addresses, Deadline deadline);
    bool Handshake(std::chrono::milliseconds limit);
    void CloseSocket() noexcept;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_CONNECTIONSTATE_H
