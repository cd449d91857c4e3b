// mailfetch.h - from the list's POP3 mailbox to whoever processes messages.
//
// What a message leads to, or the message itself, is on disk, whole and flushed,
// with a mark in the same transaction, before the server is told to delete it;
// what a crash left undeleted is known again by its unique id (or, where the
// server has none or gives one twice, by its content) and only deleted.
// Control headers (X-Lhv-, X-Zq-) are taken out of the message's header, and
// X-Lhv-Received and X-Lhv-Server-Id are put in front of it (fetchedheader.h).
//
// Messages of up to 1 MiB stay in memory; a thread fetches the next ones
// meanwhile.  Longer ones go into files of the inbox.
//
// Of a message above the size limit only the header is fetched, with
// X-Lhv-Too-Large and the size in octets; of one that turns out longer while it
// comes, likewise.  Without a limit of the settings it is HardLimit.
//
// What is known of a message is forgotten when the server has not listed it for
// a while: a mailbox that is empty for once, for its disk is not there, must not
// make everything come twice.
//
// Errors   false or Failed, with the reason in the last-error text; what was
//          fetched by then stays.  A message within which the connection breaks is
//          left out; Finish() says so when all else is done.
// Threads  One; Cancel() from any other at any moment, also before Open(): then
//          nothing goes on any more.
// Memory   What LIST and UIDL say, at most 500,000 messages; two groups of messages.

#ifndef LISTHAVEN_ENGINE_INCOMING_MAILFETCH_H
#define LISTHAVEN_ENGINE_INCOMING_MAILFETCH_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct CInboxMessage;
class CCycleState;
class CCycleTransaction;
namespace SendDaemon {
struct CSmtpSettings;
}

struct CFetchOptions {
    std::string host;          // "": the list has no mailbox
    std::uint16_t port = 110;  // 995: TLS from the first byte
    std::string login;
    std::string password;
    int timeoutSeconds = 60;
    std::string accountRoot;  // its keys PopTlsMode and TlsCaFile; "": TLS where it is offered
    bool leaveCopies = false;
    bool limitSize = false;
    std::uint64_t maxSize = 5120000;
    bool removeTooLarge = false;
    bool keepIds = false;       // for 90 days after they were listed last, instead of 7
    bool saveIncoming = false;  // a copy of each in Archive/<n>/Received
};
bool ReadFetchOptions(std::uint32_t listNumber, CFetchOptions& options);
bool MakePopSettings(const CFetchOptions& options, SendDaemon::CSmtpSettings& settings);

struct CFetchTotals {
    std::uint64_t fetched = 0;
    std::uint64_t known = 0;     // skipped
    std::uint64_t tooLarge = 0;  // only their headers were fetched
    std::uint64_t deleted = 0;   // on the server
    std::uint64_t vanished = 0;
};

class CMailFetch {
public:
    enum class Step : std::uint8_t { Group, End, Failed };
    static constexpr std::size_t GroupSize = 512;                    // messages
    static constexpr std::uint64_t GroupBytes = 8ull * 1024 * 1024;  // a group ends beyond this
    static constexpr std::uint64_t HardLimit = 1ull << 30;           // of a message, in octets

    CMailFetch(std::uint32_t listNumber, CCycleState& state, CFetchOptions options);
    CMailFetch(const CMailFetch&) = delete;
    CMailFetch& operator=(const CMailFetch&) = delete;
    ~CMailFetch();

    // How long others can wait; to be called before Open().  When it is over no
    // further message is begun, when half of it has gone by once more the
    // conversation ends within the message at hand, and Finish(), for which as
    // much is left again, deletes what was done.  0: no limit.
    void LimitTime(std::chrono::milliseconds limit);
    bool IsCut() const;                         // that time is over, and messages are left
    void StopWhen(std::function<bool()> stop);  // then Next() ends behind the message at hand, and nothing more comes
    bool Open();                                // logs in and lists
    // As the server has them.  Those in memory are the caller's to process or to
    // put into the inbox, with their marks: Finish() deletes what has one.  While
    // he does, the next ones come.
    Step Next(std::int64_t now, std::vector<CInboxMessage>& group);
    bool Finish(std::int64_t now);  // deletes on the server what is marked so, and logs out
    const CFetchTotals& GetTotals() const noexcept;
    void Cancel() noexcept;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

// What a rule does that removes a message from the server: Finish() will.  False
// when the id is not known there (any more).
bool MarkForRemoval(CCycleTransaction& transaction, std::string_view serverId);

// The header of a fetched message: control headers taken out, our own lines put
// in front.  block: the first bytes of the message, up to the end of its header.
std::string CleanFetchedHeader(std::string_view header, std::int64_t now, std::string_view serverId);

#endif  // LISTHAVEN_ENGINE_INCOMING_MAILFETCH_H
