#include "engine/memberimport.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "utility/text.h"

namespace ImportAddresses {

namespace {

std::string BareName(std::string_view name) {
    std::string bare = LowerAscii(name);
    std::erase_if(bare, [](char c) { return c == ' ' || c == '-' || c == '_'; });
    return bare;
}

}  // namespace

// As it is written, else without regard to blanks, hyphens and underscores.
int CMemberTarget::FindField(std::string_view columnName) const {
    const int exact = m_fields.FindSlot(columnName);
    if (exact >= 0) return exact;
    const std::string wanted = BareName(columnName);
    for (int slot = 0; slot < CCustomFields::SlotCount; ++slot) {
        const CustomField& field = m_fields.GetSlot(slot);
        if (!field.IsFree() && BareName(field.name) == wanted) return slot;
    }
    return -1;
}

bool CMemberTarget::HasGap(const MemberParts& given) const noexcept {
    return (m_columns.name && !given.name) || (m_columns.mode && !given.mode) ||
           (m_columns.slots & ~given.slots) != NoSlots;
}

// A member is updated in all columns of the file; where its row has no value, it
// gets the stored one.
void CMemberTarget::FillGaps(CMember& member, const MemberParts& given) {
    const std::int32_t index = m_members.Find(member.address);
    const SlotMask slots = m_columns.slots & ~given.slots;
    if (index == CMemberStore::None || !m_members.Read(index, m_stored, slots)) return;
    if (!given.name) {
        member.name = m_stored.name;
        member.firstName = m_stored.firstName;
        member.middleName = m_stored.middleName;
        member.lastName = m_stored.lastName;
    }
    if (!given.mode) member.mode = m_stored.mode;
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        if (((slots >> slot) & 1) != 0) member.SetField(slot, m_stored.GetField(slot));
    }
}

std::vector<MemberOutcome> CMemberTarget::Take(std::span<CMember> members, std::span<const MemberParts> given) {
    if (m_onExisting == ExistingMember::Skip) return m_members.AddMany(members, m_onExisting);
    std::vector<MemberOutcome> outcomes;
    std::unordered_set<std::string> waiting;  // not yet stored
    std::size_t stored = 0;
    const auto store = [&](std::size_t end) {
        std::vector<MemberOutcome> some =
            m_members.AddMany(members.subspan(stored, end - stored), m_onExisting, m_columns);
        std::move(some.begin(), some.end(), std::back_inserter(outcomes));
        waiting.clear();
        stored = end;
    };
    for (std::size_t i = 0; i < members.size(); ++i) {
        std::string key = LowerAscii(members[i].address);
        if (HasGap(given[i])) {
            if (waiting.contains(key)) store(i);
            FillGaps(members[i], given[i]);
        }
        waiting.insert(std::move(key));
    }
    store(members.size());
    return outcomes;
}

}  // namespace ImportAddresses
