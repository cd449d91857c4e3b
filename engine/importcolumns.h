// importcolumns.h - what the columns of an import file mean.
//
// Threads  One thread at a time.

#ifndef LISTHAVEN_ENGINE_IMPORTCOLUMNS_H
#define LISTHAVEN_ENGINE_IMPORTCOLUMNS_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/importaddresses.h"

namespace ImportAddresses {

enum class HeaderKind {
    Header,
    NoHeader,         // the row is a member already
    NoAddressColumn,  // it is a header, but of something else
};

class CColumns {
public:
    HeaderKind ReadHeader(std::span<const std::string_view> cells, const IImportTarget& target);

    const MemberParts& GetParts() const noexcept { return m_parts; }
    const std::vector<std::string>& GetIgnored() const noexcept { return m_ignored; }

    // False, with the reason, when the row is none; names are as long as in the
    // row.  given: what it has a value for.  The strings of "member" are reused.
    bool ReadMember(std::span<const std::string_view> cells, CMember& member, MemberParts& given,
                    std::string& reason) const;

private:
    enum class Kind { Ignored, Address, Name, FirstName, MiddleName, LastName, Mode, Field };
    struct CColumn {
        Kind kind;
        int slot;
    };

    static Kind StandardKind(std::string_view name);
    bool IsTaken(const CColumn& column) const;
    void AddColumn(std::string_view name, const IImportTarget& target);
    void SetParts();
    bool ReadCells(std::span<const std::string_view> cells, CMember& member, MemberParts& given,
                   std::string& reason) const;
    void CompleteName(CMember& member, MemberParts& given) const;

    bool m_hasHeader = false;
    bool m_hasName = false;
    bool m_hasNameParts = false;
    std::vector<CColumn> m_columns;
    std::vector<std::string> m_ignored;
    MemberParts m_parts;
};

}  // namespace ImportAddresses

#endif  // LISTHAVEN_ENGINE_IMPORTCOLUMNS_H
