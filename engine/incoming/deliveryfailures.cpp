#include "engine/incoming/deliveryfailures.h"

#include <string>
#include <utility>
#include <vector>

#include "engine/bounces/bounceclassifier.h"
#include "engine/broadcast.h"
#include "engine/catalogue.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/listaccount.h"
#include "engine/memberstore.h"
#include "engine/messagetemplate.h"
#include "senddaemon/deliveryposition.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

using SendDaemon::CDeliveryLine;
using SendDaemon::CDeliveryPosition;

constexpr std::size_t GroupSize = 64;              // notices
constexpr std::int64_t FirstReading = 1795219200;  // 2026-11-21: no list before it had its ledger read
constexpr std::string_view LedgerKey = "delivery.log";

struct CLedgerWork {
    BroadcastList list;
    CMemberStore members;
    std::string root;
    CDeliveryPosition position;
    std::vector<CDeliveryLine> refused;
};

bool IsRefusal(const CDeliveryLine& line) {
    return line.status == SendDaemon::DeliveryStatus::Failed &&
           (line.code / 100 == 5 || line.enhanced.starts_with("5."));
}

bool IsNamed(const std::vector<CDeliveryLine>& lines, std::string_view recipient) {
    for (const CDeliveryLine& line : lines) {
        if (EqualNoCase(line.recipient, recipient)) return true;
    }
    return false;
}

// True when there may be more behind the position.
bool CollectGroup(CLedgerWork& work, bool& isRead) {
    work.refused.clear();
    isRead = SendDaemon::ReadDeliveriesFrom(work.root, work.position, [&](const CDeliveryLine& line) {
        const bool counts = IsRefusal(line) && !IsNamed(work.refused, line.recipient) &&
                            work.members.Find(line.recipient) != CMemberStore::None;
        if (counts) work.refused.push_back(line);
        return work.refused.size() < GroupSize;
    });
    return isRead && work.refused.size() >= GroupSize;
}

std::string MakeNotice(const BroadcastList& list, const CDeliveryLine& line, std::int64_t now) {
    CBouncedRecipient recipient;
    recipient.address = line.recipient;
    recipient.status = line.enhanced;
    recipient.replyCode = line.code;
    recipient.bounceClass = ClassifyReply(line.code, line.enhanced, line.text);
    recipient.evidence = line.text;
    return std::string(ControlHeader::Received) + ": " + std::to_string(now) + "\r\n" +
           MakeDeliveryNotice(list.address, recipient, line.host, line.text, line.message, now);
}

bool CommitGroup(const CLedgerWork& work, CCycleState& state, std::int64_t now) {
    CCycleTransaction transaction(state);
    for (const CDeliveryLine& line : work.refused) {
        if (!transaction.AddMessage(GetInboxFolder(work.list.number), MakeNotice(work.list, line, now))) return false;
    }
    transaction.SetMark(MarkKind::LedgerPosition, LedgerKey, FormatDeliveryPosition(work.position));
    return transaction.Commit();
}

bool OpenLedger(CLedgerWork& work, std::uint32_t listNumber, const CCycleState& state) {
    if (!ReadBroadcastList(listNumber, work.list)) return false;
    work.root = GetAccountRoot(listNumber);
    work.members.Open(listNumber, CMemberStore::Access::ReadOnly);
    std::string stored;
    if (state.GetMark(MarkKind::LedgerPosition, LedgerKey, stored) &&
        SendDaemon::ParseDeliveryPosition(stored, work.position))
        return true;
    work.position = {};
    const std::int32_t index = GetCatalogue().FindByNumber(listNumber);
    return GetCatalogue().GetNumber(index, ListColumn::Created) >= FirstReading ||
           SendDaemon::FindDeliveryEnd(work.root, work.position);
}

}  // namespace

bool AddDeliveryNotices(std::uint32_t listNumber, CCycleState& state, std::int64_t now, std::uint64_t& added) {
    CLedgerWork work;
    if (!OpenLedger(work, listNumber, state)) return false;
    std::string stored;
    state.GetMark(MarkKind::LedgerPosition, LedgerKey, stored);
    for (bool isMore = true; isMore;) {
        bool isRead = false;
        isMore = CollectGroup(work, isRead);
        if (!isRead) return false;
        if (FormatDeliveryPosition(work.position) == stored) return true;
        if (!CommitGroup(work, state, now)) return false;
        added += work.refused.size();
    }
    return true;
}
