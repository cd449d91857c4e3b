#include "senddaemon/directmessagesender.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "mime/headerscan.h"
#include "platform/file.h"
#include "platform/knownfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/messageinfo.h"
#include "senddaemon/mxrecords.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"
#include "utility/uniquename.h"

namespace SendDaemon {

namespace {

constexpr std::string_view SourceName = "Shared/SendDaemon/directmessagesender";
constexpr const char* GivingUp = "Could not send the message through any of the mail exchanges. Giving up.";

// What the session with an exchanger takes over from the account.
constexpr std::array<std::string_view, 11> CopiedKeys = {
    "SendMethod", "Port",     "Timeout",     "EnableTrace", "MaxMessagesPerConnection",     "TlsMode",
    "TlsCaFile",  "HeloName", "KeepHeaders", "DataTimeout", "TurnOffDeliveryNotifications",
};

bool CanBeRead(const std::string& messageFile) {
    constexpr std::array<std::string_view, 1> Fields = {"From"};
    CHeaderValues values;
    return ReadHeaderFields(messageFile, Fields, values, HeaderForm::Stored);
}

// The configuration of a session with one exchanger: a file of its own for as
// long as this lives.
class CExchangerConfig {
public:
    CExchangerConfig() = default;
    CExchangerConfig(const CExchangerConfig&) = delete;
    CExchangerConfig& operator=(const CExchangerConfig&) = delete;
    ~CExchangerConfig() {
        if (!m_folder.empty()) RemoveFolderTree(m_folder);
    }

    bool Write(const CConfiguration& account, const std::string& exchanger) {
        if (!MakeUniqueFolder(Platform::TemporaryFolder(), m_folder)) return false;
        const std::string path = JoinPath(m_folder, "exchanger.cfg");
        std::string text = "[Configuration]\nHostName=" + OneLine(exchanger) + "\n";
        for (const std::string_view key : CopiedKeys) {
            const std::string value = account.GetText(key);
            if (!value.empty()) text += std::string(key) + "=" + OneLine(value) + "\n";
        }
        ReplaceAll(text, "\\", "\\\\");
        Platform::CFile file;
        if (!file.Open(path, Platform::FileMode::CreateNew, Platform::FileAccess::Private) || !file.Write(text)) {
            SetLastErrorFromSystem();
            return false;
        }
        m_config = std::make_unique<CConfiguration>(path);
        return true;
    }
    const CConfiguration& Get() const { return *m_config; }

private:
    std::string m_folder;
    std::unique_ptr<CConfiguration> m_config;
};

}  // namespace

struct CDirectMessageSender::CMessage {
    const CConfiguration& config;
    const std::string& returnPath;
    const std::string& file;
};

struct CDirectMessageSender::CDomain {
    std::string name;
    std::vector<std::string> waiting;  // recipients that nobody has taken yet
    std::map<std::string, CRecipientReport, std::less<>>
        lastAnswer;  // of those: the first reply, else the last failure
    bool isAnyTaken = false;
    bool isAnyReached = false;  // an exchanger spoke with us
    bool mayBeTaken = false;
};

CDirectMessageSender::CDirectMessageSender() = default;

CDirectMessageSender::~CDirectMessageSender() {
    if (HasJob()) Stop();
    Shutdown();
}

bool CDirectMessageSender::Stop() {
    m_isCancelled = true;
    const std::lock_guard guard(m_cancelLock);
    if (m_runningDns != nullptr) m_runningDns->Cancel();
    if (m_runningClient != nullptr) m_runningClient->Cancel();
    return true;
}

bool CDirectMessageSender::Prepare(const CConfiguration& config, const std::string& messageFile) {
    CDnsSettings dns;
    if (!dns.Read(config)) return false;
    if (!CanBeRead(messageFile)) {
        LogError(InternalErrorText(SourceName, __LINE__) + " " + DescribeLastError());
        return false;
    }
    m_dns = CMxRecordEnumerator::CreateDnsClient(dns);
    return m_dns != nullptr;
}

bool CDirectMessageSender::DoSend(const CConfiguration& config, const std::string& returnPath,
                                  const std::string& recipients, const std::string& messageFile) {
    m_isCancelled = false;
    if (!Prepare(config, messageFile)) {  // no fault of the recipients
        const std::string reason = GetLastErrorText();
        CDomain all;
        all.waiting = SplitRecipients(recipients);
        all.isAnyReached = true;
        ReportRest(all);
        SetLastErrorText(reason);
        return false;
    }
    const CMessage message = {.config = config, .returnPath = returnPath, .file = messageFile};
    std::vector<CDomain> domains;
    for (const std::string& recipient : SplitRecipients(recipients)) {
        std::string domain;
        if (!CMxRecordEnumerator::GetRecipientDomain(recipient, domain)) {
            LogRecipient(recipient);
            LogLookupFailure(config, DescribeLastError());
            Report({.recipients = {{.recipient = recipient,
                                    .outcome = RecipientOutcome::Refused,
                                    .host = {},
                                    .code = 0,
                                    .enhanced = "5.1.3",
                                    .text = DescribeLastError()}}});
            continue;
        }
        const auto found = std::find_if(domains.begin(), domains.end(),
                                        [&](const CDomain& known) { return EqualNoCase(known.name, domain); });
        CDomain& group = found != domains.end() ? *found : domains.emplace_back();
        group.name = domain;
        group.waiting.push_back(recipient);
    }
    bool isSent = false;
    std::string reason = GetLastErrorText();
    for (CDomain& domain : domains) {
        if (m_isCancelled) {
            reason = "User cancel";
            break;
        }
        if (!SendToDomain(message, domain)) reason = GetLastErrorText();
        isSent = isSent || domain.isAnyTaken;
    }
    if (!isSent) SetLastErrorText(reason);
    return isSent;
}

void CDirectMessageSender::LogRecipient(const std::string& recipient) const {
    LogInformation(FormatText("Sending message directly to the following recipient: \"%s\".", recipient.c_str()));
}

void CDirectMessageSender::LogLookupFailure(const CConfiguration& config, const std::string& reason) const {
    const std::string server = config.GetText("DnsHostAddress");
    LogError(FormatText("Unable to read MX record using the following DNS server: \"%s\". %s", server.c_str(),
                        reason.c_str()));
}

// False when it could not be delivered to everybody there.
bool CDirectMessageSender::SendToDomain(const CMessage& message, CDomain& domain) {
    for (const std::string& recipient : domain.waiting)
        LogRecipient(recipient);
    std::vector<std::string> exchangers;
    {
        const std::lock_guard guard(m_cancelLock);
        m_runningDns = m_dns.get();
    }
    bool isFound = !m_isCancelled && m_dns->GetMailExchangers(domain.name, exchangers);
    const std::string reason = DescribeLastError();
    bool isSent = false;
    if (isFound) {
        isSent = SendThrough(message, exchangers, domain);
    } else if (!m_isCancelled) {
        LogLookupFailure(message.config, reason);
        const bool useFallback = message.config.GetNumber("DnsUseFallback") > 0;
        for (const std::string& recipient : domain.waiting) {
            domain.lastAnswer[recipient] = {
                .recipient = recipient,
                .outcome = m_dns->IsTemporary() ? RecipientOutcome::Deferred : RecipientOutcome::Refused,
                .host = {},
                .code = 0,
                .enhanced = m_dns->IsTemporary() ? "4.4.3" : "5.1.2",
                .text = reason};
        }
        domain.isAnyReached = !m_dns->IsTemporary();
        SetLastErrorText(reason);
        if (useFallback) isSent = SendThroughRelay(message, domain);
    }
    {
        const std::lock_guard guard(m_cancelLock);
        m_runningDns = nullptr;
    }
    ReportRest(domain);
    return isSent;
}

bool CDirectMessageSender::SendThrough(const CMessage& message, const std::vector<std::string>& exchangers,
                                       CDomain& domain) {
    for (const std::string& exchanger : exchangers) {
        LogInformation(FormatText("Sending through the following server: \"%s\".", exchanger.c_str()));
        if (SendThroughOne(message, exchanger, domain) && domain.waiting.empty()) return true;
        if (m_isCancelled) return false;
        LogInformation("Cannot send message through the server.");
        // Another exchanger would give it to those who may have it a second time.
        if (domain.mayBeTaken) break;
    }
    SetLastErrorText(GivingUp);
    return false;
}

bool CDirectMessageSender::SendThroughOne(const CMessage& message, const std::string& exchanger, CDomain& domain) {
    CExchangerConfig config;
    return config.Write(message.config, exchanger) && Deliver(config.Get(), message, domain);
}

bool CDirectMessageSender::SendThroughRelay(const CMessage& message, CDomain& domain) {
    domain.lastAnswer.clear();
    domain.isAnyReached = false;
    return Deliver(message.config, message, domain) && domain.waiting.empty();
}

bool CDirectMessageSender::Deliver(const CConfiguration& config, const CMessage& message, CDomain& domain) {
    CSmtpClient client;
    if (&config != &message.config) client.SetResolver(m_dns->MakeResolver());
    {
        const std::lock_guard guard(m_cancelLock);
        m_runningClient = &client;
        if (m_isCancelled) client.Cancel();
    }
    const std::string recipients = Join(domain.waiting, ",");
    const bool isSent = client.Deliver(config, message.returnPath, recipients, message.file,
                                       [&](const CDeliveryReport& report) { TakeReport(report, domain); });
    const std::string reason = GetLastErrorText();
    {
        const std::lock_guard guard(m_cancelLock);
        m_runningClient = nullptr;
    }
    SetLastErrorText(reason);
    return isSent;
}

// Who has it is told at once; of the others a reply counts more than a
// connection that failed, and the preferred exchanger's more than the next
// one's.
void CDirectMessageSender::TakeReport(const CDeliveryReport& report, CDomain& domain) {
    CDeliveryReport taken;
    domain.mayBeTaken = domain.mayBeTaken || report.mayBeTaken;
    domain.isAnyReached = domain.isAnyReached || !report.isHostUnavailable;
    for (const CRecipientReport& recipient : report.recipients) {
        if (recipient.outcome == RecipientOutcome::Accepted) {
            taken.recipients.push_back(recipient);
            std::erase(domain.waiting, recipient.recipient);
            domain.lastAnswer.erase(recipient.recipient);
            continue;
        }
        CRecipientReport& known = domain.lastAnswer[recipient.recipient];
        if (known.code == 0 || report.mayBeTaken) known = recipient;
    }
    if (taken.recipients.empty()) return;
    domain.isAnyTaken = true;
    Report(taken);
}

void CDirectMessageSender::ReportRest(const CDomain& domain) {
    if (m_isCancelled && !domain.mayBeTaken) return;
    CDeliveryReport rest;
    rest.isHostUnavailable = !domain.isAnyReached;
    rest.mayBeTaken = domain.mayBeTaken;
    for (const std::string& recipient : domain.waiting) {
        const auto answer = domain.lastAnswer.find(recipient);
        rest.recipients.push_back(answer != domain.lastAnswer.end()
                                      ? answer->second
                                      : CRecipientReport{.recipient = recipient,
                                                         .outcome = RecipientOutcome::Deferred,
                                                         .host = {},
                                                         .code = 0,
                                                         .enhanced = "4.3.0",
                                                         .text = DescribeLastError()});
    }
    if (!rest.recipients.empty()) Report(rest);
}

}  // namespace SendDaemon
