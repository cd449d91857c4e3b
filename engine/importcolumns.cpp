#include "engine/importcolumns.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "engine/displayname.h"
#include "mime/mailbox.h"
#include "utility/text.h"

namespace ImportAddresses {

namespace {

// Lower case, without what does not tell names of columns apart.
std::string BareName(std::string_view name) {
    std::string bare = LowerAscii(name);
    std::erase_if(bare, [](char c) { return c == ' ' || c == '-' || c == '_' || c == '\t'; });
    return bare;
}

std::optional<DeliveryMode> ReadMode(std::string_view word) {
    if (word.empty()) return DeliveryMode::Regular;
    if (word.size() == 1 && word[0] >= '0' && word[0] <= '2') return DeliveryModeOfNumber(word[0] - '0');
    return ParseDeliveryMode(word);
}

// The address of a cell, and the name where the cell holds one.
bool ReadAddress(std::string_view cell, CMember& member, std::string& name, std::string& reason) {
    if (cell.empty()) {
        reason = "There is no address.";
        return false;
    }
    if (IsPlausibleAddress(cell, &reason)) {
        member.address = cell;
        return true;
    }
    if (cell.find_first_of("<( ") == std::string_view::npos) return false;
    if (cell.find_first_of("\r\n") != std::string_view::npos) return false;  // who knows which of the lines was meant
    std::vector<CMailbox> mailboxes = ParseMailboxes(cell);
    if (mailboxes.size() != 1 || !IsPlausibleAddress(mailboxes[0].address)) return false;
    member.address = mailboxes[0].address;
    name = std::move(mailboxes[0].displayName);
    return true;
}

void SplitName(CMember& member) {
    CDisplayName parts = SplitDisplayName(member.name);
    member.firstName = std::move(parts.first);
    member.middleName = std::move(parts.middle);
    member.lastName = std::move(parts.last);
}

void ClearMember(CMember& member) {
    for (std::string* text :
         {&member.address, &member.name, &member.firstName, &member.middleName, &member.lastName, &member.properties}) {
        text->clear();
    }
    for (std::string& field : member.fields)
        field.clear();
    member.mode = DeliveryMode::Regular;
}

}  // namespace

CColumns::Kind CColumns::StandardKind(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, Kind>, 14> Names = {{{"email", Kind::Address},
                                                                          {"emailaddress", Kind::Address},
                                                                          {"address", Kind::Address},
                                                                          {"mail", Kind::Address},
                                                                          {"name", Kind::Name},
                                                                          {"fullname", Kind::Name},
                                                                          {"displayname", Kind::Name},
                                                                          {"firstname", Kind::FirstName},
                                                                          {"givenname", Kind::FirstName},
                                                                          {"middlename", Kind::MiddleName},
                                                                          {"lastname", Kind::LastName},
                                                                          {"surname", Kind::LastName},
                                                                          {"mode", Kind::Mode},
                                                                          {"deliverymode", Kind::Mode}}};
    const std::string bare = BareName(name);
    const auto found = std::find_if(Names.begin(), Names.end(), [&](const auto& entry) { return entry.first == bare; });
    return found == Names.end() ? Kind::Ignored : found->second;
}

bool CColumns::IsTaken(const CColumn& column) const {
    return std::any_of(m_columns.begin(), m_columns.end(),
                       [&](const CColumn& c) { return c.kind == column.kind && c.slot == column.slot; });
}

void CColumns::AddColumn(std::string_view name, const IImportTarget& target) {
    const CColumn standard{StandardKind(name), -1};
    const CColumn field{Kind::Field, name.empty() ? -1 : target.FindField(name)};
    const std::string bare = BareName(name);
    if (standard.kind != Kind::Ignored && !IsTaken(standard)) {
        m_columns.push_back(standard);
    } else if (field.slot >= 0 && !IsTaken(field)) {
        m_columns.push_back(field);
    } else {
        m_columns.push_back({Kind::Ignored, -1});
        // The two columns of a file of rejected rows are no surprise.
        if (!name.empty() && bare != "line" && bare != "reason") m_ignored.emplace_back(name);
    }
}

HeaderKind CColumns::ReadHeader(std::span<const std::string_view> cells, const IImportTarget& target) {
    const auto isAddress = [](std::string_view cell) { return cell.find('@') != std::string_view::npos; };
    const auto isStandard = [](std::string_view cell) { return StandardKind(cell) != Kind::Ignored; };
    const bool isHeader = std::none_of(cells.begin(), cells.end(), isAddress) &&
                          (cells.size() > 1 || std::any_of(cells.begin(), cells.end(), isStandard));
    m_hasHeader = isHeader;
    if (isHeader) {
        for (const std::string_view cell : cells)
            AddColumn(cell, target);
    }
    SetParts();
    if (!isHeader) return HeaderKind::NoHeader;
    return IsTaken({Kind::Address, -1}) ? HeaderKind::Header : HeaderKind::NoAddressColumn;
}

void CColumns::SetParts() {
    const auto has = [&](Kind kind) { return IsTaken({kind, -1}); };
    m_hasName = !m_hasHeader || has(Kind::Name);
    m_hasNameParts = has(Kind::FirstName) || has(Kind::MiddleName) || has(Kind::LastName);
    const bool splitsName = m_hasName && !m_hasNameParts;
    m_parts.name = m_hasName || m_hasNameParts;
    m_parts.firstName = splitsName || has(Kind::FirstName);
    m_parts.middleName = splitsName || has(Kind::MiddleName);
    m_parts.lastName = splitsName || has(Kind::LastName);
    m_parts.mode = has(Kind::Mode);
    m_parts.properties = false;
    m_parts.slots = NoSlots;
    for (const CColumn& column : m_columns) {
        if (column.kind == Kind::Field) m_parts.slots |= SlotMask{1} << column.slot;
    }
}

// What the file says of the name in one way is made of what it says in the other.
void CColumns::CompleteName(CMember& member, MemberParts& given) const {
    if (m_hasNameParts && !m_hasName && member.name.empty()) {
        member.name = JoinDisplayName({member.firstName, member.middleName, member.lastName});
    } else if (!m_hasNameParts && !member.name.empty()) {
        SplitName(member);
    }
    given = m_parts;
    given.name = m_parts.name && !(member.name.empty() && member.firstName.empty() && member.middleName.empty() &&
                                   member.lastName.empty());
}

bool CColumns::ReadMember(std::span<const std::string_view> cells, CMember& member, MemberParts& given,
                          std::string& reason) const {
    ClearMember(member);
    if (m_hasHeader) return ReadCells(cells, member, given, reason);
    std::string joined;  // "Berg, Anna <address>" has a comma in the name
    const bool isOneCell = cells.size() == 1 || !IsPlausibleAddress(cells[0]);
    for (const std::string_view cell : cells.subspan(0, isOneCell ? cells.size() : 0)) {
        joined.append(joined.empty() ? "" : ", ").append(cell);
    }
    if (!ReadAddress(isOneCell ? joined : cells[0], member, member.name, reason)) return false;
    for (std::size_t i = 1; !isOneCell && i < cells.size(); ++i) {
        if (cells[i].find('@') != std::string_view::npos) {
            reason = "There is more than one address in the row.";
            return false;
        }
        if (i == 1) member.name = cells[i];
    }
    CompleteName(member, given);
    return true;
}

bool CColumns::ReadCells(std::span<const std::string_view> cells, CMember& member, MemberParts& given,
                         std::string& reason) const {
    // A separator that should have been quoted has moved all that follows.
    const auto beyond = cells.subspan(std::min(cells.size(), m_columns.size()));
    if (!std::all_of(beyond.begin(), beyond.end(), [](std::string_view cell) { return Trim(cell).empty(); })) {
        reason = "The row has more cells than the header.";
        return false;
    }
    std::string_view address;
    std::string_view mode;
    SlotMask filled = NoSlots;
    for (std::size_t i = 0; i < std::min(cells.size(), m_columns.size()); ++i) {
        switch (m_columns[i].kind) {
            case Kind::Address:
                address = Trim(cells[i]);
                break;
            case Kind::Name:
                member.name = cells[i];
                break;
            case Kind::FirstName:
                member.firstName = cells[i];
                break;
            case Kind::MiddleName:
                member.middleName = cells[i];
                break;
            case Kind::LastName:
                member.lastName = cells[i];
                break;
            case Kind::Mode:
                mode = Trim(cells[i]);
                break;
            case Kind::Field:
                member.SetField(m_columns[i].slot, cells[i]);
                if (!cells[i].empty()) filled |= SlotMask{1} << m_columns[i].slot;
                break;
            case Kind::Ignored:
                break;
        }
    }
    std::string nameBesideAddress;
    if (!ReadAddress(address, member, nameBesideAddress, reason)) return false;
    const auto deliveryMode = ReadMode(mode);
    if (!deliveryMode) {
        reason = "The mode \"" + std::string(mode.substr(0, 40)) + "\" is none: regular, both or digest.";
        return false;
    }
    member.mode = *deliveryMode;
    if (member.name.empty() && !m_hasNameParts) member.name = std::move(nameBesideAddress);
    CompleteName(member, given);
    given.mode = m_parts.mode && !mode.empty();
    given.slots = filled;
    return true;
}

}  // namespace ImportAddresses
