// What becomes of a message whose delivery has ended, and of each of its
// recipients.
//
// Crash    Who accepted is on disk in the delivery log before the sender goes
//          on.  Then: a copy for the refused, one for those who got it, the
//          claimed file rewritten for the rest, "sent" lines, the rename.  After
//          any of these UndoClaims() can still tell who has the message, and
//          everybody else is named by a file.

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <utility>

#include "platform/file.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/dispatcherstate.h"
#include "senddaemon/messagefile.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::array<std::string_view, 2> RecipientFields = {"X-Lhv-Recipient-Override", "X-Lhv-Recipients-Only"};

std::vector<std::string> GetRecipients(std::span<const CRecipientReport> outcomes) {
    std::vector<std::string> recipients;
    for (const CRecipientReport& outcome : outcomes)
        recipients.push_back(outcome.recipient);
    return recipients;
}

// Folded, so that no line grows with their number.
std::string MakeRecipientHeader(std::span<const std::string> recipients) {
    std::string header = "X-Lhv-Recipient-Override: ";
    for (const std::string& recipient : recipients) {
        if (&recipient != &recipients.front()) header += ",\r\n ";
        header += recipient;
    }
    return header + "\r\nX-Lhv-Recipients-Only: 1\r\n";
}

DeliveryStatus GetStatus(RecipientOutcome outcome) {
    switch (outcome) {
        case RecipientOutcome::Accepted:
            return DeliveryStatus::Accepted;
        case RecipientOutcome::Deferred:
            return DeliveryStatus::Deferred;
        default:
            return DeliveryStatus::Failed;
    }
}

CDeliveryLine MakeLine(const CMessageInfo& info, const CRecipientReport& outcome, DeliveryStatus status,
                       std::int64_t now) {
    return {.time = now,
            .status = status,
            .broadcast = info.broadcast,
            .message = info.messageId,
            .recipient = outcome.recipient,
            .host = outcome.host,
            .code = outcome.code,
            .enhanced = outcome.enhanced,
            .text = outcome.text};
}

}  // namespace

std::size_t CSettlement::CountKinds() const {
    return (accepted.empty() ? 0U : 1U) + (refused.empty() ? 0U : 1U) + (deferred.empty() ? 0U : 1U) +
           (untried.empty() ? 0U : 1U);
}

// Its own sender is the only one that changes it.
CDelivery* CDispatcher::CState::FindDelivery(const std::string& messageFile) {
    const std::lock_guard guard(lock);
    const auto found = inFlight.find(messageFile);
    return found == inFlight.end() ? nullptr : &found->second;
}

bool CDispatcher::CState::AppendUnwritten() {
    if (!isAnyUnwritten) return true;
    const std::lock_guard guard(unwrittenLock);
    if (!unwritten.empty() && !deliveryLog.Append(unwritten, CDeliveryLog::Flush::Yes)) return false;
    unwritten.clear();
    isAnyUnwritten = false;
    return true;
}

// Nothing goes out of which could not be told what became of it.
bool CDispatcher::CState::IsLogReady() {
    const bool isNeeded = !isLogOpen && IsAnyWaiting();
    if (isNeeded) isLogOpen = deliveryLog.Open();
    if ((isLogOpen || !isNeeded) && AppendUnwritten()) return true;
    SetLastErrorFormat("The delivery log cannot be written: %s", DescribeLastError().c_str());
    return false;
}

void CDispatcher::CState::TellUnwritten() {
    const std::lock_guard guard(unwrittenLock);
    for (const CDeliveryLine& line : unwritten) {
        LogFormat(LogLevelFailure, "Not in the delivery log of \"%s\": %s, message %s, %s",
                  account.GetRootFolder().c_str(), std::string(GetDeliveryStatusName(line.status)).c_str(),
                  line.message.c_str(), line.recipient.c_str());
    }
}

// One write for what was filed and what is accepted next.  A crash in between
// costs nothing: the next start finds the file gone, and says so.
void CDispatcher::CState::AppendSent(const CMessageInfo& info, std::span<const CRecipientReport> accepted) {
    const std::int64_t now = clock();
    const std::lock_guard guard(unwrittenLock);
    for (const CRecipientReport& outcome : accepted)
        unsaid.push_back(MakeLine(info, outcome, DeliveryStatus::Sent, now));
}

void CDispatcher::CState::AppendUnsaid() {
    AppendLines({}, CDeliveryLog::Flush::No);
}

// Lines keep their order: behind one that could not be written the others wait.
void CDispatcher::CState::AppendLines(std::vector<CDeliveryLine> lines, CDeliveryLog::Flush flush) {
    {
        const std::lock_guard guard(unwrittenLock);
        if (!unsaid.empty()) lines.insert(lines.begin(), unsaid.begin(), unsaid.end());
        unsaid.clear();
    }
    if (lines.empty()) return;
    if (!Platform::IsFlushEnabled()) flush = CDeliveryLog::Flush::No;  // saves the waiting for each other
    if (!isAnyUnwritten && deliveryLog.Append(lines, flush)) return;
    std::string reason;
    {
        const std::lock_guard guard(unwrittenLock);
        std::move(lines.begin(), lines.end(), std::back_inserter(unwritten));
        isAnyUnwritten = true;
    }
    if (!AppendUnwritten()) {
        LogFormat(LogLevelFailure, "Error while writing the delivery log of \"%s\": %s",
                  account.GetRootFolder().c_str(), DescribeLastError().c_str());
    }
}

void CDispatcher::CState::AppendOutcomes(const CMessageInfo& info, std::span<const CRecipientReport> outcomes,
                                         DeliveryStatus status, CDeliveryLog::Flush flush) {
    std::vector<CDeliveryLine> lines;
    const std::int64_t now = clock();
    for (const CRecipientReport& outcome : outcomes)
        lines.push_back(MakeLine(info, outcome, status, now));
    AppendLines(std::move(lines), flush);
}

void CDispatcher::CState::AppendForAll(const CMessageInfo& info, DeliveryStatus status, const std::string& text) {
    std::vector<CRecipientReport> outcomes;
    for (const std::string& recipient : SplitRecipients(info.recipients))
        outcomes.push_back({.recipient = recipient, .host = {}, .code = 0, .enhanced = {}, .text = text});
    AppendOutcomes(info, outcomes, status, CDeliveryLog::Flush::Yes);
}

// Of a cancelled delivery only what a server has (or may have) counts.
void CDispatcher::CState::RecordReport(const std::string& messageFile, const CDeliveryReport& report) {
    CDelivery* delivery = FindDelivery(messageFile);
    if (delivery == nullptr) return;
    const bool retries = config != nullptr && config->GetNumber("RetryTemporary") > 0;
    bool isCancelled = false;
    {
        const std::lock_guard guard(lock);
        isCancelled = isCancelling && !report.mayBeTaken;
    }
    const std::int64_t now = clock();
    std::vector<CDeliveryLine> lines;
    for (CRecipientReport outcome : report.recipients) {
        if (isCancelled && outcome.outcome != RecipientOutcome::Accepted) continue;
        if (outcome.outcome == RecipientOutcome::Deferred && !retries) outcome.outcome = RecipientOutcome::Refused;
        auto& known = delivery->outcomes[outcome.recipient];
        if (!known.recipient.empty() && known.outcome == RecipientOutcome::Accepted) continue;
        known = outcome;
        lines.push_back(MakeLine(delivery->info, outcome, GetStatus(outcome.outcome), now));
    }
    AppendLines(std::move(lines), CDeliveryLog::Flush::Yes);
    if (retries && !isCancelled) UpdateBackOff(*delivery, report);
}

// A sender that reported nobody has done for all alike; of one that did, those
// whom it left out have not got the message.
void CDispatcher::CState::FillInUnreported(CDelivery& delivery, bool isSent, const std::string& reason) {
    const bool isAccepted = isSent && delivery.outcomes.empty();
    if (!isAccepted) {
        const std::lock_guard guard(lock);
        if (isCancelling) return;
    }
    std::vector<CRecipientReport> filledIn;
    for (const std::string& recipient : delivery.recipients) {
        if (delivery.outcomes.contains(recipient)) continue;
        filledIn.push_back({.recipient = recipient,
                            .outcome = isAccepted ? RecipientOutcome::Accepted : RecipientOutcome::Refused,
                            .host = {},
                            .code = 0,
                            .enhanced = {},
                            .text = isAccepted ? std::string() : reason});
    }
    if (filledIn.empty()) return;
    AppendOutcomes(delivery.info, filledIn, isAccepted ? DeliveryStatus::Accepted : DeliveryStatus::Failed,
                   CDeliveryLog::Flush::Yes);
    for (const CRecipientReport& outcome : filledIn)
        delivery.outcomes[outcome.recipient] = outcome;
    if (isAccepted) UpdateBackOff(delivery, {.recipients = std::move(filledIn)});
}

CSettlement CDispatcher::CState::Sort(const CDelivery& delivery) const {
    CSettlement sorted;
    for (const std::string& recipient : delivery.recipients) {
        const auto found = delivery.outcomes.find(recipient);
        if (found == delivery.outcomes.end()) {
            sorted.untried.push_back(recipient);
            continue;
        }
        auto& kind = found->second.outcome == RecipientOutcome::Accepted  ? sorted.accepted
                     : found->second.outcome == RecipientOutcome::Refused ? sorted.refused
                                                                          : sorted.deferred;
        kind.push_back(found->second);
    }
    // They go back into the queue together.
    if (!sorted.untried.empty()) {
        for (const CRecipientReport& outcome : sorted.deferred)
            sorted.untried.push_back(outcome.recipient);
        sorted.deferred.clear();
    }
    return sorted;
}

void CDispatcher::CState::TellSent(const std::string& messageFile, const CDelivery& delivery,
                                   const CSettlement& outcome) {
    if (events == nullptr || outcome.accepted.empty()) return;
    try {
        events->OnMessageSent(messageFile, delivery.info.returnPath, Join(GetRecipients(outcome.accepted), ","));
    } catch (const std::exception& exception) {  // of the program's sink: filed it must be, or it is sent again
        LogFormat(LogLevelFailure, "Error while reporting that message \"%s\" was sent: %s", messageFile.c_str(),
                  exception.what());
    }
}

void CDispatcher::CState::EndDelivery(const std::string& messageFile, bool isSent) {
    const std::string reason = isSent ? std::string() : DescribeLastError();
    CDelivery* delivery = FindDelivery(messageFile);
    if (delivery == nullptr) return;
    FillInUnreported(*delivery, isSent, reason);
    const CSettlement outcome = Sort(*delivery);
    TellSent(messageFile, *delivery, outcome);
    Settle(messageFile, *delivery, outcome);
    if (!outcome.refused.empty() || !outcome.deferred.empty() || !outcome.untried.empty()) {
        const std::string& text = !outcome.refused.empty()    ? outcome.refused.front().text
                                  : !outcome.deferred.empty() ? outcome.deferred.front().text
                                                              : reason;
        LogFormat(LogLevelNotice, "Message in file \"%s\" was not sent%s: %s", messageFile.c_str(),
                  outcome.accepted.empty() ? "" : " to everybody", text.c_str());
    }
    const std::lock_guard guard(lock);
    totals.sent += outcome.accepted.empty() ? 0 : 1;
    totals.failed += outcome.refused.empty() ? 0 : 1;
}

bool CDispatcher::CState::KeepsSent() const {
    return config != nullptr && config->GetNumber("SaveSentMessages") > 0;
}

// A "sent" line on disk means that no file names the recipient any more.
bool CDispatcher::CState::FileSent(const std::string& messageFile, const CMessageInfo& info,
                                   std::span<const CRecipientReport> accepted) {
    const bool isFiled = KeepsSent() ? MoveTo(AccountFolder::Sent, messageFile, CBatchFolder::Times::Keep) == Moved::Yes
                                     : RemoveSent(messageFile);
    if (isFiled) AppendSent(info, accepted);
    return isFiled;
}

bool CDispatcher::CState::KeepRecipients(const std::string& path, std::span<const std::string> recipients) {
    return RewriteMessageHeader(path, MakeRecipientHeader(recipients), RecipientFields);
}

// After a failure the message stays claimed as it is: the next start knows who
// has it.
bool CDispatcher::CState::Settle(const std::string& messageFile, const CDelivery& delivery,
                                 const CSettlement& outcome) {
    if (outcome.accepted.size() == delivery.recipients.size()) {
        FileSent(messageFile, delivery.info, outcome.accepted);
        return true;
    }
    if (outcome.CountKinds() > 1 && !KeepRest(messageFile, outcome)) {
        LogFormat(LogLevelFailure, "Error while filing message \"%s\", which stays there until the next start: %s",
                  messageFile.c_str(), DescribeLastError().c_str());
        return false;
    }
    AppendSent(delivery.info, outcome.accepted);
    return FileRest(messageFile, delivery.info, outcome);
}

// Leaves the claimed file for one kind of recipients.
bool CDispatcher::CState::KeepRest(const std::string& messageFile, const CSettlement& outcome) {
    std::string copy;
    const auto copyTo = [&](AccountFolder folder, const std::string& header) {
        CBatchFolder* target = account.GetFolder(folder);
        return target != nullptr &&
               target->AddMessage(messageFile, CBatchFolder::Transfer::Copy, CBatchFolder::Times::Keep, header, copy);
    };
    const std::vector<std::string> refused = GetRecipients(outcome.refused);
    std::vector<std::string> rest = outcome.untried;
    if (rest.empty()) rest = GetRecipients(outcome.deferred);
    if (!rest.empty() && !refused.empty()) {
        // The first override counts, whether the older one can be removed or not.
        if (!copyTo(AccountFolder::Errors, MakeRecipientHeader(refused))) return false;
        KeepRecipients(copy, refused);
    }
    if (!outcome.accepted.empty() && KeepsSent() && !copyTo(AccountFolder::Sent, {})) return false;
    return KeepRecipients(messageFile, rest.empty() ? refused : rest);
}

bool CDispatcher::CState::FileRest(const std::string& messageFile, const CMessageInfo& info,
                                   const CSettlement& outcome) {
    if (outcome.untried.empty() && !outcome.deferred.empty()) return Defer(messageFile, info, outcome.deferred);
    const auto folder = outcome.untried.empty() ? AccountFolder::Errors : AccountFolder::Waiting;
    return MoveTo(folder, messageFile, CBatchFolder::Times::Keep) != Moved::No;
}

// Nobody can be named, and the log must say so all the same.
void CDispatcher::CState::FileUnusable(const std::string& messageFile, const CMessageInfo& info) {
    const std::string reason = DescribeLastError();
    AppendOutcomes(info, std::array{CRecipientReport{.recipient = {}, .host = {}, .enhanced = {}, .text = reason}},
                   DeliveryStatus::Failed, CDeliveryLog::Flush::Yes);
    MoveTo(AccountFolder::Errors, messageFile, CBatchFolder::Times::Keep);
    LogFormat(LogLevelNotice, "Message in file \"%s\" was not sent: %s", messageFile.c_str(), reason.c_str());
    const std::lock_guard guard(lock);
    ++totals.failed;
}

void CDispatcher::CState::EndJob(const std::string& messageFile) {
    const std::lock_guard guard(lock);
    const auto found = inFlight.find(messageFile);
    if (found != inFlight.end()) {
        for (const std::string& destination : found->second.probed)
            backOff.OnProbeLost(destination);
        inFlight.erase(found);
    }
    --inProgress;
    jobEnded.notify_all();
}

}  // namespace SendDaemon
