// planview.h - a list with the changes that a plan has made to its members so far.
//
// Errors   CLhvException from the view below.
// Threads  One at a time.

#ifndef LISTHAVEN_ENGINE_INCOMING_PLANVIEW_H
#define LISTHAVEN_ENGINE_INCOMING_PLANVIEW_H

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "engine/rules/rulematch.h"

class CPlanView : public IListView {
public:
    explicit CPlanView(IListView& list) : m_list(list) {}

    const BroadcastList& GetList() const override { return m_list.GetList(); }
    bool IsModerated() const override { return m_list.IsModerated(); }
    bool FindMember(std::string_view address, CMember& member) override;
    Access CheckAccess(std::string_view address) override { return m_list.CheckAccess(address); }
    bool IsReplyToSigned(const CIncomingMessage& message) override { return m_list.IsReplyToSigned(message); }
    bool IsSigned(const CIncomingMessage& message) override { return m_list.IsSigned(message); }
    bool WasAnswered(std::uint32_t ruleId, std::string_view address) override {
        return m_list.WasAnswered(ruleId, address);
    }
    PostedBefore WasPosted(std::string_view key) override { return m_list.WasPosted(key); }

    void Put(const CMember& said);         // what is not empty there; a member of that address is active again
    void PutWhole(const CMember& member);  // as it is
    void Remove(std::string_view address);

private:
    IListView& m_list;
    std::map<std::string, std::optional<CMember>> m_changed;  // by address in lower case; none: removed
};

#endif  // LISTHAVEN_ENGINE_INCOMING_PLANVIEW_H
