#include "net/pop3session.h"

#include <algorithm>

#include "net/pop3grammar.h"
#include "net/protocoltrace.h"
#include "net/smtpgrammar.h"
#include "utility/text.h"

namespace Net {
namespace {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t MaxLastReply = 128;
constexpr std::size_t BlockSize = std::size_t{64} * 1024;
constexpr Milliseconds GoodbyeTime{1000};
constexpr std::size_t CommandsTogether = 100;  // and their replies fit what the system buffers

Milliseconds Until(Clock::time_point deadline) {
    return std::max(std::chrono::ceil<Milliseconds>(deadline - Clock::now()), Milliseconds(0));
}

}  // namespace

struct CPop3Session::CState {
    CConnection connection;
    Pop3Options options;
    CProtocolTrace trace;
    Failure failure;
    std::string timeStamp;
    std::string lastReply;
    bool canPipeline = false;  // as far as the server was asked
    std::string line;
    Pop3Reply reply;  // its text lies in line

    bool Fail(FailureKind kind, std::string text);
    bool FailByReply(std::string_view command);
    bool FailByConnection();
    bool FailByProtocol(std::string_view what);

    bool Start();  // of a call
    bool ReadReply(Milliseconds limit);
    bool Send(const std::string& commands);
    // One command, without its end, and its reply.  shown is what may be known of it.
    bool Ask(std::string_view command, std::string_view shown = {});
    bool Demand(std::string_view command, std::string_view shown = {});  // and the reply is positive
    bool ReadLines(std::size_t maxLines, const std::function<bool(std::string_view line)>& take);
    bool ReadListing(std::string_view command, CPop3ListReader::Kind kind, CPop3Listing& listing);
    bool ReadMessage(const std::string& command, std::uint64_t maxOctets, const Sink& sink);

    bool ReadGreeting();
    bool AskCapabilities(bool& offersTls);
    bool StartTls();
    bool LoginByApop(std::string_view login, std::string_view password);
    bool LoginByPassword(std::string_view login, std::string_view password);
};

// ---- replies and failures

bool CPop3Session::CState::Fail(FailureKind kind, std::string text) {
    failure = {kind, OneLine(text)};
    return false;
}

bool CPop3Session::CState::FailByReply(std::string_view command) {
    const std::string to = command.empty() ? "the connection" : '"' + std::string(command) + '"';
    return Fail(FailureKind::Reply, connection.GetHost() + " refuses " + to + ": " + lastReply);
}

bool CPop3Session::CState::FailByConnection() {
    failure = connection.GetFailure();
    connection.Close();
    trace.Happened(failure.text);
    return false;
}

bool CPop3Session::CState::FailByProtocol(std::string_view what) {
    connection.Close();
    Fail(FailureKind::Protocol, connection.GetHost() + " does not keep to the protocol: it " + std::string(what));
    trace.Happened(failure.text);
    return false;
}

bool CPop3Session::CState::Start() {
    failure = {};
    return connection.IsOpen() || Fail(FailureKind::Closed, "The session is closed");
}

bool CPop3Session::CState::ReadReply(Milliseconds limit) {
    if (!connection.ReadLine(line, MaxPop3Line, limit)) return FailByConnection();
    if (trace.IsOn()) trace.Received(line);
    lastReply = CleanReplyText(line, MaxLastReply);
    return ParsePop3Reply(line, reply) || FailByProtocol("has sent what is no reply: \"" + lastReply + "\"");
}

bool CPop3Session::CState::Send(const std::string& commands) {
    lastReply.clear();
    if (connection.HasUnreadInput()) return FailByProtocol("has answered a command before it was sent");
    return connection.Write(commands, options.replyTimeout) || FailByConnection();
}

bool CPop3Session::CState::Ask(std::string_view command, std::string_view shown) {
    if (trace.IsOn()) trace.Sent(shown.empty() ? command : shown);
    return Send(std::string(command) + "\r\n") && ReadReply(options.replyTimeout);
}

bool CPop3Session::CState::Demand(std::string_view command, std::string_view shown) {
    return Ask(command, shown) && (reply.isPositive || FailByReply(shown.empty() ? command : shown));
}

// What follows a positive reply, up to the line with the dot.
bool CPop3Session::CState::ReadLines(std::size_t maxLines, const std::function<bool(std::string_view line)>& take) {
    const Clock::time_point deadline = Clock::now() + options.replyTimeout;
    for (std::size_t count = 0;; ++count) {
        if (!connection.ReadLine(line, MaxPop3Line, Until(deadline))) return FailByConnection();
        std::string_view text = line;
        if (text == ".") return true;
        if (count == maxLines) return FailByProtocol("sends a list without end");
        if (text.starts_with('.')) text.remove_prefix(1);
        if (!take(text))
            return FailByProtocol("has sent a list with the line \"" + CleanReplyText(text, MaxLastReply) + '"');
    }
}

bool CPop3Session::CState::ReadListing(std::string_view command, CPop3ListReader::Kind kind, CPop3Listing& listing) {
    if (!Start() || !Demand(command)) return false;
    CPop3ListReader reader(kind, listing);
    if (!ReadLines(MaxPop3Messages, [&](std::string_view text) { return reader.Add(text); })) return false;
    if (trace.IsOn()) trace.Happened(std::to_string(listing.GetCount()) + " messages");
    return reader.Finish() || FailByProtocol("has named a message twice");
}

bool CPop3Session::CState::ReadMessage(const std::string& command, std::uint64_t maxOctets, const Sink& sink) {
    if (!Start() || !Demand(command)) return false;
    CDotUnstuffer unstuffer;
    std::string block;
    std::uint64_t octets = 0;
    Clock::time_point deadline = Clock::now() + options.replyTimeout;
    for (bool isEnd = false; !isEnd;) {
        bool endsLine = false;
        if (!connection.ReadPiece(line, BlockSize, endsLine, Until(deadline))) return FailByConnection();
        isEnd = !unstuffer.Add(line, endsLine, block);
        if (octets + block.size() > maxOctets)
            return FailByProtocol("has sent a message of more than " + std::to_string(maxOctets) + " octets");
        if (block.size() < BlockSize && (!isEnd || block.empty())) continue;
        if (!sink(block)) {
            connection.Close();
            return Fail(FailureKind::Local, "The message is not wanted any further");
        }
        octets += block.size();
        block.clear();
        deadline = Clock::now() + options.replyTimeout;
    }
    if (trace.IsOn()) trace.Happened(std::to_string(octets) + " octets");
    return true;
}

// ---- opening

bool CPop3Session::CState::ReadGreeting() {
    if (!ReadReply(options.replyTimeout)) return false;
    timeStamp = FindTimeStamp(reply.text);
    return reply.isPositive || FailByReply({});
}

bool CPop3Session::CState::AskCapabilities(bool& offersTls) {
    if (!Ask("CAPA")) return false;
    return !reply.isPositive || ReadLines(MaxPop3Capabilities, [&](std::string_view text) {
        offersTls = offersTls || EqualNoCase(Trim(text), "STLS");
        canPipeline = canPipeline || EqualNoCase(Trim(text), "PIPELINING");
        return true;
    });
}

bool CPop3Session::CState::StartTls() {
    const bool isRequired = options.connect.tlsMode == TlsMode::Required;
    bool isOffered = false;
    if (!AskCapabilities(isOffered)) return false;
    if (!isOffered)
        return !isRequired ||
               Fail(FailureKind::Tls, "TLS is required, but " + connection.GetHost() + " does not offer it");
    if (!Ask("STLS")) return false;
    if (!reply.isPositive) {
        if (!isRequired) return true;
        FailByReply("STLS");
        failure.kind = FailureKind::Tls;
        return false;
    }
    if (!connection.StartTls(options.replyTimeout)) return FailByConnection();
    canPipeline = false;  // what was said without TLS can have been anybody's
    if (trace.IsOn())
        trace.Happened(connection.DescribeTls() + ", certificate " +
                       (connection.IsCertificateVerified() ? "verified: " : "not verified: ") +
                       connection.DescribeCertificate());
    return true;
}

CPop3Session::CPop3Session() : m_state(std::make_unique<CState>()) {}
CPop3Session::~CPop3Session() = default;

bool CPop3Session::Open(const Pop3Options& options) {
    Close();
    CState& s = *m_state;
    s.options = options;
    s.failure = {};
    s.timeStamp.clear();
    s.lastReply.clear();
    s.canPipeline = false;
    s.trace.Open(options.traceFile);
    if (!s.connection.Open(options.connect)) return s.FailByConnection();
    s.trace.Happened("connected to " + s.connection.GetHost() + ", " + s.connection.GetPeerAddress());
    const TlsMode mode = options.connect.tlsMode;
    const bool isOpen = s.ReadGreeting() && (mode == TlsMode::None || mode == TlsMode::Implicit || s.StartTls());
    if (!isOpen) s.connection.Close();
    return isOpen;
}

bool CPop3Session::IsOpen() const noexcept {
    return m_state->connection.IsOpen();
}
bool CPop3Session::HasApop() const noexcept {
    return !m_state->timeStamp.empty();
}

// ---- logging in

bool CPop3Session::CState::LoginByApop(std::string_view login, std::string_view password) {
    if (timeStamp.empty()) return Fail(FailureKind::Local, "POP3 server does not support APOP");
    if (login.find(' ') != std::string_view::npos) return Fail(FailureKind::Local, "APOP takes no login with blanks");
    const std::string digest = MakeApopDigest(timeStamp, password);
    if (digest.empty()) return Fail(FailureKind::Local, "This system does not allow MD5, which APOP needs");
    const std::string command = "APOP " + std::string(login) + ' ';
    return Demand(command + digest, "APOP [login] [digest]");
}

bool CPop3Session::CState::LoginByPassword(std::string_view login, std::string_view password) {
    return Demand("USER " + std::string(login), "USER [login]") &&
           Demand("PASS " + std::string(password), "PASS [password]");
}

bool CPop3Session::Login(Pop3Login method, std::string_view login, std::string_view password) {
    CState& s = *m_state;
    if (!s.Start()) return false;
    if (!IsPop3Argument(login) || !IsPop3Argument(password))
        return s.Fail(FailureKind::Local,
                      "Login and password must have 1 to 255 characters, and no control characters");
    return method == Pop3Login::Apop ? s.LoginByApop(login, password) : s.LoginByPassword(login, password);
}

// ---- messages

bool CPop3Session::GetStatus(std::uint32_t& count, std::uint64_t& octets) {
    CState& s = *m_state;
    if (!s.Start() || !s.Demand("STAT")) return false;
    return ParseMailboxStatus(s.reply.text, count, octets) ||
           s.FailByProtocol("has answered STAT with \"" + s.lastReply + '"');
}

bool CPop3Session::GetMessages(CPop3Listing& listing) {
    listing.Clear();
    return m_state->ReadListing("LIST", CPop3ListReader::Kind::Sizes, listing);
}

bool CPop3Session::GetUids(CPop3Listing& listing) {
    return m_state->ReadListing("UIDL", CPop3ListReader::Kind::Uids, listing);
}

bool CPop3Session::Retrieve(std::uint32_t number, std::uint64_t maxOctets, const Sink& sink) {
    return m_state->ReadMessage("RETR " + std::to_string(number), maxOctets, sink);
}

bool CPop3Session::RetrieveTop(std::uint32_t number, std::uint32_t lines, std::uint64_t maxOctets, const Sink& sink) {
    return m_state->ReadMessage("TOP " + std::to_string(number) + ' ' + std::to_string(lines), maxOctets, sink);
}

bool CPop3Session::Delete(std::uint32_t number) {
    return m_state->Start() && m_state->Demand("DELE " + std::to_string(number));
}

bool CPop3Session::DeleteAll(std::span<const std::uint32_t> numbers,
                             const std::function<void(std::size_t index, bool isDone)>& take, bool isOneByOne) {
    CState& s = *m_state;
    if (!s.Start()) return false;
    bool offersTls = false;
    const bool isWorthAsking =
        !isOneByOne && numbers.size() > CommandsTogether && s.options.connect.tlsMode != TlsMode::None;
    if (!s.canPipeline && isWorthAsking && !s.AskCapabilities(offersTls)) return false;
    const std::size_t together = s.canPipeline && !isOneByOne ? CommandsTogether : 1;
    for (std::size_t first = 0; first < numbers.size(); first += together) {
        const auto group = numbers.subspan(first, std::min(together, numbers.size() - first));
        std::string commands;
        for (const std::uint32_t number : group) {
            commands += "DELE " + std::to_string(number) + "\r\n";
            if (s.trace.IsOn()) s.trace.Sent("DELE " + std::to_string(number));
        }
        if (!s.Send(commands)) return false;
        for (std::size_t i = 0; i < group.size(); ++i) {
            if (!s.ReadReply(s.options.replyTimeout)) return false;
            if (!s.reply.isPositive) s.FailByReply("DELE " + std::to_string(group[i]));
            take(first + i, s.reply.isPositive);
        }
    }
    return true;
}

bool CPop3Session::Quit() {
    CState& s = *m_state;
    const bool isDone = s.Start() && s.Demand("QUIT");
    s.connection.Close();
    s.trace.Close();
    return isDone;
}

void CPop3Session::Close() noexcept {
    CState& s = *m_state;
    if (s.connection.IsOpen() && !s.connection.IsStale()) {
        // The reply is waited for a moment: with a connection that is closed
        // at once the server might lose the QUIT.
        const Failure before = s.failure;
        s.trace.Sent("QUIT");
        if (s.connection.Write("QUIT\r\n", GoodbyeTime)) s.ReadReply(GoodbyeTime);
        s.failure = before;
    }
    s.connection.Close();
    s.trace.Close();
}

std::string CPop3Session::GetLastReply() const {
    return m_state->lastReply;
}
const Failure& CPop3Session::GetFailure() const noexcept {
    return m_state->failure;
}
const CConnection& CPop3Session::GetConnection() const noexcept {
    return m_state->connection;
}
void CPop3Session::Cancel() noexcept {
    m_state->connection.Cancel();
}
void CPop3Session::EndBy(std::chrono::steady_clock::time_point lastMoment) noexcept {
    m_state->connection.EndBy(lastMoment);
}

}  // namespace Net
