#include "tests/smtpscript/scriptedserver.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "tests/smtpscript/peer.h"

namespace SmtpScript {

namespace {

using boost::asio::ip::tcp;

constexpr std::size_t MostConnections = 100;
constexpr int MostCommands = 1000;
constexpr int MostBlocks = 5000;  // of endless lines
constexpr std::chrono::milliseconds Lateness{300};
constexpr std::chrono::seconds LongestStall{300};
constexpr std::size_t HugeLineSize = 10'000'000;

// What all connections of a server share.
struct CRecord {
    mutable std::mutex lock;
    std::shared_ptr<const CScript> script;
    std::map<const CTurn*, int> used;
    std::vector<CTakenMessage> messages;
    std::string transcript;
    std::size_t bareLineEnds = 0;

    void Note(std::string_view side, std::string_view line) {
        const std::lock_guard guard(lock);
        transcript.append(side).append(line).append("\n");
    }
};

std::string MakeLines(std::string_view text) {
    std::string lines;
    for (const char c : text)
        lines += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return lines + "\r\n";
}

class CSession {
public:
    CSession(CPeer& peer, CRecord& record) : m_peer(peer), m_record(record) {
        const std::lock_guard guard(record.lock);
        m_script = record.script;
    }
    void Run();

private:
    const CTurn* FindTurn(Step step, std::string_view command);
    bool Take(Step step, std::string_view command, std::string_view goodReply);
    bool Say(std::string_view reply, bool bytewise = false);
    bool SayEndlessly();
    bool ReadLine(std::string& line);
    bool Answer(const std::string& line);
    bool Encrypt();
    bool ReadLogin(const std::string& line);
    bool ReadBody();
    std::string ListCapabilities() const;
    bool WasGood() const { return m_code == '2'; }

    CPeer& m_peer;
    CRecord& m_record;
    std::shared_ptr<const CScript> m_script;
    char m_code = 0;         // first digit of the reply said last; 0 when it was none
    bool m_isAtEnd = false;  // of the data: 2xx takes the message
    CTakenMessage m_message;
};

const CTurn* CSession::FindTurn(Step step, std::string_view command) {
    const std::lock_guard guard(m_record.lock);
    for (const CTurn& turn : m_script->turns) {
        if (turn.at != step || command.find(turn.onlyFor) == std::string_view::npos) continue;
        if (turn.times != 0 && m_record.used[&turn]++ >= turn.times) continue;
        return &turn;
    }
    return nullptr;
}

// A message counts before the client can know that it does.
bool CSession::Say(std::string_view reply, bool bytewise) {
    m_code = reply.empty() ? '\0' : reply.front();
    m_record.Note("S: ", reply.substr(0, 200));
    if (m_isAtEnd && WasGood()) {
        const std::lock_guard guard(m_record.lock);
        m_record.messages.push_back(m_message);
    }
    const std::string lines = MakeLines(reply);
    const std::size_t step = bytewise ? 1 : lines.size();
    for (std::size_t at = 0; at < lines.size(); at += step) {
        if (!m_peer.Write(std::string_view(lines).substr(at, step))) return false;
    }
    return true;
}

bool CSession::SayEndlessly() {
    std::string block;
    for (int i = 0; i < 500; ++i)
        block += "250-and more\r\n";
    for (int i = 0; i < MostBlocks; ++i) {
        if (!m_peer.Write(block)) return false;
    }
    return false;
}

// False: the conversation is over.
bool CSession::Take(Step step, std::string_view command, std::string_view goodReply) {
    m_code = 0;
    const CTurn* turn = FindTurn(step, command);
    if (turn == nullptr) return goodReply.empty() || Say(goodReply);
    switch (turn->does) {
        case Does::Reply:
            return Say(turn->reply);
        case Does::ReplyAndClose:
            if (Say(turn->reply)) m_peer.Drain();
            return false;
        case Does::Stall:
            m_peer.Wait(LongestStall);
            return false;
        case Does::Late:
            m_peer.Wait(Lateness);
            return Say(goodReply);
        case Does::Bytewise:
            return Say(goodReply, true);
        case Does::Endless:
            return SayEndlessly();
        case Does::HugeLine:
            return Say("250-" + std::string(HugeLineSize, 'x') + "\n250 end");
        case Does::Close:
        case Does::Refuse:
            break;
    }
    return false;
}

bool CSession::ReadLine(std::string& line) {
    bool isBare = false;
    if (!m_peer.ReadLine(line, isBare)) return false;
    const std::lock_guard guard(m_record.lock);
    m_record.bareLineEnds += isBare ? 1U : 0U;
    return true;
}

std::string CSession::ListCapabilities() const {
    std::string reply = "scripted.example";
    std::vector<std::string> all = m_script->capabilities;
    if (!m_script->certificateFile.empty() && !m_peer.IsEncrypted()) all.emplace_back("STARTTLS");
    for (const std::string& capability : all)
        reply += "\n" + capability;
    std::string lines;
    for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = reply.find('\n', begin);
        lines += (end == std::string::npos ? "250 " : "250-") + reply.substr(begin, end - begin);
        if (end != std::string::npos) lines += '\n';
    }
    return lines;
}

bool CSession::Encrypt() {
    if (FindTurn(Step::Handshake, "") != nullptr) {
        m_peer.Drain();
        return false;
    }
    boost::asio::ssl::context context(boost::asio::ssl::context::tls_server);
    context.use_certificate_chain_file(m_script->certificateFile);
    context.use_private_key_file(m_script->keyFile, boost::asio::ssl::context::pem);
    const bool isGood = m_peer.Handshake(context);
    m_record.Note("S: ", isGood ? "(encrypted)" : "(no handshake)");
    return isGood;
}

bool CSession::ReadLogin(const std::string& line) {
    std::string answer;
    for (const char* question : {"334 VXNlcm5hbWU6", "334 UGFzc3dvcmQ6"}) {
        if (!Say(question) || !ReadLine(answer)) return false;
        m_record.Note("C: ", answer);
    }
    return Take(Step::Auth, line, "235 2.7.0 welcome");
}

bool CSession::ReadBody() {
    std::string line;
    for (bool isFirst = true; ReadLine(line); isFirst = false) {
        if (line == ".") {
            m_isAtEnd = true;
            const bool goesOn = Take(Step::EndOfData, "", "250 2.0.0 taken");
            m_isAtEnd = false;
            m_message = {};
            return goesOn;
        }
        m_message.text.append(line, line.starts_with('.') ? 1 : 0).append("\r\n");
        if (isFirst && !Take(Step::Body, "", "")) return false;
    }
    return false;
}

bool CSession::Answer(const std::string& line) {
    m_record.Note("C: ", line);
    std::string verb = line.substr(0, 4);
    std::transform(verb.begin(), verb.end(), verb.begin(), [](char c) { return c >= 'a' ? char(c - 32) : c; });
    if (verb == "EHLO") return Take(Step::Ehlo, line, ListCapabilities());
    if (verb == "HELO" || verb == "NOOP") return Say("250 scripted.example");
    if (verb == "STAR") return Take(Step::StartTls, line, "220 2.0.0 go ahead") && (!WasGood() || Encrypt());
    if (verb == "AUTH") return ReadLogin(line);
    if (verb == "MAIL") {
        if (!m_message.from.empty()) return Say("503 5.5.1 nested MAIL");
        const bool goesOn = Take(Step::Mail, line, "250 2.1.0 sender ok");
        if (WasGood()) m_message.from = line.substr(std::min<std::size_t>(line.size(), 10));
        return goesOn;
    }
    if (verb == "RCPT") {
        if (m_message.from.empty()) return Say("503 5.5.1 MAIL first");
        const bool goesOn = Take(Step::Rcpt, line, "250 2.1.5 recipient ok");
        if (WasGood()) m_message.recipients.push_back(line.substr(std::min<std::size_t>(line.size(), 8)));
        return goesOn;
    }
    if (verb == "DATA") {
        if (m_message.recipients.empty()) return Say("554 5.5.1 no valid recipients");
        return Take(Step::Data, line, "354 go on") && (m_code != '3' || ReadBody());
    }
    m_message = {};
    if (verb == "RSET") return Take(Step::Rset, line, "250 2.0.0 reset");
    if (verb == "QUIT") return Take(Step::Quit, line, "221 2.0.0 bye") && false;
    return Say("500 5.5.2 what?");
}

void CSession::Run() {
    if (!Take(Step::Connect, "", "")) return;
    if (m_script->isTlsImplicit && !Encrypt()) return;
    if (!Take(Step::Greeting, "", "220 scripted.example ESMTP")) return;
    std::string line;
    for (int i = 0; i < MostCommands && ReadLine(line); ++i) {
        if (!Answer(line)) return;
    }
}

}  // namespace

struct CScriptedServer::CState {
    struct CConnection {
        CPeer peer;
        std::thread thread;
    };

    CState() : acceptor(waiter.io) {}

    CWaiter waiter;
    tcp::acceptor acceptor;
    std::uint16_t port = 0;
    CRecord record;
    std::vector<std::unique_ptr<CConnection>> connections;  // under the record's lock
    std::thread thread;

    void Listen() {
        acceptor.listen();
        thread = std::thread([this] { Accept(); });
    }
    void Accept() {
        while (!waiter.IsStopping()) {
            auto connection = std::make_unique<CConnection>();
            CConnection& it = *connection;
            tcp::socket socket(it.peer.GetContext());
            if (!waiter.Run([&](auto done) { acceptor.async_accept(socket, std::move(done)); })) return;
            it.peer.Take(std::move(socket));
            const std::lock_guard guard(record.lock);
            if (connections.size() >= MostConnections) return;
            connections.push_back(std::move(connection));
            it.thread = std::thread([this, &it] {
                CSession(it.peer, record).Run();
                it.peer.Close();
            });
        }
    }
};

CScriptedServer::CScriptedServer(CScript script, const std::string& address) : m_state(std::make_unique<CState>()) {
    const tcp::endpoint endpoint(boost::asio::ip::make_address(address), 0);
    m_state->acceptor.open(endpoint.protocol());
    m_state->acceptor.bind(endpoint);
    m_state->port = m_state->acceptor.local_endpoint().port();
    SetScript(std::move(script));
}

CScriptedServer::~CScriptedServer() {
    m_state->waiter.Stop();
    if (m_state->thread.joinable()) m_state->thread.join();
    for (const auto& connection : m_state->connections)
        connection->peer.Stop();
    for (const auto& connection : m_state->connections)
        connection->thread.join();
}

std::uint16_t CScriptedServer::GetPort() const noexcept {
    return m_state->port;
}

void CScriptedServer::SetScript(CScript script) {
    const bool refuses = std::any_of(script.turns.begin(), script.turns.end(),
                                     [](const CTurn& turn) { return turn.does == Does::Refuse; });
    {
        const std::lock_guard guard(m_state->record.lock);
        m_state->record.used.clear();
        m_state->record.script = std::make_shared<const CScript>(std::move(script));
    }
    if (!refuses && !m_state->thread.joinable()) m_state->Listen();
}

std::vector<CTakenMessage> CScriptedServer::GetMessages() const {
    const std::lock_guard guard(m_state->record.lock);
    return m_state->record.messages;
}

std::size_t CScriptedServer::CountConnections() const {
    const std::lock_guard guard(m_state->record.lock);
    return m_state->connections.size();
}

std::size_t CScriptedServer::CountBareLineEnds() const {
    const std::lock_guard guard(m_state->record.lock);
    return m_state->record.bareLineEnds;
}

std::string CScriptedServer::GetTranscript() const {
    const std::lock_guard guard(m_state->record.lock);
    return m_state->record.transcript;
}

}  // namespace SmtpScript
