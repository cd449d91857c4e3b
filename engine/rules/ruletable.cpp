#include "engine/rules/ruletable.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "engine/littleendian.h"
#include "engine/rulecolumns.h"
#include "engine/rules/rulefieldnames.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"

namespace {

constexpr std::byte Live{'N'};
constexpr std::byte Deleted{'Y'};

// Where each column lies: the same in all versions.
struct Layout {
    std::array<std::size_t, 70> offsets{};
    std::size_t size = 1;

    Layout() {
        std::size_t column = 1;
        for (const CColumnDescription& description : RuleColumns()) {
            offsets[column++] = size;
            size += description.type == ColumnType::Text ? static_cast<std::size_t>(description.size) + 1 : 4;
        }
    }
};

const Layout& RuleLayout() {
    static const Layout layout;
    return layout;
}

std::size_t LimitOf(RuleColumn column) {
    return static_cast<std::size_t>(RuleColumns()[static_cast<std::size_t>(column) - 1].size);
}

std::string_view TextOf(const std::vector<std::byte>& record, RuleColumn column) {
    const std::byte* const start = record.data() + RuleLayout().offsets[static_cast<std::size_t>(column)];
    const std::string_view text(reinterpret_cast<const char*>(start), LimitOf(column));
    return text.substr(0, text.find('\0'));
}

std::int64_t NumberOf(const std::vector<std::byte>& record, RuleColumn column) {
    const std::string_view text = TextOf(record, column);
    std::int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

void PutText(std::vector<std::byte>& record, RuleColumn column, std::string_view text) {
    const auto start =
        record.begin() + static_cast<std::ptrdiff_t>(RuleLayout().offsets[static_cast<std::size_t>(column)]);
    const std::size_t limit = LimitOf(column);
    std::fill_n(start, limit + 1, std::byte{0});
    std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(std::min(text.size(), limit)), start,
                   [](char c) { return static_cast<std::byte>(c); });
}

std::vector<std::byte> FreshRecord(std::uint32_t id) {
    std::vector<std::byte> record(RuleLayout().size);
    record[0] = Live;
    PutU32(record.data() + RuleLayout().offsets[1], id);
    for (int column = 2; column <= static_cast<int>(RuleColumns().size()); ++column) {
        if (!IsRuleTextColumn(column)) PutText(record, static_cast<RuleColumn>(column), "0");
    }
    PutText(record, RuleColumn::Enabled, "1");
    PutText(record, RuleColumn::BounceKind, "2");
    return record;
}

[[noreturn]] void Fail(const std::string& path, const char* what) {
    throw CLhvException("The rules file \"" + path + "\" " + what, Platform::LastSystemError());
}

// All but the deletion flag and the directory.
std::string ContentOf(const std::vector<std::byte>& record) {
    const std::string_view bytes(reinterpret_cast<const char*>(record.data()), record.size());
    const std::size_t directory = RuleLayout().offsets[static_cast<std::size_t>(RuleColumn::Files)];
    std::string content(bytes.substr(1, directory - 1));
    return content.append(bytes.substr(directory + LimitOf(RuleColumn::Files) + 1));
}

// Every record knows how many there are, so that a file that ends too early shows.
void CheckRows(const std::string& path, const std::vector<CRuleRow>& rows) {
    constexpr const char* WayOut = "Put a whole one back, or make the standard rules with \"rule reset\".";
    std::uint64_t count = 0;
    for (const CRuleRow& row : rows) {
        if (row.record[0] != Live && row.record[0] != Deleted)
            throw CLhvException("The rules file \"" + path + "\" is damaged. " + WayOut);
        if (count == 0) count = CRuleDirectory(row.directory).GetRuleCount();
    }
    if (rows.size() < count) throw CLhvException("The rules file \"" + path + "\" was cut. " + WayOut);
}

CRuleRow RowOf(std::vector<std::byte> record) {
    CRuleRow row;
    row.isLive = record[0] == Live;
    row.id = GetU32(record.data() + RuleLayout().offsets[1]);
    row.name = TextOf(record, RuleColumn::Name);
    row.directory = TextOf(record, RuleColumn::Files);
    row.record = std::move(record);
    return row;
}

}  // namespace

std::vector<CRuleRow> CRuleTable::Read(Cut cut) {
    std::vector<CRuleRow> rows;
    if (!Platform::FileIsThere(m_path)) return rows;
    CSTable table;
    if (!table.Open(m_path, RuleColumns(), true, false)) Fail(m_path, "cannot be opened.");
    if (static_cast<std::size_t>(table.GetRecordSize()) != RuleLayout().size) Fail(m_path, "has unknown records.");
    Platform::FileStatus status;  // it is replaced as a whole, so no crash leaves half a rule
    if (!Platform::GetFileStatus(m_path, status)) Fail(m_path, "cannot be read.");
    if (status.size % RuleLayout().size != 0 && cut == Cut::Refused)
        throw CLhvException("The rules file \"" + m_path + "\" was cut.");
    const std::int32_t count = table.GetRecordCount();
    for (std::int32_t index = 0; index < count; ++index) {
        std::vector<std::byte> record(RuleLayout().size);
        table.Go(index);
        table.ReadRecord(record);
        rows.push_back(RowOf(std::move(record)));
    }
    if (cut == Cut::Refused) CheckRows(m_path, rows);
    return rows;
}

std::uint32_t CRuleTable::NextId(const std::vector<CRuleRow>& rows) noexcept {
    std::uint32_t greatest = 0;
    for (const CRuleRow& row : rows) {
        if (row.id < INT32_MAX) greatest = std::max(greatest, row.id);  // what is beyond is of a damaged record
    }
    return greatest + 1;
}

CRuleRow CRuleTable::MakeRow(std::uint32_t id, const RuleFields& rule, CRuleDirectory directory) const {
    CRuleRow row;
    row.record = FreshRecord(id);
    const auto number = [&](RuleColumn column, std::int64_t value) {
        PutText(row.record, column, std::to_string(value));
    };
    VisitRuleFlags(rule, [&](std::string_view, RuleColumn column, bool flag) { number(column, flag ? 1 : 0); });
    VisitRuleTexts(
        rule, [&](std::string_view, RuleColumn column, const std::string& text) { PutText(row.record, column, text); });
    number(RuleColumn::DigestMode, rule.digestMode);
    number(RuleColumn::BounceKind, static_cast<std::int64_t>(rule.bounceKind));
    if (directory.IsKnown()) {
        directory.SetRecord(ContentOf(row.record));
        row.directory = directory.GetText();
    }
    row.id = id;
    row.name = rule.name;
    return row;
}

void CRuleTable::Take(const CRuleRow& row, RuleFields& rule, std::string& fault) {
    TakeColumns(row, rule, fault);
    if (!CRuleDirectory(row.directory).FitsRecord(ContentOf(row.record))) fault = "its record is not what was stored";
}

void CRuleTable::TakeColumns(const CRuleRow& row, RuleFields& rule, std::string& fault) {
    VisitRuleFlags(rule,
                   [&](std::string_view, RuleColumn column, bool& flag) { flag = NumberOf(row.record, column) != 0; });
    VisitRuleTexts(rule,
                   [&](std::string_view, RuleColumn column, std::string& text) { text = TextOf(row.record, column); });
    const std::int64_t mode = NumberOf(row.record, RuleColumn::DigestMode);
    const std::int64_t kind = NumberOf(row.record, RuleColumn::BounceKind);
    rule.digestMode = mode == DigestModeOn ? DigestModeOn : DigestModeOff;
    if (mode != DigestModeOn && mode != DigestModeOff)
        fault = FormatText("the digest mode %lld is none", static_cast<long long>(mode));
    for (const RuleBounceKind known :
         {RuleBounceKind::Soft, RuleBounceKind::Hard, RuleBounceKind::Blocked, RuleBounceKind::Any}) {
        if (kind != static_cast<std::int64_t>(known)) continue;
        rule.bounceKind = known;
        return;
    }
    fault = FormatText("the kind of bounce %lld is none", static_cast<long long>(kind));
}

void CRuleTable::Write(const std::vector<CRuleRow>& rows) {
    std::string bytes;
    for (const CRuleRow& row : rows) {
        std::vector<std::byte> record = row.record;
        CRuleDirectory directory(row.directory);
        directory.SetRuleCount(rows.size());
        // What an older version stored without a directory stays without.
        if (directory.IsKnown()) PutText(record, RuleColumn::Files, directory.GetText());
        bytes.push_back(static_cast<char>(row.isLive ? Live : Deleted));
        bytes.append(reinterpret_cast<const char*>(record.data()) + 1, record.size() - 1);
    }
    if (!Platform::FileIsThere(m_path + ".ver")) {
        std::array<std::byte, 4> version{};
        PutU32(version.data(), CSTable::CurrentVersion);
        const std::string_view text(reinterpret_cast<const char*>(version.data()), version.size());
        if (!WriteFileAtomically(m_path + ".ver", text)) Fail(m_path, "cannot be written.");
    }
    if (!WriteFileAtomically(m_path, bytes)) Fail(m_path, "cannot be written.");
}
