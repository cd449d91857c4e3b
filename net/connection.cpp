#include "net/connection.h"

#include <algorithm>
#include <boost/asio/ip/host_name.hpp>

#include "net/connectionstate.h"
#include "net/tlscontext.h"
#include "utility/text.h"

namespace Net {
namespace {

constexpr std::size_t FirstBuffer = 16 * 1024;
constexpr std::size_t LargestBuffer = 1024 * 1024;  // of replies that come in during a write
constexpr std::size_t MaxAddresses = 16;

std::chrono::milliseconds Until(Deadline deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

std::string Seconds(std::chrono::milliseconds time) {
    const auto tenths = (time.count() + 50) / 100;
    std::string text = std::to_string(tenths / 10);
    if (tenths % 10 != 0) text += "." + std::to_string(tenths % 10);
    return text + (tenths == 10 ? " second" : " seconds");
}

std::string WithoutBrackets(std::string host) {
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    if (StartsWithNoCase(host, "IPv6:")) host.erase(0, 5);
    if (!host.empty() && host.back() == '.') host.pop_back();
    return host;
}

}  // namespace

bool ParseTlsMode(std::string_view name, TlsMode& mode) {
    static constexpr std::pair<std::string_view, TlsMode> Modes[] = {{"", TlsMode::Opportunistic},
                                                                     {"None", TlsMode::None},
                                                                     {"Opportunistic", TlsMode::Opportunistic},
                                                                     {"Required", TlsMode::Required},
                                                                     {"Implicit", TlsMode::Implicit}};
    for (const auto& [text, value] : Modes)
        if (EqualNoCase(text, name)) {
            mode = value;
            return true;
        }
    return false;
}

std::string GetOwnHostName() {
    ErrorCode error;
    const std::string name = asio::ip::host_name(error);
    return error ? std::string() : name;
}

// ---- failures

bool CConnection::CState::Fail(FailureKind kind, std::string text) {
    CloseSocket();
    begin = end = 0;
    failure = {kind, OneLine(text)};
    return false;
}

bool CConnection::CState::FailIn(Wait wait, std::string_view doing, std::chrono::milliseconds limit) {
    if (wait == Wait::Cancelled) {
        IsGivenUp();
        return false;
    }
    if (IsOver()) return Fail(FailureKind::TimedOut, "The time for " + options.host + " is over");
    return Fail(FailureKind::TimedOut, options.host + " did not " + std::string(doing) + " within " + Seconds(limit));
}

bool CConnection::CState::FailBy(const ErrorCode& error) {
    if (error == asio::error::eof || error == asio::ssl::error::stream_truncated)
        return Fail(FailureKind::Closed, options.host + " has closed the connection");
    if (error.category() == asio::error::get_ssl_category())
        return Fail(FailureKind::Tls, "The encrypted connection to " + options.host + " is broken: " + error.message());
    return Fail(FailureKind::Closed, "The connection to " + options.host + " is lost: " + error.message());
}

Deadline CConnection::CState::After(std::chrono::milliseconds limit) const {
    return std::min(std::chrono::steady_clock::now() + limit, lastMoment);
}

bool CConnection::CState::IsOver() const {
    return lastMoment != Deadline::max() && std::chrono::steady_clock::now() >= lastMoment;
}

bool CConnection::CState::IsGivenUp() {
    if (!isCancelled) return false;
    isCancelTold = true;
    Fail(FailureKind::Cancelled, "Cancelled");
    return true;
}

// ---- operations

template <class Condition>
CConnection::CState::Wait CConnection::CState::Drive(Deadline deadline, const Condition& isDone) {
    io.restart();
    while (!isDone()) {
        if (isCancelled) return Wait::Cancelled;
        if (io.run_one_until(deadline) > 0) continue;
        if (isCancelled) return Wait::Cancelled;
        // With a deadline that has passed run_one_until() does not even look.
        if (std::chrono::steady_clock::now() >= deadline && io.poll_one() == 0) return Wait::TimedOut;
        io.restart();  // stopped by a Cancel() of before
    }
    return Wait::Done;
}

void CConnection::CState::Settle() noexcept {
    ErrorCode ignored;
    isSettling = true;
    socket.cancel(ignored);
    io.restart();
    while (pending > 0) {
        if (io.run_one_for(std::chrono::seconds(5)) > 0) continue;
        if (!io.stopped()) break;
        io.restart();
    }
    isSettling = false;
}

void CConnection::CState::StartRead() {
    if (isReading || readError || !socket.is_open()) return;
    if (begin == end) begin = end = 0;
    if (begin > 0 && end == buffer.size()) {
        std::copy(buffer.begin() + static_cast<std::ptrdiff_t>(begin),
                  buffer.begin() + static_cast<std::ptrdiff_t>(end), buffer.begin());
        end -= begin;
        begin = 0;
    }
    if (end == buffer.size()) {
        if (buffer.size() >= LargestBuffer) return;
        buffer.resize(buffer.empty() ? FirstBuffer : buffer.size() * 2);
    }
    isReading = true;
    ++pending;
    const auto done = [this](const ErrorCode& error, std::size_t count) {
        --pending;
        isReading = false;
        end += count;
        if (error && error != asio::error::operation_aborted) readError = error;
        if (isWriting && !isSettling) StartRead();
    };
    const auto space = asio::buffer(buffer.data() + end, buffer.size() - end);
    if (tls)
        tls->async_read_some(space, done);
    else
        socket.async_read_some(space, done);
}

void CConnection::CState::StartWrite(std::string_view bytes, ErrorCode& error, bool& isDone) {
    ++pending;
    isWriting = true;
    const auto done = [this, &error, &isDone](const ErrorCode& result, std::size_t) {
        --pending;
        isWriting = false;
        error = result;
        isDone = true;
    };
    const auto all = asio::buffer(bytes.data(), bytes.size());
    if (tls)
        asio::async_write(*tls, all, done);
    else
        asio::async_write(socket, all, done);
}

bool CConnection::CState::WriteAtOnce(std::string_view& bytes, ErrorCode& error) {
    while (!tls && !bytes.empty()) {
        bytes.remove_prefix(socket.write_some(asio::buffer(bytes.data(), bytes.size()), error));
        if (error == asio::error::would_block || error == asio::error::try_again) {
            error.clear();
            return true;
        }
        if (error) return false;
    }
    return true;
}

// The reason may have come in before, so that is read first.
bool CConnection::CState::FailWriting(const ErrorCode& error) {
    canWrite = false;
    for (std::size_t before = end + 1; !readError && before != end;) {
        before = end;
        StartRead();
        io.restart();
        io.poll();
    }
    Settle();
    const std::size_t first = begin;
    const std::size_t last = end;
    FailBy(error ? error : readError ? readError : ErrorCode(asio::error::eof));
    begin = first;
    end = last;
    if (!readError) readError = error;
    return false;
}

// Of a line that is longer the first maxLength octets, and one less rather
// than half of a line end.
bool CConnection::CState::ReadLine(std::string& line, std::size_t maxLength, bool& isWhole,
                                   std::chrono::milliseconds limit) {
    failure = {};
    const Deadline deadline = After(limit);
    for (std::size_t scanned = 0;;) {
        if (IsGivenUp()) return false;
        const std::string_view unread = Unread();
        const std::size_t lineFeed = unread.find('\n', scanned);
        isWhole = lineFeed != std::string_view::npos;
        std::size_t length = isWhole ? lineFeed - (lineFeed > 0 && unread[lineFeed - 1] == '\r') : unread.size();
        if (length > maxLength + (isWhole ? 0 : 1)) {
            isWhole = false;
            length = maxLength - (unread[maxLength - 1] == '\r');
            line.assign(unread.data(), length);
            begin += length;
            return true;
        }
        if (isWhole) {
            line.assign(unread.data(), length);
            begin += lineFeed + 1;
            return true;
        }
        scanned = unread.size();
        if (readError) return FailBy(readError);
        if (!socket.is_open()) return Fail(FailureKind::Closed, "There is no connection");
        if (IsOver()) return FailIn(Wait::TimedOut, "answer", limit);  // also when there is always more to read
        StartRead();
        const Wait wait = Drive(deadline, [this] { return !isReading; });
        if (wait != Wait::Done) return FailIn(wait, "answer", limit);
    }
}

bool CConnection::CState::Write(std::string_view bytes, std::chrono::milliseconds limit, bool* hasInput) {
    failure = {};
    if (IsGivenUp()) return false;
    if (!socket.is_open() || !canWrite) return Fail(FailureKind::Closed, "There is no connection");
    const Deadline deadline = After(limit);
    ErrorCode error;
    if (!WriteAtOnce(bytes, error)) return FailWriting(error);
    if (bytes.empty()) return true;

    bool isDone = false;
    StartWrite(bytes, error, isDone);
    io.restart();
    if (!isCancelled) io.poll();
    if (!isDone) StartRead();
    const Wait wait = Drive(deadline, [&] { return isDone || readError || (hasInput && begin != end); });
    // The handler refers to this call's variables: it must not outlive it.
    const bool isStopped = wait == Wait::Done && !isDone && !readError;
    const ErrorCode reason = isDone ? error : ErrorCode();
    if (!isDone) Settle();
    if (isDone && !error) return true;
    if (wait != Wait::Done) return FailIn(wait, "take what was sent to it", limit);
    if (!isStopped) return FailWriting(reason);
    canWrite = false;
    *hasInput = true;
    failure = {FailureKind::Protocol, options.host + " has answered before everything was sent"};
    return false;
}

void CConnection::CState::CloseSocket() noexcept {
    ErrorCode ignored;
    socket.close(ignored);
    Settle();
    tls.reset();
    canWrite = false;
}

// ---- opening

bool CConnection::CState::FindAddresses(Deadline deadline, std::vector<asio::ip::address>& addresses) {
    ErrorCode error;
    const asio::ip::address literal = asio::ip::make_address(options.host, error);
    if (!error) {
        addresses.push_back(literal);
        return true;
    }
    std::vector<std::string> texts;
    Failure why;
    const bool isFound = options.resolver ? options.resolver(options.host, texts, why)
                                          : names.Find(options.host, Until(deadline), isCancelled, texts, why);
    if (IsGivenUp()) return false;
    if (!isFound) return Fail(why.kind == FailureKind::None ? FailureKind::NameUnknown : why.kind, why.text);
    for (const std::string& text : texts) {
        const asio::ip::address address = asio::ip::make_address(text, error);
        if (!error && addresses.size() < MaxAddresses) addresses.push_back(address);
    }
    return !addresses.empty() || Fail(FailureKind::NameNotFound, "\"" + options.host + "\" has no address");
}

// False with error unset when the time is up or the call was cancelled.
bool CConnection::CState::Connect(const asio::ip::address& address, Deadline deadline, ErrorCode& error) {
    CloseSocket();
    bool isDone = false;
    ++pending;
    socket.async_connect(Tcp::endpoint(address, options.port), [&](const ErrorCode& result) {
        --pending;
        error = result;
        isDone = true;
    });
    if (Drive(deadline, [&] { return isDone; }) != Wait::Done) {
        CloseSocket();
        error.clear();
        return false;
    }
    if (!error) socket.non_blocking(true, error);
    if (error) return false;
    ErrorCode ignored;
    socket.set_option(Tcp::no_delay(true), ignored);
    peerAddress = address.to_string();
    localAddress = socket.local_endpoint(ignored).address().to_string();
    canWrite = true;
    return true;
}

bool CConnection::CState::ConnectToAny(const std::vector<asio::ip::address>& addresses, Deadline deadline) {
    const std::string where = options.host + " port " + std::to_string(options.port);
    std::string reasons;
    bool isTimedOut = true;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        // An address that does not answer leaves time for the others.
        const auto share = Until(deadline) / static_cast<long>(addresses.size() - i);
        ErrorCode error;
        if (Connect(addresses[i], After(share), error)) return true;
        if (IsGivenUp()) return false;
        const bool isSilent = !error || error == asio::error::timed_out;
        isTimedOut = isTimedOut && isSilent;
        if (reasons.size() > 400) continue;
        reasons += (i > 0 ? "; " : ": ") + addresses[i].to_string() +
                   (isSilent ? " did not answer within " + Seconds(share) : ": " + error.message());
    }
    if (IsOver()) return FailIn(Wait::TimedOut, {}, {});
    return Fail(isTimedOut ? FailureKind::TimedOut : FailureKind::Refused, "Cannot connect to " + where + reasons);
}

bool CConnection::CState::Handshake(std::chrono::milliseconds limit) {
    std::string error;
    SSL* ssl = MakeTls(options.tlsCaFile, options.host, error);
    if (!ssl) return Fail(FailureKind::Local, error);
    tls = std::make_unique<TlsStream>(socket, ssl);
    bool isDone = false;
    ErrorCode result;
    ++pending;
    tls->async_handshake(asio::ssl::stream_base::client, [&](const ErrorCode& code) {
        --pending;
        result = code;
        isDone = true;
    });
    const Wait wait = Drive(After(limit), [&] { return isDone; });
    if (wait != Wait::Done) {
        CloseSocket();
        return FailIn(wait, "finish the TLS handshake", limit);
    }
    if (result.category() == asio::error::get_ssl_category())
        return Fail(FailureKind::Tls, "The TLS handshake with " + options.host + " failed: " +
                                          DescribeHandshakeFailure(static_cast<unsigned long>(result.value())));
    if (result == asio::error::eof || result == asio::ssl::error::stream_truncated)
        return Fail(FailureKind::Tls, options.host + " has closed the connection during the TLS handshake");
    if (result)
        return Fail(FailureKind::Tls,
                    "The connection to " + options.host + " was lost during the TLS handshake: " + result.message());
    isVerified = CheckCertificate(ssl, options.host, certificate);
    if (isVerified || options.tlsMode == TlsMode::Opportunistic) return true;
    return Fail(FailureKind::Certificate, options.host + " cannot be trusted: " + certificate);
}

CConnection::CConnection() : m_state(std::make_unique<CState>()) {}
CConnection::~CConnection() {
    m_state->CloseSocket();
}

bool CConnection::Open(const ConnectOptions& options) {
    Close();
    CState& s = *m_state;
    s.failure = {};
    s.options = options;
    s.options.host = WithoutBrackets(options.host);
    s.readError = {};
    s.isVerified = false;
    s.certificate.clear();
    s.peerAddress.clear();
    s.localAddress.clear();
    if (s.isCancelTold) {
        s.isCancelTold = false;
        s.isCancelled = false;
    }
    if (s.IsGivenUp()) return false;
    const Deadline deadline = s.After(options.timeout);
    if (s.options.host.empty() || options.port == 0)
        return s.Fail(FailureKind::Local, "No host and port to connect to are given");
    std::vector<asio::ip::address> addresses;
    if (!s.FindAddresses(deadline, addresses) || !s.ConnectToAny(addresses, deadline)) return false;
    return options.tlsMode != TlsMode::Implicit || s.Handshake(Until(deadline));
}

bool CConnection::StartTls(Milliseconds limit) {
    CState& s = *m_state;
    s.failure = {};
    if (s.IsGivenUp()) return false;
    if (!IsOpen() || s.tls) return s.Fail(FailureKind::Closed, "There is no connection to encrypt");
    if (s.isReading) s.Settle();  // it would take the first bytes of the handshake
    if (s.begin != s.end)
        return s.Fail(FailureKind::Protocol, s.options.host + " has sent unencrypted text behind its consent to TLS");
    if (s.readError) return s.FailBy(s.readError);
    return s.Handshake(limit);
}

// ---- talking

bool CConnection::ReadLine(std::string& line, std::size_t maxLength, Milliseconds limit) {
    CState& s = *m_state;
    bool isWhole = false;
    return s.ReadLine(line, maxLength, isWhole, limit) &&
           (isWhole || s.Fail(FailureKind::Protocol, s.options.host + " has sent a line of more than " +
                                                         std::to_string(maxLength) + " octets"));
}

bool CConnection::ReadPiece(std::string& piece, std::size_t maxLength, bool& endsLine, Milliseconds limit) {
    return m_state->ReadLine(piece, maxLength, endsLine, limit);
}

bool CConnection::Write(std::string_view bytes, Milliseconds limit) {
    return m_state->Write(bytes, limit, nullptr);
}

bool CConnection::WriteUnlessInput(std::string_view bytes, Milliseconds limit, bool& hasInput) {
    hasInput = false;
    return m_state->Write(bytes, limit, &hasInput);
}

bool CConnection::IsStale() {
    CState& s = *m_state;
    if (!IsOpen() || s.begin != s.end || s.readError || s.isCancelled) return true;
    s.StartRead();
    s.io.restart();
    s.io.poll();
    return s.begin != s.end || s.readError;
}

bool CConnection::HasUnreadInput() const noexcept {
    return m_state->begin != m_state->end;
}

void CConnection::Close() noexcept {
    m_state->CloseSocket();
    m_state->begin = m_state->end = 0;
}

bool CConnection::IsOpen() const noexcept {
    return m_state->socket.is_open();
}
bool CConnection::IsEncrypted() const noexcept {
    return m_state->tls != nullptr;
}
std::string CConnection::GetHost() const {
    return m_state->options.host;
}
std::string CConnection::GetPeerAddress() const {
    return m_state->peerAddress;
}
std::string CConnection::GetLocalAddress() const {
    return m_state->localAddress;
}
bool CConnection::IsCertificateVerified() const {
    return m_state->isVerified;
}
std::string CConnection::DescribeCertificate() const {
    return m_state->certificate;
}

std::string CConnection::DescribeTls() const {
    if (!m_state->tls) return {};
    const SSL* ssl = m_state->tls->native_handle();
    return std::string(SSL_get_version(ssl)) + ", " + SSL_get_cipher_name(ssl);
}

void CConnection::Cancel() noexcept {
    m_state->isCancelled = true;
    m_state->names.Cancel();
    m_state->io.stop();
}

void CConnection::EndBy(std::chrono::steady_clock::time_point lastMoment) noexcept {
    m_state->lastMoment = lastMoment;
}

const Failure& CConnection::GetFailure() const noexcept {
    return m_state->failure;
}

}  // namespace Net
