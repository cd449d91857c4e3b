// inboxmessage.h - a message that is to be processed: a file of the inbox, or one
// that was just fetched and is only in memory.
//
// What was just fetched is still on the server.  Its mark goes into the
// transaction of what it leads to, so either both are on the disk or neither is,
// and it is deleted on the server only behind that.
//
// Errors   false, with the reason in the last-error text.

#ifndef LISTHAVEN_ENGINE_INCOMING_INBOXMESSAGE_H
#define LISTHAVEN_ENGINE_INCOMING_INBOXMESSAGE_H

#include <cstdint>
#include <memory>
#include <string>

class CCycleState;
class CCycleTransaction;

struct CInboxMessage {
    CInboxMessage() = default;
    explicit CInboxMessage(std::string file) : path(std::move(file)) {}

    std::string path;                         // "": it is in no file
    std::shared_ptr<const std::string> text;  // then: what the file would hold
    std::string key;                          // of its mark, and the mark
    std::string mark;
    bool isSaved = false;  // a copy goes into Archive/<n>/Received

    bool IsInMemory() const noexcept { return text != nullptr; }
    bool IsShort() const;                               // looked at in a moment
    std::string GetName() const;                        // for the log, until its subject is known
    bool WasProcessed(const CCycleState& state) const;  // it is gone, or its mark is there
};

// Of one in memory; nothing to do for others.
bool AddMarkOf(const CInboxMessage& message, std::uint32_t listNumber, CCycleTransaction& transaction);

// Likewise, for one that cannot be processed now: it waits in the inbox.  Its path in newPath.
bool PutIntoInbox(const CInboxMessage& message, std::uint32_t listNumber, CCycleTransaction& transaction,
                  std::string& newPath);

#endif  // LISTHAVEN_ENGINE_INCOMING_INBOXMESSAGE_H
