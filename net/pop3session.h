// pop3session.h - one session with a POP3 server.
//
// Errors   false; GetFailure() says why, GetLastReply() what the server said.
//          After any failure but FailureKind::Reply and ::Local the session is
//          closed.
// Threads  One at a time; Cancel() from any other at any moment.
// Source   RFC 1939 (APOP too), 2449 (CAPA), 2595 (STLS).

#ifndef LISTHAVEN_NET_POP3SESSION_H
#define LISTHAVEN_NET_POP3SESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "net/connection.h"
#include "net/failure.h"
#include "net/pop3listing.h"

namespace Net {

enum class Pop3Login : std::uint8_t { UserPass, Apop };

struct Pop3Options {
    ConnectOptions connect;
    std::chrono::milliseconds replyTimeout{60000};
    std::string traceFile;  // appended; passwords masked; "": none
};

class CPop3Session {
public:
    CPop3Session();
    CPop3Session(const CPop3Session&) = delete;
    CPop3Session& operator=(const CPop3Session&) = delete;
    ~CPop3Session();  // without QUIT: nothing is deleted on the server

    bool Open(const Pop3Options& options);  // STLS as the mode wants
    bool IsOpen() const noexcept;
    bool HasApop() const noexcept;  // the greeting holds a time stamp
    bool Login(Pop3Login method, std::string_view login, std::string_view password);

    bool GetStatus(std::uint32_t& count, std::uint64_t& octets);
    bool GetMessages(CPop3Listing& listing);  // LIST
    bool GetUids(CPop3Listing& listing);      // UIDL; fills in the uids

    // Blocks of the message with CR LF, dots taken off.  sink returning false
    // ends the session.  More than maxOctets fails as Protocol.
    using Sink = std::function<bool(std::string_view block)>;
    bool Retrieve(std::uint32_t number, std::uint64_t maxOctets, const Sink& sink);
    bool RetrieveTop(std::uint32_t number, std::uint32_t lines, std::uint64_t maxOctets, const Sink& sink);
    bool Delete(std::uint32_t number);  // when the session ends with Quit()
    // Likewise, in turn; take is told of each whether the server has consented,
    // else GetFailure() says why not.  Where the server lets commands follow each
    // other (PIPELINING), it is not waited for after each, unless that is wanted.
    // False: the session has failed.
    bool DeleteAll(std::span<const std::uint32_t> numbers,
                   const std::function<void(std::size_t index, bool isDone)>& take, bool isOneByOne = false);
    bool Quit();            // true when the server has deleted what was to be deleted
    void Close() noexcept;  // QUIT without asking what became of it

    std::string GetLastReply() const;  // one line, at most 128 characters
    const Failure& GetFailure() const noexcept;
    const CConnection& GetConnection() const noexcept;
    void Cancel() noexcept;
    void EndBy(std::chrono::steady_clock::time_point lastMoment) noexcept;  // of this conversation, and of later ones

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_POP3SESSION_H
