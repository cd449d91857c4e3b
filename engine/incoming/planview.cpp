#include "engine/incoming/planview.h"

#include "utility/text.h"

bool CPlanView::FindMember(std::string_view address, CMember& member) {
    const auto changed = m_changed.find(LowerAscii(address));
    if (changed == m_changed.end()) return m_list.FindMember(address, member);
    if (changed->second) member = *changed->second;
    return changed->second.has_value();
}

void CPlanView::Put(const CMember& said) {
    CMember member;
    if (!FindMember(said.address, member)) member = said;
    member.SetProperty("Inactive", "");
    PutWhole(member);
}

void CPlanView::PutWhole(const CMember& member) {
    m_changed[LowerAscii(member.address)] = member;
}

void CPlanView::Remove(std::string_view address) {
    m_changed[LowerAscii(address)].reset();
}
