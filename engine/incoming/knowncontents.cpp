#include "engine/incoming/knowncontents.h"

#include <algorithm>

std::string_view CKnownContents::ContentOf(const CEntry& entry) const noexcept {
    return {m_texts.data() + entry.start, entry.contentLength};
}

// The first of several with one content is the one that counts.
void CKnownContents::Load(const CCycleState& state, const std::function<bool(std::string_view key)>& isMet) {
    m_isLoaded = true;
    state.ForEachMark(MarkKind::ServerMessage, [&](std::string_view key, std::string_view value) {
        const CServerMark mark = CServerMark::Parse(value);
        const bool isThere = mark.state == CServerMark::State::Keep || mark.state == CServerMark::State::Delete;
        if (!isThere || mark.content.empty() || mark.content.size() > UINT16_MAX || isMet(key)) return true;
        m_entries.push_back({mark.lastSeen, mark.size, m_texts.size(), static_cast<std::uint16_t>(mark.content.size()),
                             static_cast<std::uint16_t>(key.size()), mark.state, false});
        m_texts.append(mark.content).append(key);
        return true;
    });
    std::stable_sort(m_entries.begin(), m_entries.end(),
                     [this](const CEntry& a, const CEntry& b) { return ContentOf(a) < ContentOf(b); });
}

std::size_t CKnownContents::FindEntry(std::string_view content) const noexcept {
    const auto found =
        std::lower_bound(m_entries.begin(), m_entries.end(), content,
                         [this](const CEntry& entry, std::string_view value) { return ContentOf(entry) < value; });
    const bool isThere = found != m_entries.end() && ContentOf(*found) == content && !found->isForgotten;
    return isThere ? static_cast<std::size_t>(found - m_entries.begin()) : m_entries.size();
}

bool CKnownContents::Find(std::string_view content, std::string& key, CServerMark& mark) const {
    const std::size_t index = FindEntry(content);
    if (index == m_entries.size()) return false;
    const CEntry& entry = m_entries[index];
    key = m_texts.substr(entry.start + entry.contentLength, entry.keyLength);
    mark = {entry.state, entry.lastSeen, std::string(content), entry.size};
    return true;
}

void CKnownContents::Forget(std::string_view content) noexcept {
    const std::size_t index = FindEntry(content);
    if (index < m_entries.size()) m_entries[index].isForgotten = true;
}
