#include "engine/membertable.h"

#include <array>

#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr int ColumnCount = CMemberTable::PropertiesColumn;

constexpr std::array<CColumnDescription, ColumnCount> MakeColumns() {
    std::array<CColumnDescription, ColumnCount> columns{{
        {ColumnType::Text, 128, 512, "E-mail"},
        {ColumnType::Text, 30, 512, "First name"},
        {ColumnType::Text, 30, 512, "Middle name"},
        {ColumnType::Text, 30, 512, "Last name"},
        {ColumnType::Text, 512, 512, "Name"},
        {ColumnType::Text, 4, 512, "Mode"},
    }};
    for (std::size_t i = CMemberTable::FirstSlotColumn - 1; i + 1 < columns.size(); ++i) {
        columns[i] = {ColumnType::StoredText, 1, 4096, "Field"};
    }
    columns.back() = {ColumnType::StoredText, 1, 8192, "Properties"};
    return columns;
}

constexpr auto MemberColumns = MakeColumns();

}  // namespace

std::span<const CColumnDescription> CMemberTable::Columns() {
    return MemberColumns;
}

std::int32_t CMemberTable::LimitOf(Column column) {
    if (column < AddressColumn || column > ModeColumn) {
        ThrowInternalError("Shared/Engine/membertable", __LINE__, InternalErrorKind::InvalidArguments);
    }
    return MemberColumns[static_cast<std::size_t>(column - 1)].size;
}

int CMemberTable::SlotColumn(int slot) {
    if (slot < 0 || slot >= CMember::SlotCount) {
        ThrowInternalError("Shared/Engine/membertable", __LINE__, InternalErrorKind::InvalidArguments);
    }
    return FirstSlotColumn + slot;
}

std::int32_t CMemberTable::GetMode() {
    return LeadingNumber(ReadText(ModeColumn));
}
void CMemberTable::SetMode(std::int32_t mode) {
    WriteText(ModeColumn, std::to_string(mode));
}
