#include "engine/blockedaddresses.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "app/datafolder.h"
#include "engine/blockedset.h"
#include "engine/filelook.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"

namespace {

enum Column : int { PatternColumn = 1, SinceColumn = 2 };

constexpr std::array<CColumnDescription, 2> BlockedColumns = {{
    {ColumnType::Text, 256, CSTable::OldestVersion, "Pattern"},
    {ColumnType::Text, 40, CSTable::OldestVersion, "Since"},
}};

constexpr std::size_t RecordsAtATime = 512;

}  // namespace

struct CBlockedAddresses::CState {
    explicit CState(std::string tablePath) : path(std::move(tablePath)), mutex(TableMutexName(path)) {}

    const std::string path;
    Platform::CNamedMutex mutex;

    std::shared_mutex guard;  // of what follows
    CBlockedSet patterns;
    CFileLook look;

    void Load();
    bool Open(CSTable& table, bool readOnly, bool create) const;
    void Visit(const std::function<bool(CSTable& table, std::int32_t index, std::span<const std::byte> record)>& visit,
               CSTable& table) const;
    std::int32_t FindRecord(CSTable& table, std::string_view pattern) const;
};

// False when there is no table.
bool CBlockedAddresses::CState::Open(CSTable& table, bool readOnly, bool create) const {
    if (!create && !LookAtFile(path)) return false;
    if (table.Open(path, BlockedColumns, readOnly, create)) return true;
    throw CLhvException("The blocked addresses in " + path + " cannot be opened.", Platform::LastSystemError());
}

// The live records, until visit returns false.
void CBlockedAddresses::CState::Visit(
    const std::function<bool(CSTable& table, std::int32_t index, std::span<const std::byte> record)>& visit,
    CSTable& table) const {
    const auto size = static_cast<std::size_t>(table.GetRecordSize());
    const auto total = static_cast<std::size_t>(table.GetRecordCount());
    std::vector<std::byte> block;
    for (std::size_t first = 0; first < total; first += RecordsAtATime) {
        block.resize(std::min(RecordsAtATime, total - first) * size);
        table.Go(static_cast<std::int32_t>(first));
        table.ReadRecords(block);
        for (std::size_t at = 0; at < block.size(); at += size) {
            const std::span<const std::byte> record = std::span(block).subspan(at, size);
            if (record[0] != std::byte{'N'}) continue;
            if (!visit(table, static_cast<std::int32_t>(first + at / size), record)) return;
        }
    }
}

std::int32_t CBlockedAddresses::CState::FindRecord(CSTable& table, std::string_view pattern) const {
    std::int32_t found = -1;
    Visit(
        [&](CSTable& t, std::int32_t index, std::span<const std::byte> record) {
            if (t.TextOf(record, PatternColumn) == pattern) found = index;
            return found < 0;
        },
        table);
    return found;
}

void CBlockedAddresses::CState::Load() {
    const CMutexGuard lock(mutex);
    look.Forget();
    patterns.Clear();
    CFileLook before;
    before.Note(path);
    CSTable table;
    if (Open(table, true, false)) {
        Visit(
            [this](CSTable& t, std::int32_t, std::span<const std::byte> record) {
                patterns.Insert(t.TextOf(record, PatternColumn));
                return true;
            },
            table);
    }
    look = before;
}

CBlockedAddresses::CBlockedAddresses() : CBlockedAddresses(GetDataFolder() + "BLOCKED.DAT") {}

CBlockedAddresses::CBlockedAddresses(std::string tablePath) : m_state(std::make_unique<CState>(std::move(tablePath))) {}

CBlockedAddresses::~CBlockedAddresses() = default;

bool CBlockedAddresses::Add(std::string_view pattern) {
    std::string normalized;
    std::string reason;
    if (!CBlockedSet::Normalize(pattern, normalized, &reason)) throw CLhvException(reason);
    const CMutexGuard lock(m_state->mutex);
    CSTable table;
    m_state->Open(table, false, true);
    if (m_state->FindRecord(table, normalized) >= 0) return false;
    std::vector<std::byte> record = table.MakeRecord();
    table.PutText(record, PatternColumn, normalized);
    table.PutNumber(record, SinceColumn, Platform::SecondsSince1970());
    table.AppendRecords(record);
    table.Flush();
    return true;
}

// The rest is written anew, so that the file shows the change in its length.
bool CBlockedAddresses::Remove(std::string_view pattern) {
    std::string normalized;
    std::string reason;
    if (!CBlockedSet::Normalize(pattern, normalized, &reason)) throw CLhvException(reason);
    const CMutexGuard lock(m_state->mutex);
    CSTable table;
    if (!m_state->Open(table, false, false)) return false;
    const std::int32_t found = m_state->FindRecord(table, normalized);
    if (found < 0) return false;
    table.Go(found);
    table.Delete();
    table.Flush();
    table.Pack();
    table.Flush();
    return true;
}

void CBlockedAddresses::ForEach(const std::function<void(const BlockedPattern& pattern)>& visit) {
    std::vector<BlockedPattern> patterns;
    {
        const CMutexGuard lock(m_state->mutex);
        CSTable table;
        if (!m_state->Open(table, true, false)) return;
        m_state->Visit(
            [&](CSTable& t, std::int32_t, std::span<const std::byte> record) {
                const std::string_view pattern = t.TextOf(record, PatternColumn);
                if (!pattern.empty()) patterns.push_back({std::string(pattern), t.NumberOf(record, SinceColumn)});
                return true;
            },
            table);
    }
    for (const BlockedPattern& pattern : patterns)
        visit(pattern);
}

bool CBlockedAddresses::IsBlocked(std::string_view address) {
    {
        const std::shared_lock lock(m_state->guard);
        if (m_state->look.IsFresh(m_state->path)) return m_state->patterns.Matches(address);
    }
    const std::unique_lock lock(m_state->guard);
    if (!m_state->look.IsFresh(m_state->path)) m_state->Load();
    return m_state->patterns.Matches(address);
}

bool CBlockedAddresses::IsPattern(std::string_view pattern, std::string* reason) {
    std::string normalized;
    return CBlockedSet::Normalize(pattern, normalized, reason);
}

std::span<const CColumnDescription> CBlockedAddresses::Columns() noexcept {
    return BlockedColumns;
}
