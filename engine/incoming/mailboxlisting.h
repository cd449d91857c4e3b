// mailboxlisting.h - the messages of a POP3 mailbox, and what a session has come
// to know of each.
//
// A message is known by its key: the unique id, or where the server has none, or
// gives one twice, what its content is known by (fetchedmessage.h).
//
// Threads  One at a time.
// Memory   Some blocks, however many messages there are (net/pop3listing.h).

#ifndef LISTHAVEN_ENGINE_INCOMING_MAILBOXLISTING_H
#define LISTHAVEN_ENGINE_INCOMING_MAILBOXLISTING_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "net/pop3listing.h"

class CMailboxListing {
public:
    using Order = std::vector<std::uint32_t>;  // messages, by their keys

    std::size_t GetCount() const noexcept { return m_listing.GetCount(); }
    // Its uid is "" when other messages have it too.  Texts are valid until the
    // listing changes, or a key is noted.
    Net::Pop3Message Get(std::size_t index) const { return m_listing.Get(index); }

    // That of another session.  True when the first ones, so many, are the same
    // messages: then what is known of them stays.  Else only which ids were
    // compared does.
    bool Replace(Net::CPop3Listing listing, std::size_t first);

    void NoteKey(std::size_t index, std::string_view key);                         // of a message with an id, that id
    std::string_view GetKey(std::size_t index) const;                              // "" when none was noted
    std::string_view GetKeyOrUid(std::size_t index) const;                         // that, or else the id
    void NoteCompared(std::size_t index) { m_known.at(index).isCompared = true; }  // its content was seen
    bool IsCompared(std::size_t index) const { return m_known.at(index).isCompared; }
    void NoteDeleted(std::size_t index) { m_known.at(index).isDeleted = true; }
    void ForgetDeleted() noexcept;

    Order SortNoted(std::size_t first) const;  // those of the first whose key was noted
    Order SortAll() const;                     // those that have a key or an id
    Order SortDeleted() const;
    bool Contains(const Order& order, std::string_view key) const;

private:
    struct CKnown {
        std::uint32_t keyStart = 0;
        std::uint8_t keyLength = 0;  // of a message without id
        bool hasKey = false;
        bool isCompared = false;
        bool isDeleted = false;
    };
    void DropDoubledIds();
    void TakeCompared(const CMailboxListing& before);
    template <class IsWanted>
    Order Sort(std::size_t count, IsWanted isWanted) const;

    Net::CPop3Listing m_listing;
    std::vector<CKnown> m_known;
    std::string m_keys;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_MAILBOXLISTING_H
