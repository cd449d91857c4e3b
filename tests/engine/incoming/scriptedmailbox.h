// scriptedmailbox.h - a POP3 server for one test: a good one, but for what its
// turn says.  The destructor ends every conversation.

#ifndef LISTHAVEN_TESTS_ENGINE_INCOMING_SCRIPTEDMAILBOX_H
#define LISTHAVEN_TESTS_ENGINE_INCOMING_SCRIPTEDMAILBOX_H

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/smtpscript/peer.h"
#include "utility/text.h"

class CScriptedMailbox {
public:
    struct CMessage {
        std::string uid;
        std::string text;          // CR LF
        std::string size = {};     // as LIST says; "": the true one
        std::size_t repeated = 0;  // "text", once more and more
    };
    // The answer to a command ("" is the greeting) in place of the good one;
    // closes: the connection is closed behind it.
    struct CTurn {
        std::string answer;
        bool closes = false;
    };
    using Turn = std::function<std::optional<CTurn>(const std::string& command)>;

    CScriptedMailbox() : m_acceptor(m_waiter.io, {boost::asio::ip::address_v4::loopback(), 0}) {
        m_port = m_acceptor.local_endpoint().port();
        m_thread = std::thread([this] { Accept(); });
    }
    ~CScriptedMailbox() {
        m_waiter.Stop();
        {
            const std::lock_guard guard(m_lock);
            if (m_peer) m_peer->Stop();
        }
        m_thread.join();
    }

    std::uint16_t GetPort() const { return m_port; }
    void Set(std::vector<CMessage> messages, Turn turn = {}) {
        const std::lock_guard guard(m_lock);
        m_messages = std::move(messages);
        m_turn = std::move(turn);
    }
    void SetTurn(Turn turn) {
        const std::lock_guard guard(m_lock);
        m_turn = std::move(turn);
    }
    void TakeOneByOne() { m_isOneByOne = true; }  // what came behind a command is lost
    std::size_t Count() const {
        const std::lock_guard guard(m_lock);
        return m_messages.size();
    }

private:
    void Accept() {
        for (;;) {
            SmtpScript::CPeer peer;
            boost::asio::ip::tcp::socket socket(peer.GetContext());
            if (!m_waiter.Run([&](auto done) { m_acceptor.async_accept(socket, std::move(done)); })) return;
            peer.Take(std::move(socket));
            {
                const std::lock_guard guard(m_lock);
                m_peer = &peer;
            }
            Talk(peer);
            const std::lock_guard guard(m_lock);
            m_peer = nullptr;
            peer.Close();
        }
    }

    void Talk(SmtpScript::CPeer& peer) {
        std::set<std::size_t> deleted;
        std::string line;
        bool isBare = false;
        for (bool isGreeting = true; isGreeting || peer.ReadLine(line, isBare); isGreeting = false) {
            if (m_isOneByOne) peer.Forget();
            std::unique_lock guard(m_lock);
            const Turn turn = m_turn;
            guard.unlock();
            if (const auto own = turn ? turn(line) : std::nullopt) {
                if (!peer.Write(own->answer) || own->closes) return;
            } else if (!Answer(peer, line, deleted)) {
                return;
            }
        }
    }

    bool Answer(SmtpScript::CPeer& peer, const std::string& line, std::set<std::size_t>& deleted) {
        const std::lock_guard guard(m_lock);
        const std::string verb = line.substr(0, 4);
        const auto number = static_cast<std::size_t>(LeadingNumber(line.size() > 4 ? line.substr(4) : "0"));
        if (verb == "CAPA") return peer.Write("-ERR what?\r\n");
        if (verb == "LIST" || verb == "UIDL") {
            std::string answer = "+OK\r\n";
            for (std::size_t i = 0; i < m_messages.size(); ++i) {
                const CMessage& message = m_messages[i];
                const std::string size = std::to_string(message.text.size() * (message.repeated + 1));
                const std::string& said = verb == "UIDL" ? message.uid : message.size.empty() ? size : message.size;
                answer += std::to_string(i + 1) + " " + said + "\r\n";
            }
            return peer.Write(answer + ".\r\n");
        }
        if (verb == "RETR" || verb == "TOP ") return Send(peer, m_messages.at(number - 1), verb == "TOP ");
        if (verb == "DELE") deleted.insert(number - 1);
        if (verb == "QUIT") {
            for (auto at = deleted.rbegin(); at != deleted.rend(); ++at)
                m_messages.erase(m_messages.begin() + static_cast<std::ptrdiff_t>(*at));
        }
        return peer.Write("+OK\r\n") && verb != "QUIT";
    }

    static bool Send(SmtpScript::CPeer& peer, const CMessage& message, bool isTop) {
        if (isTop) return peer.Write("+OK\r\n" + message.text.substr(0, message.text.find("\r\n\r\n") + 4) + ".\r\n");
        constexpr std::size_t Together = 1000;
        std::string block;
        for (std::size_t i = 0; i < std::min(Together, message.repeated); ++i)
            block += message.text;
        bool isGood = peer.Write("+OK\r\n" + message.text);
        for (std::size_t i = 0; isGood && i < message.repeated; i += Together)
            isGood = peer.Write(block);
        return isGood && peer.Write(".\r\n");
    }

    SmtpScript::CWaiter m_waiter;
    boost::asio::ip::tcp::acceptor m_acceptor;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_isOneByOne = false;
    mutable std::mutex m_lock;
    SmtpScript::CPeer* m_peer = nullptr;
    std::vector<CMessage> m_messages;
    Turn m_turn;
    std::thread m_thread;
};

#endif  // LISTHAVEN_TESTS_ENGINE_INCOMING_SCRIPTEDMAILBOX_H
