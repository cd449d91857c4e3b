#include "engine/bounces/bounceclassifier.h"

#include <algorithm>

#include "engine/bounces/bounceaddress.h"
#include "engine/bounces/jsonnotice.h"
#include "engine/bounces/noticekind.h"
#include "engine/bounces/noticeparts.h"
#include "engine/bounces/recipientverdict.h"
#include "engine/bounces/statusreport.h"
#include "utility/text.h"

namespace {

using COwnAddresses = std::vector<std::string>;

// What the notice says of one address: from where it stands to the next of them.
std::string_view TextOf(const CNoticeParts& parts, const std::vector<CFailedAddress>& found, std::size_t index) {
    const std::string_view text = parts.text;
    if (found.size() < 2 || found[index].position == std::string::npos) return text;
    std::size_t end = text.size();
    for (const CFailedAddress& other : found)
        if (other.position != std::string::npos && other.position > found[index].position)
            end = std::min(end, other.position);
    return text.substr(found[index].position, end - found[index].position);
}

// The same recipient under another address: the one that the list wrote to.
void AddOriginal(CBounceReport& report, const CNoticeParts& parts, const COwnAddresses& own) {
    if (report.recipients.size() != 1) return;
    CBouncedRecipient& only = report.recipients.front();
    if (!only.original.empty()) return;
    const auto returned = ReturnedRecipients(parts, own);
    if (returned.size() == 1 && !EqualNoCase(returned.front(), only.address)) only.original = returned.front();
}

void AddFromText(CBounceReport& report, const CNoticeParts& parts, const COwnAddresses& own, const CStatusCode& status,
                 std::string_view diagnostic) {
    const auto found = FindFailedAddresses(parts, own);
    for (std::size_t i = 0; i < found.size(); ++i) {
        CBouncedRecipient recipient;
        recipient.address = found[i].address;
        JudgeRecipient(recipient, status, diagnostic, TextOf(parts, found, i));
        report.recipients.push_back(std::move(recipient));
    }
    if (!found.empty()) return;
    CBouncedRecipient unknown;
    JudgeRecipient(unknown, status, diagnostic, parts.text);
    report.recipients.push_back(std::move(unknown));
}

DeliveryAction ActionOf(const CRecipientStatus& recipient, const CNoticeParts& parts) {
    if (recipient.action != DeliveryAction::Unknown) return recipient.action;
    if (recipient.status.classCode == 2) return DeliveryAction::Delivered;
    if (recipient.status.classCode != 5 && AnnouncesRetry(parts)) return DeliveryAction::Delayed;
    return DeliveryAction::Failed;
}

// The address of a recipient in a report, best first; one that is none stays last.
std::string_view BestAddress(const CRecipientStatus& status) {
    for (const std::string* address : {&status.finalRecipient, &status.originalRecipient, &status.otherRecipient})
        if (address->find('@') != std::string::npos) return *address;
    return status.finalRecipient;
}

void AddFromStatus(CBounceReport& report, const CNoticeParts& parts, const COwnAddresses& own,
                   const CRecipientStatus& status) {
    CBouncedRecipient recipient;
    recipient.address = BestAddress(status);
    if (ContainsAddress(own, recipient.address) && !status.originalRecipient.empty())
        recipient.address = status.originalRecipient;
    if (recipient.address.find('@') == std::string::npos) {
        const auto found = FindFailedAddresses(parts, own);
        if (found.size() == 1) recipient.address = found.front().address;
    }
    for (const std::string* other : {&status.originalRecipient, &status.otherRecipient})
        if (recipient.original.empty() && !EqualNoCase(*other, recipient.address)) recipient.original = *other;
    std::string_view text = parts.text;
    const std::size_t at = FindNoCase(text, recipient.address);
    if (at != std::string_view::npos && !recipient.address.empty()) text = text.substr(at);
    JudgeRecipient(recipient, status.status, status.diagnostic, text);
    if (!ContainsAddress(own, recipient.address)) report.recipients.push_back(std::move(recipient));
}

bool ReadStatusReport(CBounceReport& report, const CNoticeParts& parts, const COwnAddresses& own) {
    if (parts.deliveryStatus.empty() || !MayReport(parts)) return false;
    if (parts.isStatusInText && KindOfNotice(parts) == NoticeKind::Ordinary) return false;
    bool hasFailure = false;
    bool hasDelay = false;
    bool hasSuccess = false;
    const auto statuses = ParseStatusReport(parts.deliveryStatus);
    for (const CRecipientStatus& status : statuses) {
        const DeliveryAction action = ActionOf(status, parts);
        hasFailure = hasFailure || action == DeliveryAction::Failed;
        hasDelay = hasDelay || action == DeliveryAction::Delayed;
        hasSuccess = hasSuccess || action == DeliveryAction::Delivered;
        if (action != DeliveryAction::Failed) continue;
        if (BestAddress(status).empty())
            AddFromText(report, parts, own, status.status, status.diagnostic);
        else
            AddFromStatus(report, parts, own, status);
    }
    if (hasFailure)
        report.kind = NoticeKind::Bounce;
    else if (hasDelay)
        report.kind = NoticeKind::Delay;
    else if (hasSuccess)
        report.kind = NoticeKind::Success;
    return report.kind != NoticeKind::Ordinary;
}

void AddComplaint(CBounceReport& report, std::string_view value, const COwnAddresses& own) {
    CBouncedRecipient recipient;
    recipient.address = AddressOfRecipientField(value);
    recipient.bounceClass = BounceClass::Blocked;
    if (recipient.address.find('@') == std::string::npos || ContainsAddress(own, recipient.address)) return;
    for (const CBouncedRecipient& other : report.recipients)
        if (EqualNoCase(other.address, recipient.address)) return;
    constexpr std::size_t MaxComplaints = 20;
    if (report.recipients.size() < MaxComplaints) report.recipients.push_back(std::move(recipient));
}

void ReadAbuseReport(CBounceReport& report, const CNoticeParts& parts, const COwnAddresses& own) {
    report.kind = IsComplaint(parts) ? NoticeKind::AbuseReport : NoticeKind::Receipt;
    if (report.kind != NoticeKind::AbuseReport) return;
    CMimeHeader fields;
    fields.Parse(TrimLeft(parts.feedback));
    for (const std::string_view name : {"Original-Rcpt-To", "Removal-Recipient"})
        for (std::size_t i = 0; i < fields.GetFieldCount(); ++i)
            if (EqualNoCase(fields.GetStoredField(i).name, name))
                AddComplaint(report, fields.GetStoredField(i).value, own);
    if (report.recipients.empty()) AddComplaint(report, parts.returned.FindStored("X-HmXmrOriginalRecipient"), own);
    if (report.recipients.empty())
        for (const std::string& address : ReturnedRecipients(parts, own))
            AddComplaint(report, address, own);
    if (report.recipients.empty()) {
        report.recipients.emplace_back();
        report.recipients.front().bounceClass = BounceClass::Blocked;
    }
    const std::string evidence =
        MakeEvidence("Feedback-Type: " + fields.GetField("Feedback-Type") + "; " + std::string(Trim(parts.text)));
    for (CBouncedRecipient& recipient : report.recipients)
        recipient.evidence = evidence;
}

// A complaint without a report for machines.
bool IsBareComplaint(const CNoticeParts& parts) {
    return parts.returned.HasField("X-HmXmrOriginalRecipient") &&
           StartsWithNoCase(Trim(parts.header.FindStored("Subject")), "complaint about message");
}

}  // namespace

std::string_view BounceClassName(BounceClass bounceClass) noexcept {
    switch (bounceClass) {
        case BounceClass::Soft:
            return "soft";
        case BounceClass::Hard:
            return "hard";
        case BounceClass::Blocked:
            return "blocked";
        case BounceClass::None:
            break;
    }
    return "none";
}

std::string_view NoticeKindName(NoticeKind kind) noexcept {
    switch (kind) {
        case NoticeKind::Bounce:
            return "bounce";
        case NoticeKind::Delay:
            return "delay";
        case NoticeKind::Success:
            return "success";
        case NoticeKind::Vacation:
            return "vacation";
        case NoticeKind::Challenge:
            return "challenge";
        case NoticeKind::Receipt:
            return "receipt";
        case NoticeKind::AbuseReport:
            return "abuse report";
        case NoticeKind::Ordinary:
            break;
    }
    return "ordinary";
}

BounceClass CBounceReport::GetClass() const noexcept {
    BounceClass worst = BounceClass::None;
    for (const CBouncedRecipient& recipient : recipients) {
        if (recipient.bounceClass == BounceClass::Hard) return BounceClass::Hard;
        if (worst != BounceClass::Blocked && recipient.bounceClass != BounceClass::None) worst = recipient.bounceClass;
    }
    return worst;
}

CBounceReport ClassifyMessage(const CMimeMessage& message, const std::vector<std::string>& ownAddresses) {
    CBounceReport report;
    const CNoticeParts parts = ReadNoticeParts(message);
    if (CameThroughList(parts)) {
        report.kind = KindOfNotice(parts);
        return report;
    }
    if (!parts.feedback.empty() || parts.reportType == "feedback-report" || IsBareComplaint(parts)) {
        ReadAbuseReport(report, parts, ownAddresses);
        return report;
    }
    if (parts.hasDisposition || parts.reportType == "disposition-notification") {
        report.kind = NoticeKind::Receipt;
        return report;
    }
    if (!IsFromPerson(parts) && ReadJsonNotice(parts.text, report)) return report;
    if (!ReadStatusReport(report, parts, ownAddresses)) {
        report.kind = KindOfNotice(parts);
        if (report.kind == NoticeKind::Bounce) AddFromText(report, parts, ownAddresses, {}, {});
    }
    if (report.kind == NoticeKind::Bounce) AddOriginal(report, parts, ownAddresses);
    return report;
}

BounceClass ClassifyReply(int replyCode, std::string_view status, std::string_view text) {
    CStatusCode code;
    ReadStatusCode(Trim(status), code);
    CBouncedRecipient recipient;
    const std::string line = (replyCode > 0 ? std::to_string(replyCode) + ' ' : std::string()) + std::string(text);
    JudgeRecipient(recipient, code, line, {});
    return recipient.bounceClass;
}
