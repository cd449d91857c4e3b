#include "net/pop3listing.h"

#include <algorithm>

namespace Net {

Pop3Message CPop3Listing::Get(std::size_t index) const {
    const CEntry& entry = m_entries.at(index);
    return {entry.number, entry.size, std::string_view(m_uids).substr(entry.uidStart, entry.uidLength)};
}

std::size_t CPop3Listing::Find(std::uint32_t number) const {
    const auto found = std::lower_bound(m_entries.begin(), m_entries.end(), number,
                                        [](const CEntry& entry, std::uint32_t value) { return entry.number < value; });
    const bool isThere = found != m_entries.end() && found->number == number;
    return isThere ? static_cast<std::size_t>(found - m_entries.begin()) : m_entries.size();
}

void CPop3Listing::Clear() noexcept {
    m_entries.clear();
    m_uids.clear();
}

void CPop3Listing::Add(std::uint32_t number, std::uint64_t size) {
    m_entries.push_back({size, number, 0, 0});
}

void CPop3Listing::SetUid(std::size_t index, std::string_view uid) {
    CEntry& entry = m_entries.at(index);
    entry.uidStart = static_cast<std::uint32_t>(m_uids.size());
    entry.uidLength = static_cast<std::uint8_t>(uid.size());
    m_uids += uid;
}

bool CPop3Listing::Sort() {
    const auto isLess = [](const CEntry& a, const CEntry& b) { return a.number < b.number; };
    const auto isSame = [](const CEntry& a, const CEntry& b) { return a.number == b.number; };
    std::sort(m_entries.begin(), m_entries.end(), isLess);
    return std::adjacent_find(m_entries.begin(), m_entries.end(), isSame) == m_entries.end();
}

}  // namespace Net
