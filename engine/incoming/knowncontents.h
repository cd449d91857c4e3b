// knowncontents.h - the known messages of a mailbox by their contents: a server
// that gives its messages other ids must not make them come twice.
//
// Threads  One at a time.
// Memory   Two blocks, however many there are.

#ifndef LISTHAVEN_ENGINE_INCOMING_KNOWNCONTENTS_H
#define LISTHAVEN_ENGINE_INCOMING_KNOWNCONTENTS_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/incoming/fetchmarks.h"

class CKnownContents {
public:
    bool IsLoaded() const noexcept { return m_isLoaded; }
    // Those that may still lie on the server, but for the keys that are met already.
    void Load(const CCycleState& state, const std::function<bool(std::string_view key)>& isMet);
    // False when none has that content.  The key: of the mark.
    bool Find(std::string_view content, std::string& key, CServerMark& mark) const;
    void Forget(std::string_view content) noexcept;

private:
    struct CEntry {
        std::int64_t lastSeen;
        std::uint64_t size;
        std::size_t start;  // of the content, behind which the key is
        std::uint16_t contentLength;
        std::uint16_t keyLength;
        CServerMark::State state;
        bool isForgotten;
    };
    std::string_view ContentOf(const CEntry& entry) const noexcept;
    std::size_t FindEntry(std::string_view content) const noexcept;  // their number when there is none

    bool m_isLoaded = false;
    std::vector<CEntry> m_entries;  // by content
    std::string m_texts;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_KNOWNCONTENTS_H
