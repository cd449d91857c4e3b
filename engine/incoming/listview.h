// listview.h - a list as the rules see it: members, access list, signed
// subjects, who has been answered, with the changes of the moment on top.
//
// Members changed for one message are seen at once; they are kept for the next
// ones, or dropped when the message comes to nothing.
//
// Errors   CLhvException, also from the constructor: no such list, a damaged
//          table.
// Threads  One at a time.

#ifndef LISTHAVEN_ENGINE_INCOMING_LISTVIEW_H
#define LISTHAVEN_ENGINE_INCOMING_LISTVIEW_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "engine/incoming/cycletransaction.h"
#include "engine/memberstore.h"
#include "engine/rules/rulematch.h"
#include "engine/signature.h"

class CListView : public IListView {
public:
    // By address in lower case; none: removed.
    using MemberChanges = std::map<std::string, std::optional<CMember>, std::less<>>;

    // now: seconds since 1970.  Without a state nobody has been answered yet.
    CListView(std::uint32_t listNumber, std::int64_t now, const CCycleState* state = nullptr);

    const BroadcastList& GetList() const override { return m_list; }
    bool IsModerated() const override { return m_isModerated; }
    bool FindMember(std::string_view address, CMember& member) override;
    Access CheckAccess(std::string_view address) override;
    bool IsReplyToSigned(const CIncomingMessage& message) override;
    bool IsSigned(const CIncomingMessage& message) override;
    bool WasAnswered(std::uint32_t ruleId, std::string_view address) override;
    PostedBefore WasPosted(std::string_view key) override;

    struct CMemberPlace {
        std::int32_t index = CMemberStore::None;  // None: changed, and in the table only later
        CMember member;
    };
    // Those who are members with the changes so far, those of the table without
    // their slots.  False when visit has ended it.
    bool ForEachMember(const std::function<bool(const CMemberPlace& place)>& visit);
    // With the wanted slots, as it is now.  False when it is gone.
    bool ReadMember(CMemberPlace& place, SlotMask wanted);
    CMemberStore& GetStore() noexcept { return m_store; }  // as it is without the changes

    void Refresh(std::int64_t now);  // settings, list and clock of now
    std::int64_t GetTime() const noexcept { return m_now; }

    // Marks that were set there count; nullptr: none.
    void UseTransaction(const CCycleTransaction* transaction) noexcept { m_transaction = transaction; }

    void PutMember(const CMember& member);
    void RemoveMember(std::string_view address);
    const MemberChanges& GetMessageChanges() const noexcept { return m_ofMessage; }
    void KeepChanges();                                   // of the message
    void DropChanges() noexcept { m_ofMessage.clear(); }  // of the message
    void ForgetChanges() noexcept;                        // all: the store has them, or nobody ever will

    std::int64_t GetReplyInterval() const noexcept { return m_replyInterval; }  // seconds; 0: no limit
    static std::int64_t ReadReplyInterval();
    static std::int64_t ReadPostInterval();  // a day where that is 0
    static std::string AnswerKey(std::uint32_t ruleId, std::string_view address);

private:
    const std::optional<CMember>* FindChange(std::string_view address) const;  // nullptr: none
    bool GetMark(MarkKind kind, std::string_view key, std::string& value) const;
    bool HasTokenFor(const CIncomingMessage& message, std::string_view address);

    BroadcastList m_list;
    bool m_isModerated = false;
    std::int64_t m_now;
    std::int64_t m_replyInterval = 0;
    std::int64_t m_signatureLifetime = 0;
    CMemberStore m_store;
    CAccessList m_accessList;
    CSigner m_signer;
    bool m_hasSecret = false;
    const CCycleState* m_state;
    const CCycleTransaction* m_transaction = nullptr;
    MemberChanges m_ofMessage;
    MemberChanges m_ofGroup;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_LISTVIEW_H
