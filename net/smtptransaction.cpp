// smtptransaction.cpp - one message through an open session.

#include <algorithm>
#include <vector>

#include "net/smtpsessionstate.h"
#include "platform/file.h"
#include "platform/systemerror.h"
#include "utility/text.h"

namespace Net {
namespace {

constexpr std::size_t BlockSize = 64 * 1024;
constexpr std::size_t MaxPipelined = 100;  // commands in one write

}  // namespace

class CSmtpSession::CTransaction {
public:
    CTransaction(CState& state, const SmtpMessage& message, SmtpSendResult& result)
        : s(state), m_message(message), m_result(result) {}
    bool Run();

private:
    enum class Next { GoOn, Over };  // Over: the result stands

    // What is known without the server; settles recipients that cannot be served.
    bool CheckMessage();
    void CheckRecipients(bool messageNeedsUtf8);
    bool ReadBlock();
    bool FailByFile();

    // The conversation, step by step: RSET, MAIL, RCPT for each, DATA.
    void PlanSteps();
    Next SayEnvelope();
    Next SayGroup(std::size_t first, std::size_t last);
    Next OnReply(std::size_t step);
    Next OnReset();
    Next OnMail();
    Next OnRecipient(SmtpRecipientResult& recipient);
    Next OnData();
    Next AbandonData();
    bool SendData();
    bool FailEarly();
    bool Conclude();

    void Settle(SmtpRecipientResult& recipient, RecipientState state, const SmtpReply& reply);
    void SettleOpen(RecipientState state, int code, std::string_view enhanced, const std::string& text);
    bool Refuse(std::string_view enhanced, std::string text);  // all of them; the server was not asked
    Next Lose();                                               // the connection; the failure is set
    Next Leave();                                              // after 421
    void CloseAsDead();

    struct CStep {
        enum class Kind : std::uint8_t { Reset, Mail, Recipient, Data } kind;
        std::size_t recipient;
        std::size_t end;  // of its line in the commands
    };

    CState& s;
    const SmtpMessage& m_message;
    SmtpSendResult& m_result;
    Platform::CFile m_file;
    std::uint64_t m_offset = 0;
    bool m_isFileAtEnd = false;
    bool m_isUtf8 = false;
    std::vector<CStep> m_steps;
    std::vector<bool> m_isSettled;
    std::size_t m_accepted = 0;
    bool m_hasReply = false;  // to MAIL
    bool m_isMailAccepted = false;
    bool m_isRefusedOnly = true;  // no RCPT was answered with 2xx
    SmtpReply m_full;             // that the server takes no more recipients; code 0 while it does
    bool m_isTakingData = false;
};

// ---- results

void CSmtpSession::CTransaction::Settle(SmtpRecipientResult& recipient, RecipientState state, const SmtpReply& reply) {
    recipient.state = state;
    recipient.code = reply.code;
    recipient.enhanced = reply.enhanced;
    recipient.text = reply.text;
    m_isSettled[static_cast<std::size_t>(&recipient - m_result.recipients.data())] = true;
}

void CSmtpSession::CTransaction::SettleOpen(RecipientState state, int code, std::string_view enhanced,
                                            const std::string& text) {
    for (std::size_t i = 0; i < m_isSettled.size(); ++i) {
        if (m_isSettled[i]) continue;
        SmtpRecipientResult& recipient = m_result.recipients[i];
        recipient.state = state;
        recipient.code = code;
        recipient.enhanced = enhanced;
        recipient.text = text;
        m_isSettled[i] = true;
    }
}

bool CSmtpSession::CTransaction::Refuse(std::string_view enhanced, std::string text) {
    SettleOpen(RecipientState::Refused, 0, enhanced, text);
    return s.Fail(FailureKind::Local, std::move(text));
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::Lose() {
    const bool isLost = s.failure.kind == FailureKind::Closed || s.failure.kind == FailureKind::TimedOut ||
                        s.failure.kind == FailureKind::Tls;
    SettleOpen(RecipientState::Deferred, 0, "4.4.2", s.failure.text);
    m_result.isSessionDead = isLost && s.isReused && !m_hasReply;
    m_result.isHostUnavailable = isLost && !m_result.isSessionDead;
    return Next::Over;
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::Leave() {
    SettleOpen(RecipientState::Deferred, s.Reply().code, s.Reply().enhanced, s.Reply().text);
    s.FailByReply();
    s.connection.Close();
    m_result.isHostUnavailable = true;
    return Next::Over;
}

void CSmtpSession::CTransaction::CloseAsDead() {
    SettleOpen(RecipientState::Deferred, s.Reply().code, s.Reply().enhanced, s.Reply().text);
    s.FailByReply();
    s.connection.Close();
    m_result.isSessionDead = true;
}

// ---- before anything is said

bool CSmtpSession::CTransaction::ReadBlock() {
    std::size_t got = 0;
    s.block.resize(BlockSize);
    const bool isWhole = m_file.ReadAt(m_offset, s.block.data(), BlockSize, &got);
    if (!isWhole && Platform::LastSystemError() != 0) return false;
    s.block.resize(got);
    m_offset += got;
    m_isFileAtEnd = !isWhole;
    return true;
}

bool CSmtpSession::CTransaction::FailByFile() {
    s.Fail(FailureKind::Local,
           "Cannot read " + m_message.file + ": " + Platform::SystemErrorText(Platform::LastSystemError()));
    SettleOpen(RecipientState::Deferred, 0, "4.3.0", s.failure.text);
    return false;
}

void CSmtpSession::CTransaction::CheckRecipients(bool messageNeedsUtf8) {
    m_isUtf8 = messageNeedsUtf8;
    for (std::size_t i = 0; i < m_isSettled.size(); ++i) {
        SmtpRecipientResult& recipient = m_result.recipients[i];
        const AddressSyntax syntax = CheckAddress(recipient.address);
        const bool isUnfit = syntax == AddressSyntax::NeedsSmtpUtf8 && !s.capabilities.hasSmtpUtf8;
        if (syntax == AddressSyntax::NeedsSmtpUtf8 && !isUnfit) m_isUtf8 = true;
        if (syntax != AddressSyntax::Bad && !isUnfit) continue;
        recipient.state = RecipientState::Refused;
        recipient.enhanced = isUnfit ? "5.6.7" : "5.1.3";
        recipient.text = isUnfit ? "The address is not ASCII, and the server does not take such addresses (SMTPUTF8)"
                                 : "This is not an address that can be sent to";
        m_isSettled[i] = true;
    }
}

bool CSmtpSession::CTransaction::CheckMessage() {
    const SmtpCapabilities& has = s.capabilities;
    if (!s.connection.IsOpen()) {
        s.Fail(FailureKind::Closed, "The session is closed");
        SettleOpen(RecipientState::Deferred, 0, "4.4.2", s.failure.text);
        return false;
    }
    if (has.hasSize && has.sizeLimit > 0 && m_message.size > has.sizeLimit)
        return Refuse("5.3.4", "The message has " + std::to_string(m_message.size) + " octets, and " +
                                   s.connection.GetHost() + " takes at most " + std::to_string(has.sizeLimit));
    const AddressSyntax sender =
        m_message.envelopeSender.empty() ? AddressSyntax::Good : CheckAddress(m_message.envelopeSender);
    if (sender == AddressSyntax::Bad) return Refuse("5.1.7", "The envelope sender is not an address");
    const bool needsUtf8 = m_message.needsSmtpUtf8 || sender == AddressSyntax::NeedsSmtpUtf8;
    if (needsUtf8 && !has.hasSmtpUtf8)
        return Refuse("5.6.7", "The message has addresses that are not ASCII, and " + s.connection.GetHost() +
                                   " does not take such messages (SMTPUTF8)");
    CheckRecipients(needsUtf8);
    const auto open = std::find(m_isSettled.begin(), m_isSettled.end(), false);
    if (open != m_isSettled.end()) return true;
    return s.Fail(FailureKind::Local,
                  m_isSettled.empty() ? "The message has no recipient" : m_result.recipients.front().text);
}

// ---- the envelope

void CSmtpSession::CTransaction::PlanSteps() {
    s.commands.clear();
    const auto add = [this](CStep::Kind kind, std::size_t recipient = 0) {
        m_steps.push_back({kind, recipient, s.commands.size()});
    };
    if (s.isResetDue) {
        s.commands += "RSET\r\n";
        add(CStep::Kind::Reset);
    }
    MailParameters parameters;
    if (s.capabilities.hasSize) parameters.size = m_message.size;
    parameters.is8Bit = m_message.is8Bit && s.capabilities.has8BitMime;
    parameters.isSmtpUtf8 = m_isUtf8;
    AppendMailFrom(s.commands, m_message.envelopeSender, parameters);
    add(CStep::Kind::Mail);
    for (std::size_t i = 0; i < m_isSettled.size(); ++i) {
        if (m_isSettled[i]) continue;
        AppendRecipient(s.commands, m_result.recipients[i].address, s.neverNotify && s.capabilities.hasDsn);
        add(CStep::Kind::Recipient, i);
    }
    s.commands += "DATA\r\n";
    add(CStep::Kind::Data);
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::SayEnvelope() {
    PlanSteps();
    const std::size_t most = s.capabilities.hasPipelining ? MaxPipelined : 1;
    for (std::size_t first = 0; first < m_steps.size();) {
        const std::size_t last = std::min(m_steps.size(), first + most);
        if (SayGroup(first, last) == Next::Over) return Next::Over;
        if (m_isTakingData) return Next::GoOn;
        const std::size_t data = m_steps.size() - 1;
        first = last;
        for (; m_full.code != 0 && first < data; ++first)
            Settle(m_result.recipients[m_steps[first].recipient], RecipientState::Deferred, m_full);
        if (!m_isMailAccepted && first > 0 && m_steps[first - 1].kind != CStep::Kind::Reset) return Next::Over;
        if (first == data && m_accepted == 0) return Next::Over;
    }
    return Next::Over;
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::SayGroup(std::size_t first, std::size_t last) {
    const std::size_t begin = first > 0 ? m_steps[first - 1].end : 0;
    const std::string_view lines = std::string_view(s.commands).substr(begin, m_steps[last - 1].end - begin);
    s.lastCode = 0;
    s.lastReply.clear();
    s.lastCommand = TrimRight(lines.substr(0, m_steps[first].end - begin));
    if (!s.Write(lines, lines) && !s.connection.HasUnreadInput()) return Lose();
    for (std::size_t step = first; step < last; ++step) {
        if (!s.ReadReply(s.options.replyTimeout)) return Lose();
        if (OnReply(step) == Next::Over) return Next::Over;
    }
    return Next::GoOn;
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::OnReply(std::size_t step) {
    const CStep& said = m_steps[step];
    const std::size_t begin = step > 0 ? m_steps[step - 1].end : 0;
    // What follows from a refusal says less than the refusal.
    const bool isConsequence = said.kind != CStep::Kind::Reset && said.kind != CStep::Kind::Mail &&
                               (!m_isMailAccepted || (said.kind == CStep::Kind::Data && m_accepted == 0));
    if (!isConsequence || s.Reply().code == 421) s.Note(std::string_view(s.commands).substr(begin, said.end - begin));
    switch (said.kind) {
        case CStep::Kind::Reset:
            return OnReset();
        case CStep::Kind::Mail:
            return OnMail();
        case CStep::Kind::Recipient:
            return OnRecipient(m_result.recipients[said.recipient]);
        case CStep::Kind::Data:
            return OnData();
    }
    return Next::Over;
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::OnReset() {
    s.isResetDue = false;
    if (s.IsPositive()) return Next::GoOn;
    CloseAsDead();  // who knows what state it is in, with more commands on their way
    return Next::Over;
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::OnMail() {
    const int code = s.Reply().code;
    if (code == 421 && !s.isReused) return Leave();
    if (code == 421) {
        CloseAsDead();  // many servers end a session this way that has had its share
        return Next::Over;
    }
    if (code / 100 == 3) {
        s.FailByProtocol("answers MAIL with " + std::to_string(code));
        return Lose();
    }
    m_hasReply = true;
    m_isMailAccepted = s.IsPositive();
    s.isResetDue = true;  // until the message is through
    if (m_isMailAccepted) return Next::GoOn;
    s.FailByReply();
    SettleOpen(code >= 500 ? RecipientState::Refused : RecipientState::Deferred, code, s.Reply().enhanced,
               s.Reply().text);
    return Next::GoOn;
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::OnRecipient(SmtpRecipientResult& recipient) {
    const SmtpReply& reply = s.Reply();
    if (reply.code == 421) return Leave();
    if (s.IsPositive()) m_isRefusedOnly = false;
    if (!m_isMailAccepted) return Next::GoOn;
    if (s.IsPositive()) {
        ++m_accepted;
        return Next::GoOn;
    }
    if (reply.code / 100 == 3) {
        s.FailByProtocol("answers RCPT with " + std::to_string(reply.code));
        return Lose();
    }
    // RFC 5321, 4.5.3.1.10: 452, and formerly 552, for too many of them.
    const bool isTooMany =
        (reply.code == 452 || reply.code == 552) &&
        (reply.enhanced.ends_with(".5.3") || (m_accepted > 0 && reply.code == 452 && reply.enhanced.empty()));
    if (isTooMany) m_full = reply;
    Settle(recipient, reply.code >= 500 && !isTooMany ? RecipientState::Refused : RecipientState::Deferred, reply);
    s.FailByReply();
    return Next::GoOn;
}

CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::OnData() {
    const SmtpReply& reply = s.Reply();
    if (reply.code == 421) return Leave();
    if (reply.code == 354) {
        if (m_accepted == 0) return AbandonData();
        m_isTakingData = true;
        return Next::GoOn;
    }
    if (reply.code < 400) {
        s.FailByProtocol("answers DATA with " + std::to_string(reply.code));
        return Lose();
    }
    if (m_accepted == 0) return Next::GoOn;
    s.FailByReply();
    return Next::Over;  // Conclude() settles those that were accepted
}

// RFC 2920, 3.1: a server that has accepted nobody may want the data all the
// same, and gets none.
CSmtpSession::CTransaction::Next CSmtpSession::CTransaction::AbandonData() {
    if (!m_isRefusedOnly) {  // of a message that it has refused: it must not get an empty one
        s.connection.Close();
        return Next::Over;
    }
    const Failure reason = s.failure;
    if (s.Write(".\r\n", ".")) s.ReadReply(s.options.replyTimeout);
    s.failure = reason;
    return Next::Over;
}

// ---- the data

// Something came in, or the connection ended, before all was written.
bool CSmtpSession::CTransaction::FailEarly() {
    if (!s.ReadReply(s.options.replyTimeout)) {
        Lose();
        return false;
    }
    s.Note("DATA");
    const SmtpReply& reply = s.Reply();
    if (reply.code < 400) {
        s.FailByProtocol("has answered the data before it had all of it");
        Lose();
        return false;
    }
    if (reply.code == 421) {
        Leave();
        return false;
    }
    s.FailByReply();
    SettleOpen(reply.code >= 500 ? RecipientState::Refused : RecipientState::Deferred, reply.code, reply.enhanced,
               reply.text);
    s.connection.Close();
    return false;
}

bool CSmtpSession::CTransaction::SendData() {
    CSmtpDataEncoder encoder;
    std::uint64_t total = 0;
    s.lastCommand = "DATA";
    s.lastCode = 0;
    s.lastReply.clear();
    if (s.connection.HasUnreadInput()) return FailEarly();
    for (;;) {
        s.wire.clear();
        encoder.Add(s.block, s.wire);
        if (m_isFileAtEnd) encoder.Finish(s.wire);
        total += s.wire.size();
        bool hasInput = false;
        s.isAnswerDue = m_isFileAtEnd;  // before the server can have it all
        if (!s.connection.WriteUnlessInput(s.wire, s.options.replyTimeout, hasInput)) {
            s.isAnswerDue = false;
            if (hasInput || s.connection.HasUnreadInput()) return FailEarly();
            s.FailByConnection();
            Lose();
            return false;
        }
        if (m_isFileAtEnd) break;
        if (!ReadBlock()) {
            s.connection.Close();  // else the server would take a part for the whole
            return FailByFile();
        }
        if (s.connection.IsStale()) return FailEarly();
    }
    if (s.trace.IsOn()) s.trace.Sent("[" + std::to_string(total) + " octets]");
    return Conclude();
}

bool CSmtpSession::CTransaction::Conclude() {
    const bool isAnswered = s.ReadReply(s.options.dataTimeout);
    s.isAnswerDue = false;
    if (!isAnswered) {
        m_result.mayBeTaken = true;
        s.failure.text += "; the message had gone out whole, the server may have it";
        Lose();
        return false;
    }
    s.Note("DATA");
    const SmtpReply& reply = s.Reply();
    if (reply.code / 100 == 3) {
        m_result.mayBeTaken = true;
        s.FailByProtocol("answers the end of the data with " + std::to_string(reply.code) +
                         "; the server may have the message");
        Lose();
        return false;
    }
    if (reply.code == 421) {
        Leave();
        return false;
    }
    m_result.isTaken = s.IsPositive();
    if (m_result.isTaken) s.isResetDue = false;
    SettleOpen(m_result.isTaken   ? RecipientState::Accepted
               : reply.code < 500 ? RecipientState::Deferred
                                  : RecipientState::Refused,
               reply.code, reply.enhanced, reply.text);
    if (!m_result.isTaken) return s.FailByReply();
    s.failure = {};
    return true;
}

bool CSmtpSession::CTransaction::Run() {
    m_isSettled.assign(m_message.recipients.size(), false);
    m_result.recipients.resize(m_message.recipients.size());
    for (std::size_t i = 0; i < m_message.recipients.size(); ++i)
        m_result.recipients[i].address = m_message.recipients[i];
    if (!CheckMessage()) return false;
    if (!m_file.Open(m_message.file, Platform::FileMode::Read) || !ReadBlock()) return FailByFile();
    SayEnvelope();
    s.isReused = true;
    if (m_isTakingData) return SendData();
    // Nobody is left but those whose RCPT the server took, or was not asked.
    const SmtpReply& reply = s.Reply();
    SettleOpen(reply.code >= 500 ? RecipientState::Refused : RecipientState::Deferred, reply.code, reply.enhanced,
               reply.text);
    return false;
}

bool CSmtpSession::Send(const SmtpMessage& message, SmtpSendResult& result) {
    m_state->failure = {};
    result = {};
    return CTransaction(*m_state, message, result).Run();
}

}  // namespace Net
