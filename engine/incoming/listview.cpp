#include "engine/incoming/listview.h"

#include <algorithm>
#include <utility>

#include "app/datafolder.h"
#include "app/settings.h"
#include "engine/catalogue.h"
#include "engine/incoming/cycletransaction.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t Hour = 3600;
constexpr std::int64_t Day = 24 * Hour;
constexpr int DefaultReplyInterval = 24;      // hours
constexpr int DefaultSignatureLifetime = 14;  // days

// A clock that was put back makes it neither at once again nor never again.
bool IsWithin(const std::optional<std::int64_t>& time, std::int64_t now, std::int64_t interval) {
    return time && std::max(*time - now, now - *time) < interval;
}

}  // namespace

CListView::CListView(std::uint32_t listNumber, std::int64_t now, const CCycleState* state)
    : m_now(now), m_accessList(listNumber), m_state(state) {
    m_list.number = listNumber;
    Refresh(now);
    m_store.Open(listNumber, CMemberStore::Access::ReadOnly);
    m_store.RefuseDamaged();
}

void CListView::Refresh(std::int64_t now) {
    m_now = now;
    if (!ReadBroadcastList(m_list.number, m_list)) throw CLhvException(DescribeLastError());
    CCatalogue& catalogue = GetCatalogue();
    m_isModerated = catalogue.GetFlag(catalogue.FindByNumber(m_list.number), ListColumn::Moderated);
    m_replyInterval = ReadReplyInterval();
    m_signatureLifetime = std::max(1, ReadSetting("Service", "SignatureLifetime", DefaultSignatureLifetime)) * Day;
}

const std::optional<CMember>* CListView::FindChange(std::string_view address) const {
    const std::string key = LowerAscii(address);
    for (const MemberChanges* changes : {&m_ofMessage, &m_ofGroup}) {
        const auto change = changes->find(key);
        if (change != changes->end()) return &change->second;
    }
    return nullptr;
}

bool CListView::FindMember(std::string_view address, CMember& member) {
    if (const std::optional<CMember>* change = FindChange(address)) {
        if (*change) member = **change;
        return change->has_value();
    }
    const std::int32_t index = m_store.Find(address);
    return index != CMemberStore::None && m_store.Read(index, member);
}

bool CListView::ForEachMember(const std::function<bool(const CMemberPlace& place)>& visit) {
    bool goesOn = true;
    const bool hasChanges = !m_ofMessage.empty() || !m_ofGroup.empty();
    CMemberPlace place;
    m_store.ForEach(NoSlots, [&](std::int32_t index, const CMember& member) {
        if (hasChanges && FindChange(member.address)) return true;
        place.index = index;
        place.member = member;
        return goesOn = visit(place);
    });
    place.index = CMemberStore::None;
    for (const MemberChanges* changes : {&m_ofMessage, &m_ofGroup}) {
        for (const auto& [key, change] : *changes) {
            if (!goesOn) return false;
            if (!change || (changes == &m_ofGroup && m_ofMessage.contains(key))) continue;
            place.member = *change;
            goesOn = visit(place);
        }
    }
    return goesOn;
}

// At another index when the table was packed meanwhile.
bool CListView::ReadMember(CMemberPlace& place, SlotMask wanted) {
    if (place.index == CMemberStore::None) return true;
    const std::string address = place.member.address;
    if (m_store.Read(place.index, place.member, wanted) && EqualNoCase(place.member.address, address)) return true;
    place.index = m_store.Find(address);
    return place.index != CMemberStore::None && m_store.Read(place.index, place.member, wanted);
}

Access CListView::CheckAccess(std::string_view address) {
    return m_accessList.Check(address);
}

// The time that counts is that of the receipt: a mailbox that was not read for
// weeks makes no token older.
bool CListView::HasTokenFor(const CIncomingMessage& message, std::string_view address) {
    if (address.empty()) return false;
    if (!m_hasSecret && !m_signer.Load(GetDataFolder())) throw CLhvException(DescribeLastError());
    m_hasSecret = true;
    const bool isStamped = message.received > 0 && message.received <= m_now;
    return m_signer.Verify(message.signedSubject, m_list.guid, address, isStamped ? message.received : m_now,
                           m_signatureLifetime);
}

bool CListView::IsReplyToSigned(const CIncomingMessage& message) {
    return message.signedSubject != message.subject && HasTokenFor(message, message.sender.address);
}

bool CListView::IsSigned(const CIncomingMessage& message) {
    return IsReplyToSigned(message) || (message.signedSubject != message.subject &&
                                        std::any_of(message.to.begin(), message.to.end(), [&](const CMailbox& mailbox) {
                                            return HasTokenFor(message, mailbox.address);
                                        }));
}

bool CListView::WasAnswered(std::uint32_t ruleId, std::string_view address) {
    if (m_replyInterval == 0) return false;
    const std::string key = AnswerKey(ruleId, address);
    std::string value;
    return GetMark(MarkKind::Answer, key, value) && IsWithin(ParseNumber(value), m_now, m_replyInterval);
}

PostedBefore CListView::WasPosted(std::string_view key) {
    std::string value;
    if (!GetMark(MarkKind::Posted, key, value)) return PostedBefore::No;
    const std::size_t end = value.find(' ');
    if (!IsWithin(ParseNumber(std::string_view(value).substr(0, end)), m_now, ReadPostInterval()))
        return PostedBefore::No;
    return end == std::string::npos ? PostedBefore::Posted : PostedBefore::Held;
}

bool CListView::GetMark(MarkKind kind, std::string_view key, std::string& value) const {
    return m_transaction ? m_transaction->GetMark(kind, key, value) : m_state && m_state->GetMark(kind, key, value);
}

void CListView::PutMember(const CMember& member) {
    m_ofMessage.insert_or_assign(LowerAscii(member.address), member);
}

void CListView::RemoveMember(std::string_view address) {
    m_ofMessage.insert_or_assign(LowerAscii(address), std::nullopt);
}

void CListView::KeepChanges() {
    for (auto& [key, member] : m_ofMessage)
        m_ofGroup.insert_or_assign(key, std::move(member));
    m_ofMessage.clear();
}

void CListView::ForgetChanges() noexcept {
    m_ofMessage.clear();
    m_ofGroup.clear();
}

std::int64_t CListView::ReadReplyInterval() {
    return std::max(0, ReadSetting("Service", "ReplyInterval", DefaultReplyInterval)) * Hour;
}

std::int64_t CListView::ReadPostInterval() {
    const std::int64_t interval = ReadReplyInterval();
    return interval > 0 ? interval : Day;
}

std::string CListView::AnswerKey(std::uint32_t ruleId, std::string_view address) {
    return std::to_string(ruleId) + " " + LowerAscii(address);
}
