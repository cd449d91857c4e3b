// cycletransaction.h - changes of a mail cycle that happen all or not at all.
//
// Files are prepared under .tmp names.  Commit() flushes them, all at once; then
// it records what is to become of them, of members, of broadcasts and of marks
// in one transaction of the list's state database, and carries it out.  What a
// crash interrupts is carried out by Recover(); carrying out twice is the same
// as once.
//
// Marks are small facts that must go with the files: which messages of the
// POP3 server are known, which rule has answered whom.
//
// Errors   false, with the reason in the last-error text.  A Commit() that
//          failed before the record was written has changed nothing and may be
//          tried again, unless what was prepared could not be flushed: then it
//          has to be prepared anew.  One that failed later is finished by
//          Recover(), and until then nothing more can be prepared or committed.
// Threads  One at a time; one process at a time per list: CCycleLock, held for
//          as long as the state is open.
// Crash    See above.  Carried out are, in this order: new files, members,
//          broadcasts, moves, removals.  So if the database is lost meanwhile,
//          the message that was being processed is still there: its answers
//          may go out twice, but nothing is lost.

#ifndef LISTHAVEN_ENGINE_INCOMING_CYCLETRANSACTION_H
#define LISTHAVEN_ENGINE_INCOMING_CYCLETRANSACTION_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/broadcast.h"
#include "engine/member.h"

class CNewFile;

std::string GetInboxFolder(std::uint32_t listNumber);     // Inbox/<n>, without separator, as all of these
std::string GetAcceptedFolder(std::uint32_t listNumber);  // Inbox/<n>/.Accepted: from the moderator
std::string GetFailedFolder(std::uint32_t listNumber);    // Inbox/<n>/.Failed: could not be processed
std::string GetPostsFolder(std::uint32_t listNumber);     // Inbox/<n>/.Posts: of broadcasts that are not created yet
std::string GetDoneFolder(std::uint32_t listNumber);      // Inbox/<n>/.Done: processed in the cycle under way
std::string GetPendingFolder(std::uint32_t listNumber);   // Pending/<n>
std::string GetArchiveFolder(std::uint32_t listNumber);   // Archive/<n>, which holds the next two
std::string GetReceivedFolder(std::uint32_t listNumber);  // Archive/<n>/Received: copies of what was fetched
std::string GetBouncesFolder(std::uint32_t listNumber);   // Archive/<n>/Bounces

enum class MarkKind : std::uint8_t {
    ServerMessage = 1,   // key of a message on the POP3 server: "keep" or "delete", and when it was last seen
    Answer = 2,          // rule id and address: time of the last automatic answer
    LedgerPosition = 3,  // how far the delivery log has been read
    Attempts = 4,        // failed attempts at a message in the inbox
    Posted = 5,          // sender and text of a member's post: its time, and "held" once a repeated one waits
};

// Held by whoever works on the mail of a list.
class CCycleLock {
public:
    explicit CCycleLock(std::uint32_t listNumber);
    CCycleLock(const CCycleLock&) = delete;
    CCycleLock& operator=(const CCycleLock&) = delete;
    ~CCycleLock();
    bool IsHeld() const noexcept;  // false: someone else is at it

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

// The state database of a list, Inbox/<n>/.state.
class CCycleState {
public:
    CCycleState();
    CCycleState(const CCycleState&) = delete;
    CCycleState& operator=(const CCycleState&) = delete;
    ~CCycleState();

    bool Open(std::uint32_t listNumber);  // made when missing
    // That what was interrupted puts all of these addresses, in lower case, among the members.
    bool IsToPut(const std::vector<std::string>& addresses) const;
    bool Recover();    // finishes what was interrupted, removes .tmp files that nothing names
    bool EmptyDone();  // removes what was processed: at the end of a cycle, and in Recover()
    // False: none.  Throws when that cannot be told, as does that of a transaction.
    bool GetMark(MarkKind kind, std::string_view key, std::string& value) const;
    // In the order of the keys until visit returns false; visit must not commit
    // anything.  A key of more than 400 bytes comes as what it was shortened to.
    bool ForEachMark(MarkKind kind,
                     const std::function<bool(std::string_view key, std::string_view value)>& visit) const;
    // In one transaction: those for which drop is true.
    bool DropMarks(MarkKind kind, const std::function<bool(std::string_view key, std::string_view value)>& drop);

private:
    friend class CCycleTransaction;
    struct CState;
    std::unique_ptr<CState> m_state;
};

class CCycleTransaction {
public:
    explicit CCycleTransaction(CCycleState& state);
    CCycleTransaction(const CCycleTransaction&) = delete;
    CCycleTransaction& operator=(const CCycleTransaction&) = delete;
    ~CCycleTransaction();  // without Commit(): what was prepared is removed

    // text (CR LF) becomes a message of the queue folder at that path; its final path in newPath.
    // None of it is visible before Commit(), which also tells what goes wrong with a text without newPath.
    bool AddMessage(std::string_view queueFolder, std::string_view text, std::string* newPath = nullptr);
    // Likewise a copy of a file, with header lines (LF) put in front of its own.
    bool AddCopy(std::string_view queueFolder, std::string_view source, std::string_view extraHeaders = {},
                 std::string* newPath = nullptr);
    bool AddCopyOf(std::string_view queueFolder, std::string_view text, std::string_view extraHeaders);  // of a text
    // For a message that comes piece by piece: the first makes the file, the second takes it over.
    bool BeginMessage(std::string_view queueFolder, CNewFile& file);
    bool FinishMessage(CNewFile& file, std::string* newPath = nullptr);
    // The file of the message that is added next gets a later time than those of all
    // before it: for folders that are read in that order.
    void KeepOrder();
    // The message added last also lies in another queue folder; where the file system can, as the same file.
    bool AddTwin(std::string_view queueFolder);
    void MoveMessage(std::string_view source, std::string_view queueFolder);  // one rename
    void RemoveMessage(std::string_view path);  // one of the inbox goes to .Done until the cycle ends
    void PutMember(const CMember& member);      // as it is to be afterwards: added or updated
    void RemoveMember(std::string_view address);
    // Gets its identifier now; the job is there after Commit().  text: the
    // message with its control headers.  Fails for one that cannot be sent.
    bool AddBroadcast(std::string_view text, const BroadcastModes& modes, std::string& identifier);
    void SetMark(MarkKind kind, std::string_view key, std::string_view value);    // "" removes
    bool GetMark(MarkKind kind, std::string_view key, std::string& value) const;  // with what was set here

    bool IsEmpty() const noexcept;
    std::size_t CountFiles() const noexcept;  // that are prepared
    bool Commit();                            // afterwards it is empty and can be used again

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_CYCLETRANSACTION_H
