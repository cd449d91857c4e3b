// connection.h - a TCP connection, with or without TLS, that speaks in lines.
//
// Every call takes a time limit for the whole call, not for each byte, and
// ends at once when Cancel() is called.  After a failure the connection is
// closed; lines that had come in before a failed Write() can still be read,
// since they may say why it failed.
//
// Errors   false; GetFailure() says why.  Nothing throws but std::bad_alloc.
// Threads  One at a time; Cancel() from any other at any moment.
// Source   RFC 8446 and 5246 (TLS, at least 1.2), RFC 6125 (names of certificates).

#ifndef LISTHAVEN_NET_CONNECTION_H
#define LISTHAVEN_NET_CONNECTION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/failure.h"

namespace Net {

enum class TlsMode : std::uint8_t {
    None,
    Opportunistic,  // when it is offered; any certificate will do
    Required,       // from the STARTTLS (STLS) command on; certificate and name are verified
    Implicit,       // from the first byte; verified likewise
};
bool ParseTlsMode(std::string_view name, TlsMode& mode);  // "" is Opportunistic; without regard to case

std::string GetOwnHostName();  // as the system is called; maybe without domain; "" when it has no name

// The addresses of a host as texts, in the order to be tried.
using Resolver = std::function<bool(const std::string& host, std::vector<std::string>& addresses, Failure& failure)>;

struct ConnectOptions {
    std::string host;  // a name, or an address ("[...]" around it is taken off)
    std::uint16_t port = 0;
    std::chrono::milliseconds timeout{60000};  // of all attempts together
    Resolver resolver;                         // {}: the system's names
    TlsMode tlsMode = TlsMode::Opportunistic;
    std::string tlsCaFile;  // "": the authorities that the system trusts
};

class CConnection {
public:
    using Milliseconds = std::chrono::milliseconds;

    CConnection();
    CConnection(const CConnection&) = delete;
    CConnection& operator=(const CConnection&) = delete;
    ~CConnection();

    // With TlsMode::Implicit the handshake too.
    bool Open(const ConnectOptions& options);

    // The handshake, verified as the options of Open() say.  Fails when
    // plaintext came behind the reply to STARTTLS: nobody may slip commands or
    // replies into the encrypted conversation.
    bool StartTls(Milliseconds limit);

    // Without its line end (CR LF or LF).  A longer line fails as Protocol.
    bool ReadLine(std::string& line, std::size_t maxLength, Milliseconds limit);
    // Likewise, but a longer line comes in pieces of about maxLength octets (at
    // least 2, at most half a megabyte); the last one ends it.
    bool ReadPiece(std::string& piece, std::size_t maxLength, bool& endsLine, Milliseconds limit);
    // What comes in meanwhile is kept for ReadLine(), so that two sides that
    // write at one time do not wait for each other for ever.
    bool Write(std::string_view bytes, Milliseconds limit);
    // As Write(), but gives up when something comes in before all is written,
    // with hasInput: then nothing can be written any more, only read.
    bool WriteUnlessInput(std::string_view bytes, Milliseconds limit, bool& hasInput);

    // Whether the other side has closed, or has sent what was not read yet.
    // Does not wait.
    bool IsStale();
    bool HasUnreadInput() const noexcept;  // of what has been received already; asks nobody

    void Close() noexcept;
    bool IsOpen() const noexcept;
    bool IsEncrypted() const noexcept;
    std::string GetHost() const;              // as Open() was told, without brackets
    std::string GetPeerAddress() const;       // "127.0.0.1"; "" before Open()
    std::string GetLocalAddress() const;      // likewise
    std::string DescribeTls() const;          // "TLSv1.3, TLS_AES_256_GCM_SHA384"; "" without
    bool IsCertificateVerified() const;       // also with Opportunistic: whether it would have passed
    std::string DescribeCertificate() const;  // subject, or why it does not pass

    // The running call, or the next one, fails as Cancelled; so does all that
    // follows until the next Open().  When no call was running and the next one
    // is Open(), that fails, and the one after it does not.
    void Cancel() noexcept;

    // No wait of any call, of this connection or the next, goes beyond that: it
    // fails as TimedOut.
    void EndBy(std::chrono::steady_clock::time_point lastMoment) noexcept;

    const Failure& GetFailure() const noexcept;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_CONNECTION_H
