#include "engine/tablerepair.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "engine/textstore.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

namespace {

constexpr std::size_t BlockSize = std::size_t{256} << 10;
constexpr std::byte Live{'N'};
constexpr std::byte Deleted{'Y'};

struct Layout {
    std::uint32_t version = 0;  // the newest one that has it
    std::uint64_t recordSize = 0;
};

std::uint64_t RecordSizeAt(std::span<const CColumnDescription> columns, std::uint32_t version) {
    std::uint64_t size = 1;
    for (const CColumnDescription& column : columns) {
        if (column.minVersion > version) continue;
        const auto declared = static_cast<std::uint64_t>(column.size);
        if (column.type == ColumnType::Text) {
            size += declared + 1;
        } else {
            size += column.type == ColumnType::Binary ? declared : 4;
        }
    }
    return size;
}

// Every layout the table ever had, oldest first.
std::vector<Layout> KnownLayouts(std::span<const CColumnDescription> columns) {
    std::set<std::uint32_t> versions = {CSTable::OldestVersion, CSTable::CurrentVersion};
    for (const CColumnDescription& column : columns)
        versions.insert(column.minVersion);
    std::vector<Layout> layouts;
    for (const std::uint32_t version : versions) {
        const std::uint64_t size = RecordSizeAt(columns, version);
        if (!layouts.empty() && layouts.back().recordSize == size) {
            layouts.back().version = version;
        } else {
            layouts.push_back({version, size});
        }
    }
    return layouts;
}

class CTableRepair {
public:
    CTableRepair(const std::string& path, std::span<const CColumnDescription> columns, const RepairReport& report,
                 HalfRecord half)
        : m_path(path), m_columns(columns), m_report(report), m_half(half) {}

    bool Run();

private:
    void Mended(const std::string& text) const { m_report(RepairFinding::Mended, m_path + ": " + text); }
    bool Remains(const std::string& text) const {
        m_report(RepairFinding::Remains, m_path + ": " + text);
        return false;
    }
    [[noreturn]] void Fail() const {
        throw CLhvException(m_path + " cannot be repaired.", Platform::LastSystemError());
    }

    void FinishRewriting() const;
    bool FindVersion(std::uint32_t& version) const;
    bool GuessVersion(std::uint32_t& version, bool isShort) const;
    std::uint64_t CountBadFlags(std::uint64_t recordSize) const;
    void VisitFlags(std::uint64_t recordSize,
                    const std::function<void(std::uint64_t offset, std::byte flag)>& visit) const;
    bool RepairRecords(std::uint32_t version);
    void DropRecord(std::uint32_t version, std::uint64_t offset);
    void VisitReferences(
        CSTable& table,
        const std::function<bool(std::int32_t record, std::span<std::byte> bytes, int column)>& visit) const;
    void RepairTexts(CSTable& table);
    void GiveUpTexts(CSTable& table, const TextStoreReport& found);

    const std::string& m_path;
    std::span<const CColumnDescription> m_columns;
    const RepairReport& m_report;
    const HalfRecord m_half;
    Platform::CFile m_file;
    std::uint64_t m_size = 0;
};

bool CTableRepair::Run() {
    FinishRewriting();
    if (!Platform::FileIsThere(m_path)) return true;
    if (!m_file.Open(m_path, Platform::FileMode::ReadWrite) || !m_file.GetSize(m_size)) Fail();
    std::uint32_t version = 0;
    if (m_size > 0 && (!FindVersion(version) || !RepairRecords(version))) return false;
    m_file.Close();
    CSTable table;
    if (!table.Open(m_path, m_columns, false, false)) Fail();
    if (table.GetTextStore() && table.GetRecordCount() > 0) RepairTexts(table);
    table.Flush();
    return true;
}

// Opening a table finishes what was interrupted in the renaming.
void CTableRepair::FinishRewriting() const {
    bool isLeft = false;
    for (const char* const ending : {".new", ".new.ver", ".new.dat1", ".new.dat2"}) {
        isLeft = isLeft || Platform::FileIsThere(m_path + ending);
    }
    if (!isLeft) return;
    try {
        CSTable table;
        table.Open(m_path, m_columns, false, false);
        Mended("An interrupted rewriting was finished.");
    } catch (const CLhvException& e) {
        Remains("An interrupted rewriting could not be finished: " + e.GetDescription());
    }
}

bool CTableRepair::FindVersion(std::uint32_t& version) const {
    Platform::CFile file;
    if (!file.Open(m_path + ".ver", Platform::FileMode::Read)) {
        if (!Platform::IsNotFound(Platform::LastSystemError())) Fail();
        return GuessVersion(version, false);
    }
    std::array<std::uint8_t, 4> bytes{};
    if (!file.ReadAt(0, bytes.data(), bytes.size())) {
        if (Platform::LastSystemError() != 0) Fail();
        file.Close();  // not every system replaces what is open
        return GuessVersion(version, true);
    }
    version = std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 |
              std::uint32_t{bytes[3]} << 24;
    if (version >= CSTable::OldestVersion && version <= CSTable::CurrentVersion) return true;
    return Remains(FormatText("The version %u in its version file is unknown.", version));
}

bool CTableRepair::GuessVersion(std::uint32_t& version, bool isShort) const {
    std::optional<Layout> fitting;
    const std::vector<Layout> layouts = KnownLayouts(m_columns);
    for (const Layout& layout : layouts) {
        const bool isOnly = layouts.size() == 1;  // then there is nothing to guess
        if (!isOnly && (m_size % layout.recordSize != 0 || CountBadFlags(layout.recordSize) != 0)) continue;
        if (fitting) return Remains("Its version file is missing, and its length fits several versions.");
        fitting = layout;
    }
    if (!fitting) return Remains("Its version file is missing, and its length fits no version.");
    version = fitting->version;
    // A table of the oldest generation never had a version file.
    if (!isShort && RecordSizeAt(m_columns, CSTable::OldestVersion) == fitting->recordSize) return true;
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<char>(version >> shift & 0xFF));
    if (!WriteFileAtomically(m_path + ".ver", bytes)) Fail();
    Mended(FormatText("The version file was %s and is written anew for version %u.", isShort ? "too short" : "missing",
                      version));
    return true;
}

void CTableRepair::VisitFlags(std::uint64_t recordSize,
                              const std::function<void(std::uint64_t offset, std::byte flag)>& visit) const {
    const std::uint64_t whole = m_size / recordSize * recordSize;
    const std::uint64_t step = std::max<std::uint64_t>(BlockSize / recordSize, 1) * recordSize;
    std::vector<std::byte> block;
    for (std::uint64_t start = 0; start < whole; start += step) {
        block.resize(static_cast<std::size_t>(std::min(step, whole - start)));
        if (!m_file.ReadAt(start, block.data(), block.size())) Fail();
        for (std::uint64_t at = 0; at < block.size(); at += recordSize) {
            visit(start + at, block[static_cast<std::size_t>(at)]);
        }
    }
}

std::uint64_t CTableRepair::CountBadFlags(std::uint64_t recordSize) const {
    std::uint64_t count = 0;
    VisitFlags(recordSize, [&](std::uint64_t, std::byte flag) { count += flag != Live && flag != Deleted; });
    return count;
}

// What a damaged record refers to cannot be believed.
void CTableRepair::DropRecord(std::uint32_t version, std::uint64_t offset) {
    constexpr std::array<std::uint8_t, 4> noText = {0xFF, 0xFF, 0xFF, 0xFF};
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        const CColumnDescription& column = m_columns[i];
        if (column.type != ColumnType::StoredText || column.minVersion > version) continue;
        const std::uint64_t at = offset + RecordSizeAt(m_columns.first(i), version);
        if (!m_file.WriteAt(at, noText.data(), noText.size())) Fail();
    }
    if (!m_file.WriteAt(offset, &Deleted, 1)) Fail();
}

bool CTableRepair::RepairRecords(std::uint32_t version) {
    const std::uint64_t recordSize = RecordSizeAt(m_columns, version);
    const std::uint64_t records = m_size / recordSize;
    const std::uint64_t half = m_size % recordSize;
    if (half > 0 && m_half == HalfRecord::Cut) {
        return Remains("It was cut. Put a whole one back, or make the standard rules with \"rule reset\".");
    }
    const std::uint64_t bad = CountBadFlags(recordSize);
    if (bad > 0 && m_half == HalfRecord::Cut) {
        return Remains("It is damaged. Put a whole one back, or make the standard rules with \"rule reset\".");
    }
    // A few torn records are a crash; many are a file that is something else.
    if (bad > 2 && bad * 2 > records) {
        return Remains("Most of its records are unreadable. It is left as it is.");
    }
    if (bad > 0) {
        VisitFlags(recordSize, [&](std::uint64_t offset, std::byte flag) {
            if (flag == Live || flag == Deleted) return;
            DropRecord(version, offset);
            Mended(FormatText("Record %llu was damaged and is now a deleted one.",
                              static_cast<unsigned long long>(offset / recordSize)));
        });
    }
    if (half > 0) {
        if (!m_file.SetSize(records * recordSize)) Fail();
        m_size = records * recordSize;
        Mended(FormatText("Half a record at its end (%llu bytes) was dropped.", static_cast<unsigned long long>(half)));
    }
    if ((bad > 0 || half > 0) && !m_file.Flush()) Fail();
    return true;
}

// The references of all records; visit says whether it has changed one.
void CTableRepair::VisitReferences(
    CSTable& table,
    const std::function<bool(std::int32_t record, std::span<std::byte> bytes, int column)>& visit) const {
    std::vector<int> columns;
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        const int column = static_cast<int>(i) + 1;
        if (m_columns[i].type == ColumnType::StoredText && table.HasColumn(column)) columns.push_back(column);
    }
    const auto size = static_cast<std::size_t>(table.GetRecordSize());
    const auto total = static_cast<std::size_t>(table.GetRecordCount());
    const std::size_t atATime = std::max<std::size_t>(BlockSize / size, 1);
    std::vector<std::byte> block;
    for (std::size_t first = 0; first < total; first += atATime) {
        block.resize(std::min(atATime, total - first) * size);
        table.Go(static_cast<std::int32_t>(first));
        table.ReadRecords(block);
        for (std::size_t at = 0; at < block.size(); at += size) {
            const auto record = static_cast<std::int32_t>(first + at / size);
            const std::span bytes = std::span(block).subspan(at, size);
            bool changed = false;
            for (const int column : columns)
                changed = visit(record, bytes, column) || changed;
            if (!changed) continue;
            table.Go(record);
            table.WriteRecord(bytes);
        }
    }
}

void CTableRepair::GiveUpTexts(CSTable& table, const TextStoreReport& found) {
    std::map<std::int32_t, bool> shared;  // reference: a record has it already
    for (const std::int32_t reference : found.usedTwice)
        shared[reference] = false;
    std::set<std::int32_t> lost(found.missing.begin(), found.missing.end());
    lost.insert(found.damaged.begin(), found.damaged.end());
    VisitReferences(table, [&](std::int32_t record, std::span<std::byte> bytes, int column) {
        const std::int32_t reference = table.ReferenceOf(bytes, column);
        if (reference == CTextStore::NoText) return false;
        if (reference < 0 || lost.contains(reference)) {
            table.PutReference(bytes, column, CTextStore::NoText);
            Mended(FormatText("The text of record %d, column %d was lost and is now empty.", record, column));
            return true;
        }
        const auto twice = shared.find(reference);
        if (twice == shared.end()) return false;
        if (!twice->second) {
            twice->second = true;
            return false;
        }
        table.PutReference(bytes, column, table.GetTextStore()->Add(table.GetTextStore()->Read(reference)));
        Mended(FormatText("Record %d, column %d shared a text and has its own copy now.", record, column));
        return true;
    });
}

void CTableRepair::RepairTexts(CSTable& table) {
    CTextStore& store = *table.GetTextStore();
    std::vector<std::int32_t> inUse;
    bool isBelowNone = false;
    const auto collect = [&] {
        inUse.clear();
        VisitReferences(table, [&](std::int32_t, std::span<std::byte> bytes, int column) {
            const std::int32_t reference = table.ReferenceOf(bytes, column);
            if (reference >= 0) inUse.push_back(reference);
            isBelowNone = isBelowNone || reference < CTextStore::NoText;
            return false;
        });
    };
    collect();
    const TextStoreReport found = store.Check(inUse);
    if (!found.IsSound() || isBelowNone) {
        GiveUpTexts(table, found);
        table.Flush();
        collect();
    }
    if (found.unused == 0 && found.lostBytes == 0 && !found.freeListsDamaged && found.IsSound()) return;
    const TextStoreReport repaired = store.Repair(inUse);
    if (repaired.unused > 0) {
        Mended(FormatText("%d texts that belonged to no record were freed.", repaired.unused));
    } else if (repaired.lostBytes > 0) {
        Mended(FormatText("%llu bytes of its texts can be used again.",
                          static_cast<unsigned long long>(repaired.lostBytes)));
    }
    if (repaired.freeListsDamaged) Mended("The lists of free space of its texts were made anew.");
}

}  // namespace

bool RepairTable(const std::string& path, std::span<const CColumnDescription> columns, const RepairReport& report,
                 HalfRecord half) {
    return CTableRepair(path, columns, report, half).Run();
}
