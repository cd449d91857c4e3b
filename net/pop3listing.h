// pop3listing.h - the messages of a mailbox as a server lists them.
//
// Errors   Nothing throws but std::bad_alloc.
// Threads  One at a time.
// Memory   Two blocks, however many messages there are: those of a full mailbox
//          go back to the system whole, and leave no holes between other things.

#ifndef LISTHAVEN_NET_POP3LISTING_H
#define LISTHAVEN_NET_POP3LISTING_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Net {

struct Pop3Message {
    std::uint32_t number = 0;
    std::uint64_t size = 0;  // octets, as the server says
    std::string_view uid;    // "" when it is not known; valid until the listing changes
};

class CPop3Listing {
public:
    std::size_t GetCount() const noexcept { return m_entries.size(); }
    bool IsEmpty() const noexcept { return m_entries.empty(); }
    Pop3Message Get(std::size_t index) const;
    std::size_t Find(std::uint32_t number) const;  // in a sorted one; GetCount() when it is not there

    void Clear() noexcept;
    void Add(std::uint32_t number, std::uint64_t size);
    void SetUid(std::size_t index, std::string_view uid);  // at most 255 bytes
    bool Sort();                                           // by number; false when one is there twice

private:
    struct CEntry {
        std::uint64_t size;
        std::uint32_t number;
        std::uint32_t uidStart;
        std::uint8_t uidLength;
    };
    std::vector<CEntry> m_entries;
    std::string m_uids;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_POP3LISTING_H
