#include "engine/finalize.h"

#include <array>
#include <ctime>
#include <optional>

#include "app/datafolder.h"
#include "app/productname.h"
#include "app/settings.h"
#include "engine/addressline.h"
#include "engine/blockedaddresses.h"
#include "engine/datafields.h"
#include "engine/displayname.h"
#include "engine/eventlog.h"
#include "engine/expandmessage.h"
#include "engine/messagetemplate.h"
#include "engine/signature.h"
#include "mime/mailbox.h"
#include "mime/mimemessage.h"
#include "platform/clock.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "senddaemon/batchfolder.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::string_view SourceName = "Shared/Engine/finalize";

CMimeEntity& RootOf(CMimeMessage& message) {
    if (!message.GetRoot()) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    return *message.GetRoot();
}

void RemoveAll(CMimeEntity& entity, const char* name) {
    while (entity.HasField(name))
        entity.RemoveField(name);
}

// The value of an override, which is taken out of the message.
std::string TakeOverride(CMimeEntity& root, const char* header) {
    std::string value = root.GetField(header);
    RemoveAll(root, header);
    return value;
}

// The domain of the first address, if it is one that may stand in a message identifier.
std::string IdentifierDomain(std::string_view fromLine) {
    const auto mailboxes = ParseMailboxes(fromLine);
    if (!mailboxes.empty()) {
        const std::string& address = mailboxes.front().address;
        const std::size_t at = address.rfind('@');
        if (at != std::string::npos && at + 1 < address.size()) {
            const std::string domain = address.substr(at + 1);
            const bool isPlain = domain.find_first_not_of(
                                     "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                     "0123456789.-") == std::string::npos;
            if (isPlain) return domain;
        }
    }
    return "listhaven.invalid";
}

// A From line of references has its domain in their values.
std::string Expanded(std::string text) {
    ExpandDataFields(&text, false);
    return text;
}

std::string MailerName() {
    const std::string mailer = ReadSettingText("Service", "Mailer", "");
    if (!mailer.empty()) return OneLine(mailer);
    return FormatText("%s %s.%s", std::string(ProductName).c_str(), ProductVersion, ProductBuild);
}

}  // namespace

struct CFinalizer::CState {
    std::string listGuid;
    std::string mailer = MailerName();
    std::optional<CSigner> signer;
    CBlockedAddresses blocked;
};

CFinalizer::CFinalizer(std::string listGuid) : m_state(std::make_unique<CState>()) {
    m_state->listGuid = std::move(listGuid);
}

CFinalizer::~CFinalizer() = default;

FinalizeResult CFinalizer::Prepare(CMimeMessage& message, std::int64_t now) {
    CMimeEntity& root = RootOf(message);
    const CDataFieldScope scope;
    const std::string addressee = root.GetField("To");
    SetAddresseeFields(addressee);
    ApplyOverrides(message);
    SetStandardHeaders(message, now);
    SetTimeFields(now);
    ExpandMessage(&message);

    std::string recipients = root.GetField(ControlHeader::RecipientOverride);
    if (recipients.empty()) recipients = root.GetField("To");
    if (root.GetField(ControlHeader::ShouldSign) == "YES") {
        std::string subject;
        if (!Sign(root.GetField("Subject"), recipients, now, subject)) return FinalizeResult::Failed;
        SetStoredLine(root.GetHeader(), "Subject", StoredSubject(subject));
    }
    for (const char* header : {"CC", "BCC"}) {
        const std::string copies = root.GetField(header);
        if (!copies.empty()) recipients.append(",").append(copies);
    }
    if (!addressee.empty()) recipients.append(",").append(addressee);
    if (IsBlocked(recipients, root.GetField("Subject"))) return FinalizeResult::Blocked;

    if (!root.GetField(ControlHeader::UpdateAttachments).empty()) {
        message.RefreshAttachments();
        RemoveAll(root, ControlHeader::UpdateAttachments);
    }
    return FinalizeResult::Written;
}

void CFinalizer::ApplyOverrides(CMimeMessage& message) {
    CMimeEntity& root = RootOf(message);
    if (const std::string to = TakeOverride(root, ControlHeader::ToOverride); !to.empty()) {
        const std::string former(root.GetHeader().FindStored("To"));
        RemoveAll(root, ControlHeader::RecipientOverride);
        if (!former.empty()) SetStoredLine(root.GetHeader(), ControlHeader::RecipientOverride, former);
        RemoveAll(root, "To");
        SetAddressLine(root.GetHeader(), "To", to);
    }
    if (const std::string from = TakeOverride(root, ControlHeader::FromOverride); !from.empty()) {
        SetAddressLine(root.GetHeader(), "From", from);
    }
    if (const std::string replyTo = TakeOverride(root, ControlHeader::ReplyToOverride); !replyTo.empty()) {
        SetAddressLine(root.GetHeader(), "Reply-To", replyTo);
    }
    if (const std::string subject = TakeOverride(root, ControlHeader::SubjectOverride); !subject.empty()) {
        SetStoredLine(root.GetHeader(), "Subject", StoredSubject(subject));
    }
    if (const std::string sender = TakeOverride(root, ControlHeader::SenderOverride); !sender.empty()) {
        root.SetField("Sender", sender);
    }
}

void CFinalizer::SetStandardHeaders(CMimeMessage& message, std::int64_t now) {
    CMimeEntity& root = RootOf(message);
    root.SetField("Date", FormatMessageDate(now));
    root.SetField("X-Mailer", m_state->mailer);
    root.SetField("Mime-Version", "1.0");
    const std::string from = root.GetField("From");
    const auto mailboxes = ParseMailboxes(from);
    const std::string address = mailboxes.empty() ? std::string() : OneLine(mailboxes.front().address);
    root.SetField("X-Loop", address);
    root.SetField("X-ZQ-Loop", address);
    RemoveAll(root, "Message-ID");
    root.SetField("Message-ID", NewMessageId(Expanded(from)));
}

void CFinalizer::SetAddresseeFields(std::string_view toLine) {
    const auto mailboxes = ParseMailboxes(toLine);
    const CMailbox addressee = mailboxes.empty() ? CMailbox() : mailboxes.front();
    const CDisplayName parts = SplitDisplayName(addressee.displayName);
    SetDataField(DataField::Email, addressee.address);
    SetDataField(DataField::Name, addressee.displayName);
    SetDataField(DataField::FirstName, parts.first);
    SetDataField(DataField::LastName, parts.last);
}

void CFinalizer::SetTimeFields(std::int64_t now) {
    static std::int64_t second = -1;  // that the texts are of
    static std::string date;
    static std::string time;
    if (now != second) {
        const std::tm local = Platform::LocalTime(now);
        date = FormatText("%02d/%02d/%02d", local.tm_mon + 1, local.tm_mday, (local.tm_year + 1900) % 100);
        time = FormatText("%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
        second = now;
    }
    SetDataField(DataField::Date, date);
    SetDataField(DataField::Time, time);
}

bool CFinalizer::Sign(std::string_view subject, std::string_view recipient, std::int64_t now,
                      std::string& signedSubject) {
    if (m_state->listGuid.empty()) {
        SetLastErrorText("A message that belongs to no list cannot be signed.");
        return false;
    }
    if (!m_state->signer) {
        CSigner signer;
        if (!signer.Load(GetDataFolder())) return false;
        m_state->signer = signer;
    }
    const auto mailboxes = ParseMailboxes(recipient);
    const std::string address = mailboxes.empty() ? std::string() : mailboxes.front().address;
    signedSubject = m_state->signer->Sign(subject, m_state->listGuid, address, now);
    return true;
}

bool CFinalizer::IsBlocked(std::string_view recipients, std::string_view subject) {
    std::string last;
    for (const CMailbox& mailbox : ParseMailboxes(recipients)) {
        if (mailbox.address == last) continue;
        last = mailbox.address;
        Log(LogDebug, "Checking email address \"%s\" against the list of blocked addresses.\n", last.c_str());
        if (!m_state->blocked.IsBlocked(last)) continue;
        Log(LogError,
            "Rejected message \"%s\" to %s because the recipient's email address is on the list of blocked addresses.",
            std::string(subject).c_str(), last.c_str());
        return true;
    }
    return false;
}

FinalizeResult FinalizeMessage(CMimeMessage* message, std::string_view targetPath, std::string_view listGuid) {
    if (message == nullptr) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    try {
        CFinalizer finalizer{std::string(listGuid)};
        const FinalizeResult result = finalizer.Prepare(*message, Platform::SecondsSince1970());
        if (result != FinalizeResult::Written) return result;
        CBatchFolder queue;
        std::string newPath;
        const std::string text = message->GetDiskText();
        if (!queue.Open(targetPath) || !queue.AddMessageText(text, newPath)) return FinalizeResult::Failed;
        return FinalizeResult::Written;
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return FinalizeResult::Failed;
    }
}

std::string FormatZone(int biasMinutes) {
    return FormatText("%+.2d%.2d", biasMinutes / -60, biasMinutes % 60);
}

std::string FormatMessageDate(std::int64_t now) {
    static constexpr std::array Days = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr std::array Months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::tm local = Platform::LocalTime(now);
    return FormatText("%s, %02d %s %04d %02d:%02d:%02d ", Days[static_cast<std::size_t>(local.tm_wday)], local.tm_mday,
                      Months[static_cast<std::size_t>(local.tm_mon)], local.tm_year + 1900, local.tm_hour, local.tm_min,
                      local.tm_sec) +
           FormatZone(Platform::TimeZoneBias(now));
}

std::string NewMessageId(std::string_view fromLine) {
    const Platform::Guid guid = Platform::NewGuid();
    std::uint64_t tail = 0;
    for (const std::uint8_t byte : guid.data4)
        tail = (tail << 8) | byte;
    return FormatText("<%08x%04x%04x%016llx@", static_cast<unsigned>(guid.data1), static_cast<unsigned>(guid.data2),
                      static_cast<unsigned>(guid.data3), static_cast<unsigned long long>(tail)) +
           IdentifierDomain(fromLine) + ">";
}
