// broadcast.h - one personalised copy per member, from one message.
//
// Copies carry neither CC nor BCC, whatever the message says (one line in the
// log per broadcast); an "X-Lhv-Recipient-Override" of the message is dropped
// likewise.  A message without From is from the list: its name and address.
//
// Errors   false or Failed, with the reason in the last-error text; CLhvException
//          from the stores.
// Threads  One at a time in the process: the table of data fields is shared.
// Cost     What is the same in all copies is serialised once per list; a copy
//          costs its references and its file.

#ifndef LISTHAVEN_ENGINE_BROADCAST_H
#define LISTHAVEN_ENGINE_BROADCAST_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "engine/member.h"
#include "engine/memberstore.h"

class CMimeMessage;

struct BroadcastModes {
    bool regular = true;
    bool both = true;
    bool digest = false;

    bool Include(DeliveryMode mode) const noexcept {
        return mode == DeliveryMode::Both ? both : mode == DeliveryMode::Digest ? digest : regular;
    }
};

// What a list gives to the copies for its members.
struct BroadcastList {
    std::uint32_t number = 0;
    std::string name;
    std::string guid;
    std::string usage;
    std::string address;  // posting address; From of a message that has none
    std::string commandAddress;
    std::string authorizedAddress;
    std::string postAddress;
    std::int64_t loopProtection = 0;  // sum of 1, 2 and 8
    bool emptySender = false;         // the copies get an empty envelope sender, unless the message has one of its own
};
// From the catalogue.  False only when there is no such list; faults throw CLhvException.
bool ReadBroadcastList(std::uint32_t number, BroadcastList& list);

// Whether the copies for the list would have a sender.
bool CanSendFrom(const CMimeMessage& message, const BroadcastList& list);

enum class CopyResult {
    Made,
    Blocked,  // logged; nothing is to be written
    Skipped,  // an address that must not get into a header; logged
    Failed,
};

// How copies are made.  Both ways give the same bytes.
enum class CopyWay {
    Pattern,    // what all copies share is serialised once, where the message allows it
    WholeTree,  // each copy is a message that is finalised and written
};

// Makes the copies for one list.
class CBroadcastMaker {
public:
    explicit CBroadcastMaker(CopyWay way = CopyWay::Pattern);
    CBroadcastMaker(const CBroadcastMaker&) = delete;
    CBroadcastMaker& operator=(const CBroadcastMaker&) = delete;
    ~CBroadcastMaker();

    // identifier: of the broadcast, for "X-Lhv-Broadcast" ("": none).  Takes the
    // message apart; the message may change or go afterwards.
    bool Open(const CMimeMessage& message, const BroadcastList& list, std::string_view identifier);

    // The slots of custom fields that copies can need: members are to be read with these.
    SlotMask GetWantedSlots() const noexcept;

    // text: the whole copy as it goes on disk (CR LF); its memory is reused.
    // member must have the wanted slots; store and index (None: not known) are
    // asked for the others when a value refers to them.
    CopyResult Make(const CMember& member, std::int64_t now, std::string& text, CMemberStore* store = nullptr,
                    std::int32_t index = CMemberStore::None);

private:
    struct CState;
    CopyWay m_way;
    std::unique_ptr<CState> m_state;
};

struct BroadcastCounts {
    std::uint64_t copies = 0;
    std::uint64_t skipped = 0;
    std::uint64_t blocked = 0;
};

// Walks the members once and writes the copies into the queue at targetPath, with
// the pause of the setting GenerationPause behind each.  cancel is asked before
// each member; what was written by then stays.  Does not survive the process:
// broadcastjob.h does.
bool GenerateBroadcast(const CMimeMessage& message, std::uint32_t listNumber, const BroadcastModes& modes,
                       std::string_view targetPath, const std::function<bool()>& cancel, BroadcastCounts& counts);

#endif  // LISTHAVEN_ENGINE_BROADCAST_H
