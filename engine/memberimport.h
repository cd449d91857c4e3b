// memberimport.h - the members of a list as the target of an import.
//
// Errors   CLhvException, as the member store.
// Threads  One thread at a time.

#ifndef LISTHAVEN_ENGINE_MEMBERIMPORT_H
#define LISTHAVEN_ENGINE_MEMBERIMPORT_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/customfields.h"
#include "engine/importaddresses.h"
#include "engine/memberstore.h"

namespace ImportAddresses {

// Both must outlive it.
class CMemberTarget : public IImportTarget {
public:
    CMemberTarget(CMemberStore& members, const CCustomFields& fields, ExistingMember onExisting)
        : m_members(members), m_fields(fields), m_onExisting(onExisting) {}

    int FindField(std::string_view columnName) const override;
    void Begin(const MemberParts& columns) override { m_columns = columns; }
    std::vector<MemberOutcome> Take(std::span<CMember> members, std::span<const MemberParts> given) override;

private:
    bool HasGap(const MemberParts& given) const noexcept;
    void FillGaps(CMember& member, const MemberParts& given);

    CMemberStore& m_members;
    const CCustomFields& m_fields;
    ExistingMember m_onExisting;
    MemberParts m_columns;
    CMember m_stored;  // reused
};

}  // namespace ImportAddresses

#endif  // LISTHAVEN_ENGINE_MEMBERIMPORT_H
