#include "engine/rulecolumns.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::int32_t ColumnCount = 69;
constexpr std::int32_t NameLimit = 256;
constexpr std::int32_t TextLimit = 512;
constexpr std::int32_t NumberLimit = 8;

constexpr std::array<int, 9> TextColumns = {3, 24, 26, 51, 54, 55, 57, 65, 69};

struct Named {
    RuleColumn column;
    std::int32_t size;
    const char* name;
};

constexpr std::array WideColumns = {
    Named{RuleColumn::Name, NameLimit, "Name"},
    Named{RuleColumn::FromOverride, TextLimit, "FromOverride"},
    Named{RuleColumn::ReplyToOverride, TextLimit, "ReplyToOverride"},
    Named{RuleColumn::ToOverride, TextLimit, "ToOverride"},
    Named{RuleColumn::ReturnPathOverride, TextLimit, "ReturnPathOverride"},
    Named{RuleColumn::Files, TextLimit, "Files"},
    Named{RuleColumn::SubjectOverride, TextLimit, "SubjectOverride"},
    Named{RuleColumn::SubjectTag, TextLimit, "SubjectTag"},
    Named{RuleColumn::SenderOverride, TextLimit, "SenderOverride"},
};

constexpr std::array<CColumnDescription, ColumnCount> MakeRuleColumns() {
    std::array<CColumnDescription, ColumnCount> columns{};
    for (CColumnDescription& column : columns)
        column = {ColumnType::Text, NumberLimit, CSTable::OldestVersion, "Number"};
    columns[0] = {ColumnType::Counter, 4, CSTable::OldestVersion, "Id"};
    for (const Named& named : WideColumns) {
        CColumnDescription& column = columns[static_cast<std::size_t>(named.column) - 1];
        column.size = named.size;
        column.name = named.name;
    }
    return columns;
}

constexpr auto Rules = MakeRuleColumns();

constexpr std::array RuleList = {
    CColumnDescription{ColumnType::Text, 1024, CSTable::OldestVersion, "Entry"},
};

constexpr std::array ParseFields = {
    CColumnDescription{ColumnType::Text, NumberLimit, CSTable::OldestVersion, "Target"},
    CColumnDescription{ColumnType::Text, 1, CSTable::OldestVersion, "FromBody"},
    CColumnDescription{ColumnType::Text, 4096, CSTable::OldestVersion, "Pattern"},
    CColumnDescription{ColumnType::Text, 1024, CSTable::OldestVersion, "Format"},
    CColumnDescription{ColumnType::Text, 1, CSTable::OldestVersion, "Trim"},
};

constexpr std::array Access = {
    CColumnDescription{ColumnType::Text, 1, CSTable::OldestVersion, "Kind"},
    CColumnDescription{ColumnType::Text, 256, CSTable::OldestVersion, "Pattern"},
};

}  // namespace

std::span<const CColumnDescription> RuleColumns() noexcept {
    return Rules;
}

bool IsRuleTextColumn(int column) noexcept {
    return std::find(TextColumns.begin(), TextColumns.end(), column) != TextColumns.end();
}

std::span<const CColumnDescription> RuleListColumns() noexcept {
    return RuleList;
}

std::span<const CColumnDescription> ParseFieldColumns() noexcept {
    return ParseFields;
}

std::span<const CColumnDescription> AccessColumns() noexcept {
    return Access;
}
