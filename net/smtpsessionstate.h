// smtpsessionstate.h - the inside of CSmtpSession, shared by the files that
// implement it.

#ifndef LISTHAVEN_NET_SMTPSESSIONSTATE_H
#define LISTHAVEN_NET_SMTPSESSIONSTATE_H

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

#include "net/protocoltrace.h"
#include "net/smtpdata.h"
#include "net/smtpsession.h"

namespace Net {

struct CSmtpSession::CState {
    using Milliseconds = std::chrono::milliseconds;

    CConnection connection;
    SmtpOptions options;
    SmtpCapabilities capabilities;
    CProtocolTrace trace;
    Failure failure;
    CSmtpReplyParser parser;
    std::string heloName;
    int lastCode = 0;
    std::string lastReply;
    std::string lastCommand;
    bool neverNotify = false;
    bool isResetDue = false;  // RSET goes in front of the next MAIL
    bool isReused = false;    // a message was tried on this connection
    std::atomic<bool> isAnswerDue = false;

    std::string line;  // these keep their memory from message to message
    std::string commands;
    std::string block;
    std::string wire;

    const SmtpReply& Reply() const noexcept { return parser.GetReply(); }
    bool IsPositive() const noexcept { return Reply().code / 100 == 2; }

    // All false.  Whatever the kind, the caller decides whether to close.
    bool Fail(FailureKind kind, std::string text);
    bool FailByReply();       // the last one, to the last command
    bool FailByConnection();  // closed
    bool FailByProtocol(std::string_view what);

    bool Write(std::string_view bytes, std::string_view forTrace);
    // The limit is for all lines together.
    bool ReadReply(Milliseconds limit, bool keepLines = false);
    void Note(std::string_view command);  // the last command, and the reply just read as its reply
    // One command and its reply.  shown is what may be known of it.
    bool Ask(std::string_view command, std::string_view shown = {}, bool keepLines = false);

    bool OpenOnce(TlsMode mode, bool& isTlsBroken);
    bool ReadGreeting();
    bool SayHello();
    bool StartTls(bool& isTlsBroken);
};

}  // namespace Net

#endif  // LISTHAVEN_NET_SMTPSESSIONSTATE_H
