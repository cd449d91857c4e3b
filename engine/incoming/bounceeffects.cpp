#include "engine/incoming/bounceeffects.h"

#include <set>
#include <utility>

#include "engine/incoming/bouncerecords.h"
#include "utility/text.h"

namespace {

// A notice that names thousands is not kept whole for each of them.
constexpr std::size_t WholeCopies = 8;

struct CBounceWork {
    const CIncomingMessage& message;
    const RemovedMembers& removed;
    CListView& view;
    CMessageEffects& effects;
    std::string folder;
    std::size_t kept = 0;
    std::set<std::string> settled{};  // members
};

void Keep(CBounceWork& work, const CBouncedRecipient& bounce, BounceEffect effect, const CMember* removed) {
    std::string record = MakeBounceRecord(bounce, work.message.bounce.kind, effect, removed, work.view.GetTime());
    if (work.kept++ < WholeCopies)
        work.effects.copies.push_back({work.folder, std::move(record)});
    else
        work.effects.messages.push_back({work.folder, LfToCrLf(record + work.message.headerText + "\n")});
}

BounceEffect Count(CBounceWork& work, CMember& member, const CBouncedRecipient& bounce) {
    const std::string before = member.properties;
    const bool isDeactivated =
        CountBounce(member, bounce, work.message.bounce.kind, work.view.GetTime(), ReadSoftBounceLimit());
    if (member.properties == before) return BounceEffect::None;
    work.view.PutMember(member);
    return isDeactivated ? BounceEffect::Deactivated : BounceEffect::Counted;
}

// False when the address is no member's.  The record names the member, whatever
// address the notice gave him.
bool Settle(CBounceWork& work, CBouncedRecipient bounce, const std::string& address) {
    if (address.empty()) return false;
    std::string key = LowerAscii(address);
    bounce.address = address;
    if (work.settled.contains(key)) return true;
    const auto removed = work.removed.find(key);
    CMember member;
    if (removed != work.removed.end()) {
        Keep(work, bounce, BounceEffect::Removed, &removed->second);
    } else if (work.view.FindMember(address, member)) {
        const BounceEffect effect = Count(work, member, bounce);
        Keep(work, bounce, effect, nullptr);
        if (effect != BounceEffect::None)
            work.effects.Say(member.address + ": " + std::string(BounceEffectName(effect)));
    } else {
        return false;
    }
    work.settled.insert(std::move(key));
    return true;
}

}  // namespace

void AddBounceEffects(const CIncomingMessage& message, const RemovedMembers& removed, CListView& view,
                      CMessageEffects& effects) {
    CBounceWork work{message, removed, view, effects, GetBouncesFolder(view.GetList().number)};
    const CBouncedRecipient* first = nullptr;
    for (const CBouncedRecipient& bounce : message.bounce.recipients) {
        if (first == nullptr) first = &bounce;
        if (!Settle(work, bounce, bounce.address)) Settle(work, bounce, bounce.original);
    }
    if (work.kept == 0) Keep(work, first ? *first : CBouncedRecipient{}, BounceEffect::None, nullptr);
    effects.totals.bounces = 1;
    const std::string_view what = message.bounce.kind == NoticeKind::AbuseReport ? "abuse report" : "bounce";
    effects.Say(std::string(what) + " (" + std::string(BounceClassName(message.bounce.GetClass())) + ")" +
                (first ? " of " + first->address : std::string()));
}
