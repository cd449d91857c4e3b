// waitingmessages.h - what lies in a list's inbox, in the order of receipt.
//
// Errors   false, with the reason in the last-error text.
// Threads  Any.
// Cost     Some fifty bytes of memory per message; reads the start of each file.

#ifndef LISTHAVEN_ENGINE_INCOMING_WAITINGMESSAGES_H
#define LISTHAVEN_ENGINE_INCOMING_WAITINGMESSAGES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A snapshot: messages that come meanwhile are for the next one.
class CWaitingMessages {
public:
    bool Load(std::string_view queueFolder);  // one that is missing is empty

    std::size_t GetCount() const noexcept { return m_messages.size(); }
    std::string GetPath(std::size_t index) const;

private:
    // By X-Lhv-Received; in the same second as the files were written.
    struct CMessage {
        std::int64_t received = 0;
        std::int64_t written = 0;
        std::uint32_t batch = 0;
        std::string name;
    };
    bool Add(const std::string& path);

    std::vector<std::string> m_batches;
    std::vector<CMessage> m_messages;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_WAITINGMESSAGES_H
