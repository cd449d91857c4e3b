#include "net/smtpsession.h"

#include <algorithm>

#include "net/smtpsessionstate.h"
#include "utility/text.h"

namespace Net {
namespace {

constexpr std::uint32_t OptionAuthLogin = 0x40;
constexpr std::uint32_t OptionDsn = 0x4;
constexpr std::size_t MaxLastReply = 128;
constexpr std::chrono::milliseconds GoodbyeTime{1000};

std::string WithoutLineEnd(std::string_view command) {
    return std::string(TrimRight(command));
}

// RFC 5321, 4.1.4: a name that others can look up, or else the address.
std::string NameForHello(const std::string& wanted, const CConnection& connection) {
    if (!wanted.empty()) return wanted;
    const std::string own = GetOwnHostName();
    if (own.find('.') != std::string::npos && !StartsWithNoCase(own, "localhost") &&
        CheckAddress("a@" + own) == AddressSyntax::Good)
        return own;
    const std::string address = connection.GetLocalAddress();
    return (address.find(':') == std::string::npos ? "[" : "[IPv6:") + address + "]";
}

}  // namespace

// ---- replies and failures

bool CSmtpSession::CState::Fail(FailureKind kind, std::string text) {
    failure = {kind, OneLine(text)};
    return false;
}

bool CSmtpSession::CState::FailByReply() {
    const std::string to = lastCommand.empty() ? "the connection" : "\"" + lastCommand + "\"";
    return Fail(FailureKind::Reply, connection.GetHost() + " refuses " + to + ": " + lastReply);
}

bool CSmtpSession::CState::FailByConnection() {
    failure = connection.GetFailure();
    trace.Happened(failure.text);
    return false;
}

bool CSmtpSession::CState::FailByProtocol(std::string_view what) {
    connection.Close();
    Fail(FailureKind::Protocol, connection.GetHost() + " does not keep to the protocol: it " + std::string(what));
    trace.Happened(failure.text);
    return false;
}

bool CSmtpSession::CState::Write(std::string_view bytes, std::string_view forTrace) {
    if (connection.HasUnreadInput()) return FailByProtocol("has answered a command before it was sent");
    if (trace.IsOn()) trace.Sent(TrimRight(forTrace));
    return connection.Write(bytes, options.replyTimeout) || FailByConnection();
}

bool CSmtpSession::CState::ReadReply(Milliseconds limit, bool keepLines) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    parser.Start(keepLines);
    for (;;) {
        const auto left = std::chrono::ceil<Milliseconds>(deadline - std::chrono::steady_clock::now());
        if (!connection.ReadLine(line, MaxReplyLine, std::max(left, Milliseconds(0)))) return FailByConnection();
        if (trace.IsOn()) trace.Received(line);
        switch (parser.Add(line)) {
            case CSmtpReplyParser::Step::Done:
                return true;
            case CSmtpReplyParser::Step::Bad:
                return FailByProtocol("has sent what is no reply: \"" + CleanReplyText(line, 64) + "\"");
            case CSmtpReplyParser::Step::More:
                break;
        }
    }
}

void CSmtpSession::CState::Note(std::string_view command) {
    lastCommand = WithoutLineEnd(command);
    lastCode = Reply().code;
    lastReply = std::to_string(lastCode);
    for (const std::string* part : {&Reply().enhanced, &Reply().text})
        if (!part->empty()) lastReply.append(" ").append(*part);
    lastReply = CleanReplyText(lastReply, MaxLastReply);
}

bool CSmtpSession::CState::Ask(std::string_view command, std::string_view shown, bool keepLines) {
    if (shown.empty()) shown = command;
    lastCommand = WithoutLineEnd(shown);
    lastCode = 0;
    lastReply.clear();
    if (!Write(command, shown) || !ReadReply(options.replyTimeout, keepLines)) return false;
    Note(shown);
    return true;
}

// ---- opening

bool CSmtpSession::CState::ReadGreeting() {
    if (!ReadReply(options.replyTimeout)) return false;
    Note({});
    if (Reply().code == 220) return true;
    if (Reply().code < 400) return FailByProtocol("greets with \"" + lastReply + "\"");
    return FailByReply();
}

bool CSmtpSession::CState::SayHello() {
    capabilities = {};
    if (!Ask("EHLO " + heloName + "\r\n", {}, true)) return false;
    if (Reply().code == 250) {
        capabilities = ParseCapabilities(parser.GetLines());
        return true;
    }
    if (Reply().code >= 500) {
        if (!Ask("HELO " + heloName + "\r\n")) return false;
        capabilities.serverName = Reply().text.substr(0, Reply().text.find(' '));
        if (Reply().code == 250) return true;
    }
    return FailByReply();
}

bool CSmtpSession::CState::StartTls(bool& isTlsBroken) {
    const bool isRequired = options.connect.tlsMode == TlsMode::Required;
    if (!capabilities.hasStartTls)
        return !isRequired ||
               Fail(FailureKind::Tls, "TLS is required, but " + connection.GetHost() + " does not offer it");
    if (!Ask("STARTTLS\r\n")) return false;
    if (Reply().code != 220) {
        if (!isRequired && Reply().code >= 400 && Reply().code != 421) return true;
        FailByReply();
        if (isRequired && Reply().code != 421) failure.kind = FailureKind::Tls;
        return false;
    }
    if (!connection.StartTls(options.replyTimeout)) {
        FailByConnection();
        isTlsBroken = failure.kind == FailureKind::Tls;
        return false;
    }
    if (trace.IsOn())
        trace.Happened(connection.DescribeTls() + ", certificate " +
                       (connection.IsCertificateVerified() ? "verified: " : "not verified: ") +
                       connection.DescribeCertificate());
    return SayHello();  // nothing that was said unencrypted counts any more
}

bool CSmtpSession::CState::OpenOnce(TlsMode mode, bool& isTlsBroken) {
    ConnectOptions connect = options.connect;
    connect.tlsMode = mode;
    if (!connection.Open(connect)) return FailByConnection();
    trace.Happened("connected to " + connection.GetHost() + ", " + connection.GetPeerAddress());
    heloName = NameForHello(options.heloName, connection);
    if (!ReadGreeting() || !SayHello()) return false;
    return mode == TlsMode::None || mode == TlsMode::Implicit || StartTls(isTlsBroken);
}

CSmtpSession::CSmtpSession() : m_state(std::make_unique<CState>()) {}
CSmtpSession::~CSmtpSession() = default;

bool CSmtpSession::Open(const SmtpOptions& options) {
    Close();
    CState& s = *m_state;
    s.options = options;
    s.failure = {};
    s.lastCode = 0;
    s.lastReply.clear();
    s.lastCommand.clear();
    s.neverNotify = s.isResetDue = s.isReused = false;
    s.capabilities = {};
    std::string ignored;
    if (!AppendCommand(ignored, "EHLO", options.heloName))
        return s.Fail(FailureKind::Local, "The name for EHLO holds blanks or control characters");
    s.trace.Open(options.traceFile);

    bool isTlsBroken = false;
    bool isOpen = s.OpenOnce(options.connect.tlsMode, isTlsBroken);
    // A server whose TLS does not work is better than none for those who do
    // not insist; but it takes a new connection, this one is spoilt.
    if (!isOpen && isTlsBroken && options.connect.tlsMode == TlsMode::Opportunistic) {
        s.trace.Happened("trying without TLS");
        s.failure = {};
        isOpen = s.OpenOnce(TlsMode::None, isTlsBroken);
    }
    if (!isOpen) s.connection.Close();
    return isOpen;
}

bool CSmtpSession::IsOpen() const noexcept {
    return m_state->connection.IsOpen();
}
const SmtpCapabilities& CSmtpSession::GetCapabilities() const noexcept {
    return m_state->capabilities;
}
bool CSmtpSession::IsEncrypted() const noexcept {
    return m_state->connection.IsEncrypted();
}
const CConnection& CSmtpSession::GetConnection() const noexcept {
    return m_state->connection;
}

std::uint32_t CSmtpSession::GetExtendedOptions() const noexcept {
    const SmtpCapabilities& has = m_state->capabilities;
    return (has.HasAuth("LOGIN") ? OptionAuthLogin : 0) | (has.hasDsn ? OptionDsn : 0);
}

// ---- what an open session does

bool CSmtpSession::Authenticate(std::string_view login, std::string_view password) {
    CState& s = *m_state;
    s.failure = {};
    if (!s.connection.IsOpen()) return s.Fail(FailureKind::Closed, "The session is closed");
    if (!s.capabilities.HasAuth("LOGIN")) return s.Fail(FailureKind::Local, "SMTP server does not support AUTH LOGIN");
    if (!s.Ask("AUTH LOGIN\r\n")) return false;
    for (const auto& [secret, shown] :
         {std::pair(login, "AUTH LOGIN [login]"), std::pair(password, "AUTH LOGIN [password]")}) {
        if (s.IsPositive()) return s.FailByProtocol("has ended the log-in before it was told everything");
        if (s.Reply().code != 334) break;
        if (!s.Ask(EncodeBase64(secret) + "\r\n", shown)) return false;
    }
    if (s.IsPositive()) return true;
    if (s.Reply().code < 400) return s.FailByProtocol("has asked for more than login and password");
    if (s.Reply().code == 421) s.connection.Close();
    return s.FailByReply();
}

void CSmtpSession::NeverNotify(bool on) noexcept {
    m_state->neverNotify = on;
}

bool CSmtpSession::Reset() {
    CState& s = *m_state;
    s.failure = {};
    if (!s.connection.IsOpen()) return s.Fail(FailureKind::Closed, "The session is closed");
    if (s.connection.IsStale()) {
        // Most often the 421 of a server that has waited long enough.
        if (!s.ReadReply(CState::Milliseconds(0))) return false;
        s.Note({});
        s.connection.Close();
        return s.FailByReply();
    }
    s.isResetDue = true;
    if (s.capabilities.hasPipelining) return true;
    if (!s.Ask("RSET\r\n")) return false;
    s.isResetDue = false;
    if (s.IsPositive()) return true;
    s.connection.Close();
    return s.FailByReply();
}

void CSmtpSession::Close() noexcept {
    CState& s = *m_state;
    if (s.connection.IsOpen() && !s.connection.IsStale()) {
        const Failure before = s.failure;
        s.trace.Sent("QUIT");
        if (s.connection.Write("QUIT\r\n", GoodbyeTime)) s.ReadReply(GoodbyeTime);
        s.failure = before;
    }
    s.connection.Close();
    s.trace.Close();
}

int CSmtpSession::GetLastCode() const noexcept {
    return m_state->lastCode;
}
std::string CSmtpSession::GetLastReplyText() const {
    return m_state->lastReply;
}
std::string CSmtpSession::GetLastEnhancedCode() const {
    return m_state->lastCode != 0 ? m_state->Reply().enhanced : std::string();
}
std::string CSmtpSession::GetLastCommand() const {
    return m_state->lastCommand;
}
const Failure& CSmtpSession::GetFailure() const noexcept {
    return m_state->failure;
}
bool CSmtpSession::IsAnswerDue() const noexcept {
    return m_state->isAnswerDue;
}

void CSmtpSession::Cancel() noexcept {
    m_state->connection.Cancel();
}

}  // namespace Net
