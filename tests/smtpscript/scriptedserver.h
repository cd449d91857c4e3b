// scriptedserver.h - an SMTP server for one test: a good one, but for the
// turns of its script.
//
// Threads  All members from any.  The destructor ends every conversation at once.

#ifndef LISTHAVEN_TESTS_SMTPSCRIPT_SCRIPTEDSERVER_H
#define LISTHAVEN_TESTS_SMTPSCRIPT_SCRIPTEDSERVER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace SmtpScript {

enum class Step : std::uint8_t {
    Connect,
    Greeting,
    Ehlo,
    StartTls,
    Handshake,  // whatever is done: it fails
    Auth,       // once login and password have been sent
    Mail,
    Rcpt,
    Data,
    Body,  // after the first line of the message
    EndOfData,
    Rset,
    Quit,
};

enum class Does : std::uint8_t {
    Reply,  // the text of the turn; LF separates lines, which go out together
    ReplyAndClose,
    Close,
    Stall,     // neither reads nor says anything any more
    Late,      // the good reply, after 300 milliseconds
    Bytewise,  // the good reply, one byte at a time
    Endless,   // continuation lines
    HugeLine,  // 10 MB
    Refuse,    // Connect only: nobody listens until the next SetScript()
};

struct CTurn {
    Step at = Step::Greeting;
    Does does = Does::Reply;
    std::string reply = {};
    std::string onlyFor = {};  // what the command contains; "": any
    int times = 0;             // after so many it is a good server again; 0: always
};

struct CScript {
    std::vector<CTurn> turns;
    // With a certificate STARTTLS is among them, until it has been used.
    std::vector<std::string> capabilities = {"PIPELINING", "8BITMIME", "SIZE 20000000", "DSN", "ENHANCEDSTATUSCODES"};
    std::string certificateFile = {};  // PEM; "": no TLS
    std::string keyFile = {};
    bool isTlsImplicit = false;
};

struct CTakenMessage {
    std::string from;                     // what follows "MAIL FROM:"
    std::vector<std::string> recipients;  // what follows "RCPT TO:"
    std::string text;                     // without the dots of the transfer
};

class CScriptedServer {
public:
    explicit CScriptedServer(CScript script = {}, const std::string& address = "127.0.0.1");
    CScriptedServer(const CScriptedServer&) = delete;
    CScriptedServer& operator=(const CScriptedServer&) = delete;
    ~CScriptedServer();

    std::uint16_t GetPort() const noexcept;
    void SetScript(CScript script);  // for the connections to come

    // Those whose end of data was answered with 2xx.
    std::vector<CTakenMessage> GetMessages() const;
    std::size_t CountConnections() const;
    std::size_t CountBareLineEnds() const;  // CR or LF alone
    std::string GetTranscript() const;      // "C: ..." and "S: ..." lines, without the messages

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace SmtpScript

#endif  // LISTHAVEN_TESTS_SMTPSCRIPT_SCRIPTEDSERVER_H
