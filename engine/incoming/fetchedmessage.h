// fetchedmessage.h - one message on its way from the server into the inbox.
//
// Written as it comes; of its bytes only the header is held, up to 1 MiB.
//
// Errors   false, with the reason in the last-error text.

#ifndef LISTHAVEN_ENGINE_INCOMING_FETCHEDMESSAGE_H
#define LISTHAVEN_ENGINE_INCOMING_FETCHEDMESSAGE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/fetchedheader.h"
#include "utility/uniquename.h"

inline constexpr std::size_t ContentKeySize = 65;  // "#" and a SHA-256 in hexadecimal

class CContentKey {
public:
    CContentKey();
    CContentKey(const CContentKey&) = delete;
    CContentKey& operator=(const CContentKey&) = delete;
    ~CContentKey();
    void Add(std::string_view bytes);
    std::string Finish();  // "" when the system refuses

private:
    struct CDigest;
    std::unique_ptr<CDigest> m_digest;
};

class CFetchedMessage {
public:
    static constexpr std::size_t LargestHeader = std::size_t{1} << 20;

    // key: on the server; "": it is made of the content.
    CFetchedMessage(CCycleTransaction& transaction, std::string_view key, std::int64_t now);

    bool Begin(std::string_view queueFolder);               // to be called first, for a message as a whole
    bool Add(std::string_view block, std::uint64_t limit);  // false also beyond that many octets
    bool AddHeader(std::string_view block);                 // only the header: false once it is whole
    bool Finish(std::string& path);                         // of a whole message
    bool FinishHeader(std::string_view queueFolder, std::uint64_t size, std::string& path);
    // Once everything was added; addition goes in where only the header is known.
    std::string MakeContentKey(std::string_view addition);

    bool IsTooLarge() const noexcept { return m_isTooLarge; }
    bool HasWholeHeader() const noexcept { return m_header.IsComplete() || m_head.size() >= LargestHeader; }
    std::uint64_t GetOctets() const noexcept { return m_octets; }

private:
    CCycleTransaction& m_transaction;
    std::string m_key;
    std::int64_t m_now;
    bool m_isKeyed;  // by the server
    bool m_isTooLarge = false;
    std::uint64_t m_octets = 0;
    CNewFile m_file;
    CFetchedHeader m_header;
    CContentKey m_content;
    std::string m_head;  // cleaned
    std::string m_block;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_FETCHEDMESSAGE_H
