// memberstore.h - the members of one list: table, texts and index as one thing.
//
// Members are known by record index (from 0) or by address; addresses compare
// without regard to the case of A-Z, and no two members of a list have the same.
// An index keeps its meaning until Pack(): removed members leave a hole.  A
// list without members has no files.
//
// Errors   Everything throws CLhvException: the system's fault, a damaged file,
//          a member that cannot be stored.  What threw has changed nothing, or
//          whole members of a group.
// Sharing  Several objects, threads and processes may have one list open.  Each
//          operation holds the list's named mutex, sees what others have done
//          by then, and leaves nothing cached that could go stale.  A
//          CMemberStore itself belongs to one thread at a time.
// Crash    What has returned is found again.  The index holds every member at
//          any instant; an entry that has become wrong is noticed when it is
//          used, an index that does not fit the table is rebuilt from it.

#ifndef LISTHAVEN_ENGINE_MEMBERSTORE_H
#define LISTHAVEN_ENGINE_MEMBERSTORE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/member.h"
#include "utility/lhvexception.h"

using SlotMask = std::uint64_t;  // bit k: slot k
inline constexpr SlotMask NoSlots = 0;
inline constexpr SlotMask AllSlots = ~SlotMask{0};

// What of a member an update changes; the rest stays as it is stored.
struct MemberParts {
    bool firstName = true;
    bool middleName = true;
    bool lastName = true;
    bool name = true;
    bool mode = true;
    bool properties = true;
    SlotMask slots = AllSlots;
};

enum class ExistingMember { Skip, Update };

struct MemberOutcome {
    enum class Kind { Added, Updated, Skipped, Rejected };
    Kind kind = Kind::Rejected;
    std::string reason;  // of a rejection
};

// A record that is neither a member's nor a removed one's.
class CMembersDamaged : public CLhvException {
public:
    using CLhvException::CLhvException;
};

class CMemberFiles;

class CMemberHold;

class CMemberStore {
public:
    enum class Access { ReadWrite, ReadOnly };

    static constexpr std::int32_t None = -1;

    // While it lives nobody else changes the members of the open store, and
    // reading them costs no locks: for many reads in a moment.  What this thread
    // changes through another object is seen only afterwards.  CLhvException.
    class CKeep {
    public:
        explicit CKeep(CMemberStore& store);
        CKeep(const CKeep&) = delete;
        CKeep& operator=(const CKeep&) = delete;
        ~CKeep();

    private:
        std::unique_ptr<CMemberHold> m_hold;
    };

    CMemberStore();
    CMemberStore(CMemberStore&&) noexcept;
    CMemberStore& operator=(CMemberStore&&) noexcept;
    ~CMemberStore();  // closes

    void Open(std::uint32_t listNumber, Access access = Access::ReadWrite);  // in the data folder
    void OpenPath(const std::string& tablePath, Access access = Access::ReadWrite);
    bool IsOpen() const noexcept;
    void Close();

    std::int32_t GetRecordCount();                // removed ones too: all indexes are below it
    std::int32_t Count();                         // members
    std::int32_t Find(std::string_view address);  // record index or None

    // False when there is no member at the index (any more).  One read for the
    // record and one per wanted slot that holds a text; other slots come empty.
    // The strings of "member" are reused.
    bool Read(std::int32_t index, CMember& member, SlotMask wanted = AllSlots);

    // In record order, until visit returns false.  The mutex is free while visit
    // runs, so it may use this list; members added meanwhile may be seen.  Throws
    // when the list is packed meanwhile.
    void ForEach(SlotMask wanted, const std::function<bool(std::int32_t index, const CMember& member)>& visit);

    std::int32_t Add(const CMember& member);  // throws when the address is there already
    // Also the address, when it differs.  False when there is no such member.
    bool Update(std::int32_t index, const CMember& member, const MemberParts& parts = {});
    bool Remove(std::int32_t index);  // false when there is no such member

    // One outcome per member, in order; a second one of an address counts as
    // existing.  One lock, one index transaction and one write of records for
    // all of them: meant for groups of about a thousand.
    std::vector<MemberOutcome> AddMany(std::span<const CMember> members, ExistingMember onExisting,
                                       const MemberParts& updated = {});

    void Pack();          // drops the records of removed members: indexes change
    void RebuildIndex();  // from the table, whatever is there

    // A damaged record is otherwise passed over like a removed one.  From now on to its
    // closing, the store throws CMembersDamaged when it meets one: for mail, which must not
    // take a member for nobody.
    void RefuseDamaged();
    bool HasForeignRecords();  // a quick look: the file holds other bytes than members

    // Addresses, in lower case, of members whose records were cut off, overwritten or taken
    // away behind the store's back, and "record N" for damaged records of which nobody knows
    // whose they were.  They are remembered in n.MBR.lost by whatever makes the index anew, and
    // by NoteLost(), until all are members again or ForgetLost() is called.
    std::vector<std::string> FindLost();
    void NoteLost();    // looks at all records
    void ForgetLost();  // the list goes on with those who are left

private:
    struct CState;
    CMemberFiles& Files();  // throws when closed

    std::unique_ptr<CState> m_state;
};

// For the operator: who is lost, that the list's mail waits, and what to do.  "" when nobody is.
std::string DescribeLostMembers(const std::vector<std::string>& lost);

#endif  // LISTHAVEN_ENGINE_MEMBERSTORE_H
