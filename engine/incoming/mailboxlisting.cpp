#include "engine/incoming/mailboxlisting.h"

#include <algorithm>
#include <utility>

namespace {

bool AreSame(const Net::Pop3Message& a, const Net::Pop3Message& b) {
    return a.number == b.number && a.size == b.size && a.uid == b.uid;
}

}  // namespace

template <class IsWanted>
CMailboxListing::Order CMailboxListing::Sort(std::size_t count, IsWanted isWanted) const {
    Order order;
    order.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (isWanted(i)) order.push_back(static_cast<std::uint32_t>(i));
    }
    std::sort(order.begin(), order.end(),
              [this](std::size_t a, std::size_t b) { return GetKeyOrUid(a) < GetKeyOrUid(b); });
    return order;
}

bool CMailboxListing::Replace(Net::CPop3Listing listing, std::size_t first) {
    CMailboxListing fresh;
    fresh.m_listing = std::move(listing);
    fresh.m_known.resize(fresh.GetCount());
    fresh.DropDoubledIds();
    bool isSame = fresh.GetCount() >= first;
    for (std::size_t i = 0; i < first && isSame; ++i)
        isSame = AreSame(fresh.Get(i), Get(i));
    if (isSame) {
        std::copy_n(m_known.begin(), first, fresh.m_known.begin());
        fresh.m_keys = std::move(m_keys);
    } else {
        fresh.TakeCompared(*this);
    }
    *this = std::move(fresh);
    return isSame;
}

// Ids that several messages have are none.
void CMailboxListing::DropDoubledIds() {
    const Order order = SortAll();
    const auto isSame = [this](std::size_t a, std::size_t b) { return Get(a).uid == Get(b).uid; };
    for (auto at = order.begin(); at != order.end();) {
        const auto end = std::find_if_not(at + 1, order.end(), [&](std::size_t other) { return isSame(*at, other); });
        const bool isDoubled = end - at > 1;
        for (; at != end; ++at)
            if (isDoubled) m_listing.SetUid(*at, {});
    }
}

void CMailboxListing::TakeCompared(const CMailboxListing& before) {
    const Order compared = before.Sort(
        before.GetCount(), [&](std::size_t i) { return before.IsCompared(i) && !before.Get(i).uid.empty(); });
    for (std::size_t i = 0; i < GetCount() && !compared.empty(); ++i)
        m_known[i].isCompared = before.Contains(compared, Get(i).uid);
}

void CMailboxListing::NoteKey(std::size_t index, std::string_view key) {
    CKnown& known = m_known.at(index);
    known.hasKey = !key.empty();
    if (!Get(index).uid.empty()) return;
    known.keyStart = static_cast<std::uint32_t>(m_keys.size());
    known.keyLength = static_cast<std::uint8_t>(key.size());
    m_keys += key;
}

std::string_view CMailboxListing::GetKey(std::size_t index) const {
    return m_known.at(index).hasKey ? GetKeyOrUid(index) : std::string_view();
}

std::string_view CMailboxListing::GetKeyOrUid(std::size_t index) const {
    const std::string_view uid = Get(index).uid;
    if (!uid.empty()) return uid;
    return std::string_view(m_keys).substr(m_known[index].keyStart, m_known[index].keyLength);
}

void CMailboxListing::ForgetDeleted() noexcept {
    for (CKnown& known : m_known)
        known.isDeleted = false;
}

CMailboxListing::Order CMailboxListing::SortNoted(std::size_t first) const {
    return Sort(first, [this](std::size_t i) { return m_known[i].hasKey; });
}

CMailboxListing::Order CMailboxListing::SortAll() const {
    return Sort(GetCount(), [this](std::size_t i) { return !GetKeyOrUid(i).empty(); });
}

CMailboxListing::Order CMailboxListing::SortDeleted() const {
    return Sort(GetCount(), [this](std::size_t i) { return m_known[i].isDeleted; });
}

bool CMailboxListing::Contains(const Order& order, std::string_view key) const {
    const auto found = std::lower_bound(order.begin(), order.end(), key, [this](std::size_t i, std::string_view value) {
        return GetKeyOrUid(i) < value;
    });
    return found != order.end() && GetKeyOrUid(*found) == key;
}
