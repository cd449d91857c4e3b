#include "senddaemon/smtpclient.h"

#include <chrono>
#include <vector>

#include "app/datafolder.h"
#include "platform/file.h"
#include "senddaemon/cleanedcopy.h"
#include "senddaemon/configuration.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/messagefile.h"
#include "senddaemon/messageinfo.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::int64_t AnswerPatience = 5000;  // milliseconds

std::int64_t SteadyMilliseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void LogTrace(std::string_view text) {
    Log(LogLevelTrace, text);
}

RecipientOutcome OutcomeOf(Net::RecipientState state) {
    switch (state) {
        case Net::RecipientState::Accepted:
            return RecipientOutcome::Accepted;
        case Net::RecipientState::Refused:
            return RecipientOutcome::Refused;
        default:
            return RecipientOutcome::Deferred;
    }
}

// What the operator looks at after a complaint: the message as it was queued,
// and beside it as it went out.
void KeepTraceCopies(const std::string& messageFile, const std::string& cleaned) {
    std::string copy;
    if (CopyMessageToFolder(messageFile, JoinPath(GetLogFolder(), "Sent"), {}, copy) &&
        CopyWholeFile(cleaned, copy + ".clean")) {
        return;
    }
    LogFormat(LogLevelFailure, "Error while keeping a copy of \"%s\": %s", messageFile.c_str(),
              DescribeLastError().c_str());
}

// Gone at the end of the scope, whatever happened.
class CTemporaryFile {
public:
    explicit CTemporaryFile(std::string path) : m_path(std::move(path)) {}
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;
    ~CTemporaryFile() { Platform::RemoveFile(m_path); }
    const std::string& GetPath() const noexcept { return m_path; }

private:
    std::string m_path;
};

}  // namespace

struct CSmtpClient::CJob {
    Net::SmtpMessage envelope;
    std::string messageFile;
    const Settled* settled = nullptr;
};

CSmtpClient::CSmtpClient() = default;

CSmtpClient::~CSmtpClient() {
    if (m_session.IsOpen()) Disconnect();
}

void CSmtpClient::Cancel() noexcept {
    m_isCancelled = true;
    const std::int64_t now = SteadyMilliseconds();
    if (m_patienceEnd == 0) m_patienceEnd = now + AnswerPatience;
    if (m_session.IsAnswerDue() && now < m_patienceEnd) return;
    m_session.Cancel();
    m_pop.Cancel();
}

void CSmtpClient::Disconnect() {
    LogTrace("Disconnecting");
    LogTrace("Disconnect ()");
    m_session.Close();
}

bool CSmtpClient::Reset() {
    LogTrace("Reset ()");
    return m_session.IsOpen() && m_session.Reset();
}

bool CSmtpClient::Connect(const CConfiguration& config) {
    return m_settings.Read(config) && Connect();
}

bool CSmtpClient::Connect() {
    LogTrace("Connecting...");
    if (m_settings.isTraced) {
        LogTrace("EnableTrace");
        LogTrace("EnableTrace ()");
    }
    m_sentOnSession = 0;
    m_closeAfterMessage = false;
    m_connectCode = 0;
    LogFormat(LogLevelNotice, "Connecting to %s", m_settings.hostName.c_str());
    if (!m_settings.popHostName.empty()) AuthenticateByPop();
    if (!OpenSession() || !Authenticate()) {
        LogFormat(LogLevelFailure, "Error while connecting: %s", DescribeLastError().c_str());
        m_session.Close();
        return false;
    }
    LogTrace("Successfully connected to the SMTP server");
    if (m_settings.turnOffNotifications) {
        LogTrace("GetExtendedOptions");
        LogTrace("GetExtendedOptions ()");
        constexpr std::uint32_t HasNotifications = 0x4;
        const bool hasThem = (m_session.GetExtendedOptions() & HasNotifications) != 0;
        if (hasThem) LogTrace("Asking the SMTP server to never send delivery status notifications.");
        m_session.NeverNotify(hasThem);
    }
    return true;
}

void CSmtpClient::AuthenticateByPop() {
    LogTrace("Connecting to POP3 server to authenticate.");
    if (m_pop.Authenticate(m_settings)) {
        LogTrace("Connection to POP3 server successful.");
        return;
    }
    LogFormat(LogLevelFailure, "POP3 authentication failed: %s", DescribeLastError().c_str());
}

bool CSmtpClient::OpenSession() {
    LogTrace("Connect()");
    m_session.Close();
    if (m_isCancelled) {
        SetLastErrorText("User cancel");
        return false;
    }
    const bool isOpen = m_session.Open(m_settings.MakeSmtpOptions(m_resolver));
    if (isOpen) m_session.NeverNotify(false);
    LogTrace("RegisterEvent()");
    return isOpen || FailToConnect();
}

bool CSmtpClient::Authenticate() {
    if (m_settings.login.empty()) return true;
    constexpr std::uint32_t HasAuthLogin = 0x40;
    LogTrace("Authenticate()");
    LogTrace("GetExtendedOptions ()");
    if ((m_session.GetExtendedOptions() & HasAuthLogin) == 0) {
        SetLastErrorText("SMTP server does not support AUTH LOGIN");
        return false;
    }
    if (!m_session.IsEncrypted()) {
        LogFormat(LogLevelWarning, "The password for %s is sent to %s without encryption.", m_settings.login.c_str(),
                  m_settings.hostName.c_str());
    }
    LogTrace("Authenticate ()");
    return m_session.Authenticate(m_settings.login, m_settings.password) || FailToConnect();
}

bool CSmtpClient::FailToConnect() {
    constexpr int LowestRefusal = 400;
    const int code = m_session.GetLastCode();
    m_connectCode = code >= LowestRefusal ? code : 0;
    m_connectEnhanced = m_session.GetLastEnhancedCode();
    SetLastErrorText(DescribeFailure());
    return false;
}

// "COMMAND -> REPLY", as far as they are known, and have to do with it.
std::string CSmtpClient::DescribeFailure() const {
    if (m_isCancelled) return "User cancel";
    const Net::Failure& failure = m_session.GetFailure();
    std::string reason = failure.kind == Net::FailureKind::Reply ? m_session.GetLastReplyText() : failure.text;
    if (reason.empty()) reason = "Unknown error";
    const std::string command = m_session.GetLastCommand();
    return command.empty() || failure.kind == Net::FailureKind::Local ? reason : command + " -> " + reason;
}

// An open session is used again unless the operator has changed the settings.
bool CSmtpClient::PrepareSession(const CConfiguration& config) {
    CSmtpSettings settings;
    m_connectFailure.clear();
    m_connectCode = 0;
    if (settings.Read(config)) {
        if (m_session.IsOpen() && settings != m_settings) Disconnect();
        m_settings = std::move(settings);
        if (Reset() || Connect()) return true;
    } else {
        LogFormat(LogLevelFailure, "Error while connecting: %s", DescribeLastError().c_str());
    }
    m_connectFailure = DescribeLastError();
    SetLastErrorText("Error while connecting to the server");
    return false;
}

void CSmtpClient::CountMessage() {
    ++m_sentOnSession;
    if (m_sentOnSession >= m_settings.maxMessagesPerConnection) m_closeAfterMessage = true;
}

bool CSmtpClient::Deliver(const CConfiguration& config, const std::string& returnPath, const std::string& recipients,
                          const std::string& messageFile, const Settled& settled) {
    CJob job;
    job.envelope.envelopeSender = returnPath;
    job.envelope.recipients = SplitRecipients(recipients);
    job.messageFile = messageFile;
    job.settled = &settled;

    bool isSent = false;
    if (!PrepareSession(config)) {
        ReportUntried(job, Obstacle::Server, m_connectFailure);
    } else {
        LogFormat(LogLevelTrace, "Sending message from: \"%s\" to: \"%s\".", returnPath.c_str(), recipients.c_str());
        CountMessage();
        isSent = SendFile(job);
    }
    if (isSent) {
        LogTrace("SmtpMessageSender2::SendMessage success");
        LogFormat(LogLevelNotice, "Successfully sent message from: \"%s\" to: \"%s\".", returnPath.c_str(),
                  recipients.c_str());
    } else {
        LogFormat(LogLevelFailure, "Error trying to send message from: \"%s\" to \"%s\": %s", returnPath.c_str(),
                  recipients.c_str(), DescribeLastError().c_str());
    }
    const std::string reason = GetLastErrorText();
    if (m_closeAfterMessage && m_session.IsOpen()) Disconnect();
    if (!isSent) SetLastErrorText(reason);
    return isSent;
}

// A session that was found dead has taken nothing: once more on a new one,
// whose server may want the message in another form.
bool CSmtpClient::SendFile(CJob& job) {
    const CTemporaryFile cleaned(job.messageFile + ".clean");
    Net::SmtpSendResult result;
    bool isSent = SendCleaned(job, cleaned.GetPath(), result);
    if (!isSent && result.isSessionDead && !m_isCancelled) {
        if (!Connect()) {
            ReportUntried(job, Obstacle::Server, DescribeLastError());
            SetLastErrorText("Error while connecting to the server");
            return false;
        }
        CountMessage();
        isSent = SendCleaned(job, cleaned.GetPath(), result);
    }
    const std::string reason = isSent ? std::string() : DescribeLastError();
    if (!result.recipients.empty()) ReportResult(job, result);
    if (m_settings.isTraced) KeepTraceCopies(job.messageFile, cleaned.GetPath());
    if (!isSent) SetLastErrorText(reason);
    return isSent;
}

bool CSmtpClient::SendCleaned(CJob& job, const std::string& cleaned, Net::SmtpSendResult& result) {
    const Net::SmtpCapabilities& server = m_session.GetCapabilities();
    CCleanResult made;
    result = {};
    if (!WriteCleanedCopy(job.messageFile, cleaned,
                          {.keepHeaders = m_settings.keepHeaders,
                           .has8BitMime = server.has8BitMime,
                           .hasSmtpUtf8 = server.hasSmtpUtf8},
                          made)) {
        ReportUntried(job, Obstacle::Message, DescribeLastError());
        return false;
    }
    Net::SmtpMessage& message = job.envelope;
    message.file = cleaned;
    message.size = made.size;
    message.is8Bit = made.is8Bit;
    message.needsSmtpUtf8 = made.needsSmtpUtf8;
    LogTrace("SendMessage ()");
    if (m_session.Send(message, result)) return true;
    SetLastErrorText(DescribeFailure());
    return false;
}

// Of a cancelled delivery nothing is to be said, unless someone has it.
void CSmtpClient::ReportResult(const CJob& job, const Net::SmtpSendResult& result) const {
    if (m_isCancelled && !result.isTaken && !result.mayBeTaken) return;
    CDeliveryReport report;
    report.isHostUnavailable = result.isHostUnavailable;
    report.mayBeTaken = result.mayBeTaken;
    for (const Net::SmtpRecipientResult& recipient : result.recipients) {
        report.recipients.push_back({.recipient = recipient.address,
                                     .outcome = OutcomeOf(recipient.state),
                                     .host = m_settings.hostName,
                                     .code = recipient.code,
                                     .enhanced = recipient.enhanced,
                                     .text = recipient.text});
    }
    if (*job.settled) (*job.settled)(report);
}

// What keeps every message from this server is no fault of the message: it is
// tried again, also after a refused login.
void CSmtpClient::ReportUntried(const CJob& job, Obstacle obstacle, const std::string& reason) const {
    if (m_isCancelled) return;
    CDeliveryReport report;
    report.isHostUnavailable = obstacle == Obstacle::Server;
    std::string enhanced = report.isHostUnavailable ? "4.4.1" : "4.3.0";
    std::string text = reason;
    if (m_connectCode != 0) {  // the codes have places of their own
        enhanced = m_connectEnhanced;
        const std::string codes = std::to_string(m_connectCode) + ' ' + enhanced + (enhanced.empty() ? "" : " ");
        if (const std::size_t at = text.find(codes); at != std::string::npos) text.erase(at, codes.size());
    }
    for (const std::string& recipient : job.envelope.recipients) {
        report.recipients.push_back({.recipient = recipient,
                                     .outcome = RecipientOutcome::Deferred,
                                     .host = m_settings.hostName,
                                     .code = m_connectCode,
                                     .enhanced = enhanced,
                                     .text = text});
    }
    if (*job.settled) (*job.settled)(report);
}

}  // namespace SendDaemon
