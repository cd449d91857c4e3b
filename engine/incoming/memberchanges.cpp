#include "engine/incoming/memberchanges.h"

#include "engine/blockedaddresses.h"
#include "engine/displayname.h"

namespace {

void TakeName(const CMember& said, CMember& member) {
    if (!said.name.empty()) {
        const CDisplayName parts = SplitDisplayName(said.name);
        member.name = said.name;
        member.firstName = parts.first;
        member.middleName = parts.middle;
        member.lastName = parts.last;
    }
    if (!said.firstName.empty()) member.firstName = said.firstName;
    if (!said.middleName.empty()) member.middleName = said.middleName;
    if (!said.lastName.empty()) member.lastName = said.lastName;
    if (member.name.empty()) member.name = JoinDisplayName({member.firstName, member.middleName, member.lastName});
}

void TakeWhatIsSaid(const CMember& said, CMember& member) {
    TakeName(said, member);
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        if (const std::string_view value = said.GetField(slot); !value.empty()) member.SetField(slot, value);
    }
}

void ForgetBounces(CMember& member) {
    for (const char* key : {"Inactive", "Bounces", "LastBounce"})
        member.SetProperty(key, "");
}

}  // namespace

MemberChange AddSubscriber(CListView& view, CBlockedAddresses& blocked, const CMember& said, std::string& what) {
    CMember member;
    const bool isThere = view.FindMember(said.address, member);
    const bool wasActive = isThere && !member.IsInactive();
    if (!isThere) {
        member.address = said.address;
        member.mode = said.mode;
    }
    TakeWhatIsSaid(said, member);
    if (std::string reason; !PrepareMember(member, reason)) {
        what = "not added: " + reason;
        return MemberChange::None;
    }
    if (blocked.IsBlocked(member.address)) {
        what = member.address + " is on the list of blocked addresses and was not added";
        return MemberChange::None;
    }
    if (!wasActive) {
        ForgetBounces(member);
        member.SetProperty("Subscribed", std::to_string(view.GetTime()));
    }
    view.PutMember(member);
    what = member.address + (wasActive ? " is a member already" : isThere ? " is active again" : " was added");
    return wasActive ? MemberChange::Updated : MemberChange::Added;
}

MemberChange UpdateSubscriber(CListView& view, const CMember& said, std::string& what) {
    CMember member;
    if (!view.FindMember(said.address, member)) return MemberChange::None;
    TakeWhatIsSaid(said, member);
    if (std::string reason; !PrepareMember(member, reason)) {
        what = "not updated: " + reason;
        return MemberChange::None;
    }
    view.PutMember(member);
    what = member.address + " was updated";
    return MemberChange::Updated;
}

MemberChange RemoveSubscriber(CListView& view, std::string_view address, CMember& removed, std::string& what) {
    if (!view.FindMember(address, removed)) {
        what = std::string(address) + " is no member";
        return MemberChange::None;
    }
    view.RemoveMember(address);
    what = removed.address + " was removed";
    return MemberChange::Removed;
}

MemberChange SetSubscriberMode(CListView& view, std::string_view address, DeliveryMode mode, std::string& what) {
    CMember member;
    if (!view.FindMember(address, member)) {
        what = std::string(address) + " is no member";
        return MemberChange::None;
    }
    member.mode = mode;
    view.PutMember(member);
    what = member.address + " has the mode " + std::string(DeliveryModeName(mode)) + " now";
    return MemberChange::Updated;
}
