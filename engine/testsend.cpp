#include "engine/testsend.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/settings.h"
#include "engine/broadcast.h"
#include "engine/listaccount.h"
#include "engine/memberstore.h"
#include "mime/mimemessage.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "senddaemon/deliverylog.h"
#include "senddaemon/messagefile.h"
#include "senddaemon/messageinfo.h"
#include "senddaemon/messagesender.h"
#include "senddaemon/senderfactory.h"
#include "senddaemon/sendevents.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace {

using SendDaemon::CDeliveryLine;
using SendDaemon::CRecipientReport;
using SendDaemon::DeliveryStatus;
using SendDaemon::RecipientOutcome;

constexpr std::string_view TestFolder = ".Test";              // in the account's root folder: no queue walk looks there
constexpr std::int64_t LongestDelivery = 86'400'000'000'000;  // nanoseconds, generously

bool MakeCopy(std::uint32_t listNumber, std::string_view address, const CMimeMessage& message, std::string& text) {
    BroadcastList list;
    CBroadcastMaker maker;
    if (!ReadBroadcastList(listNumber, list) || !maker.Open(message, list, {})) return false;
    CMemberStore store;
    store.Open(listNumber, CMemberStore::Access::ReadOnly);
    CMember member;
    const std::int32_t index = store.Find(address);
    if (index == CMemberStore::None || !store.Read(index, member)) {
        member = {};
        member.address = address;
        std::string reason;
        if (!PrepareMember(member, reason)) {
            SetLastErrorText(reason);
            return false;
        }
    }
    switch (maker.Make(member, Platform::SecondsSince1970(), text, &store, index)) {
        case CopyResult::Made:
            return true;
        case CopyResult::Blocked:
            SetLastErrorText("The address is on the list of blocked addresses.");
            return false;
        case CopyResult::Skipped:
            SetLastErrorText("The address cannot stand in a header.");
            return false;
        default:
            return false;
    }
}

// What the sender says, and the end of its work.
class COutcome : public SendDaemon::IMessageSender_SendMessageEvents {
public:
    explicit COutcome(std::function<void(const CRecipientReport&)> settled) : m_settled(std::move(settled)) {}

    void OnRecipientsSettled(const std::string& /*messageFile*/, const SendDaemon::CDeliveryReport& report) override {
        for (const CRecipientReport& recipient : report.recipients) {
            m_report = recipient;
            m_isReported = true;
            m_settled(recipient);
        }
    }
    void OnMessageSent(const std::string& messageFile) override { End(messageFile, true); }
    void OnMessageFailed(const std::string& messageFile) override { End(messageFile, false); }

    bool Wait(std::chrono::milliseconds limit) {
        std::unique_lock guard(m_lock);
        return m_ended.wait_for(guard, limit, [this] { return m_hasEnded; });
    }
    bool IsSent() const noexcept { return m_isSent; }
    bool IsReported() const noexcept { return m_isReported; }
    const CRecipientReport& GetReport() const noexcept { return m_report; }
    const std::string& GetReason() const noexcept { return m_reason; }

private:
    void End(const std::string& /*messageFile*/, bool isSent) {
        const std::lock_guard guard(m_lock);
        m_isSent = isSent;
        m_reason = isSent ? std::string() : DescribeLastError();
        m_hasEnded = true;
        m_ended.notify_all();
    }

    std::function<void(const CRecipientReport&)> m_settled;
    std::mutex m_lock;
    std::condition_variable m_ended;
    CRecipientReport m_report;
    bool m_isReported = false;
    bool m_isSent = false;
    bool m_hasEnded = false;
    std::string m_reason;
};

// The lines of the test copy in the list's ledger.
class CTestLedger {
public:
    CTestLedger(const std::string& accountRoot, std::string messageId) : m_messageId(std::move(messageId)) {
        m_log.SetUp(accountRoot, 0, 0);  // the daemon divides the file
    }
    void Write(DeliveryStatus status, const CRecipientReport& report) {
        const CDeliveryLine line = {.time = Platform::SecondsSince1970(),
                                    .status = status,
                                    .broadcast = {},
                                    .message = m_messageId,
                                    .recipient = report.recipient,
                                    .host = report.host,
                                    .code = report.code,
                                    .enhanced = report.enhanced,
                                    .text = report.text};
        m_log.Append(std::span(&line, 1), SendDaemon::CDeliveryLog::Flush::Yes);
    }

private:
    SendDaemon::CDeliveryLog m_log;
    std::string m_messageId;
};

struct CTemporaryMessage {
    std::string path;
    CTemporaryMessage() = default;
    CTemporaryMessage(const CTemporaryMessage&) = delete;
    CTemporaryMessage& operator=(const CTemporaryMessage&) = delete;
    ~CTemporaryMessage() {
        if (!path.empty()) Platform::RemoveFile(path);
    }
};

// Of programs that died; a file of today may be another one's that runs.
void RemoveLeftovers(const std::string& folder) {
    const std::int64_t now = Platform::NanosecondsSince1970();
    ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        const std::string path = JoinPath(folder, name);
        Platform::FileStatus status;
        if (!isFolder && Platform::GetFileStatus(path, status) && now - status.times.modified > LongestDelivery)
            Platform::RemoveFile(path);
        return true;
    });
}

}  // namespace

bool SendTestCopy(std::uint32_t listNumber, std::string_view address, const CMimeMessage& message,
                  const std::function<bool()>& stop, CRecipientReport& report) {
    const std::string root = GetAccountRoot(listNumber);
    std::string text;
    CTemporaryMessage file;
    SendDaemon::CMessageInfo info;
    RemoveLeftovers(JoinPath(root, TestFolder));
    if (!RefreshAccount(listNumber) || !MakeCopy(listNumber, address, message, text) ||
        !WriteMessageToFolder(text, JoinPath(root, TestFolder), file.path) ||
        !SendDaemon::ReadMessageInfo(file.path, info)) {
        return false;
    }
    const SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(root));
    CTestLedger ledger(root, info.messageId);
    COutcome outcome([&](const CRecipientReport& recipient) {
        ledger.Write(
            recipient.outcome == RecipientOutcome::Accepted ? DeliveryStatus::Accepted : DeliveryStatus::Failed,
            recipient);
    });
    {
        const std::unique_ptr<SendDaemon::CMessageSender> sender =
            SendDaemon::CreateSender(config.GetText("SendMethod"));
        if (!sender || !sender->Send(config, info.returnPath, info.recipients, file.path, &outcome)) return false;
        while (!outcome.Wait(std::chrono::milliseconds(100))) {
            if (stop && stop()) sender->Stop();
        }
    }
    report = outcome.GetReport();
    if (!outcome.IsReported()) {  // a sender that says nothing more
        report.recipient = info.recipients;
        report.outcome = outcome.IsSent() ? RecipientOutcome::Accepted : RecipientOutcome::Refused;
        report.text = outcome.GetReason();
        ledger.Write(outcome.IsSent() ? DeliveryStatus::Accepted : DeliveryStatus::Failed, report);
    }
    if (outcome.IsSent()) ledger.Write(DeliveryStatus::Sent, report);
    SetLastErrorText(outcome.GetReason());
    return outcome.IsSent();
}
