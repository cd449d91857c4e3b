#include "engine/rules/accesslist.h"

#include "app/datafolder.h"
#include "engine/rulecolumns.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"

namespace {

constexpr int KindColumn = static_cast<int>(AccessColumn::Kind);
constexpr int PatternColumn = static_cast<int>(AccessColumn::Pattern);

std::string NormalPattern(std::string_view pattern) {
    std::string normal;
    std::string reason;
    if (!CBlockedSet::Normalize(pattern, normal, &reason)) throw CLhvException(reason);
    return normal;
}

void OpenAccess(CSTable& table, const std::string& path, bool readOnly) {
    if (table.Open(path, AccessColumns(), readOnly, !readOnly)) return;
    throw CLhvException("The access list \"" + path + "\" cannot be opened.", Platform::LastSystemError());
}

// An entry of a kind that is none denies nobody and allows nobody.
bool ReadEntry(CSTable& table, std::int32_t index, CAccessEntry& entry) {
    table.Go(index);
    if (table.IsDeleted()) return false;
    entry.access = static_cast<Access>(table.ReadNumber(KindColumn));
    entry.pattern = table.ReadText(PatternColumn);
    return entry.access == Access::Allowed || entry.access == Access::Denied;
}

// Passed over, a damaged entry would let in whom it denied, or keep out whom it allowed.
void RequireSound(CSTable& table, std::int32_t index) {
    std::vector<std::byte> record(static_cast<std::size_t>(table.GetRecordSize()));
    table.Go(index);
    table.ReadRecord(record);
    if (record[0] == std::byte{'N'} || record[0] == std::byte{'Y'}) return;
    throw CLhvException("Record " + std::to_string(index) + " of the access list \"" + table.GetFileName() +
                        "\" is damaged: \"repair\" removes it.");
}

// The entries of that pattern: one, or one of each kind.
std::vector<std::int32_t> FindEntries(CSTable& table, std::string_view pattern) {
    std::vector<std::int32_t> found;
    CAccessEntry entry;
    const std::int32_t count = table.GetRecordCount();
    for (std::int32_t index = 0; index < count; ++index) {
        if (ReadEntry(table, index, entry) && entry.pattern == pattern) found.push_back(index);
    }
    return found;
}

}  // namespace

CAccessList::CAccessList(std::uint32_t listNumber) : m_path(GetDataFolder() + std::to_string(listNumber) + ".ACL") {}

Access CAccessList::Check(std::string_view address) {
    Load();
    if (m_denied.Matches(address)) return Access::Denied;
    return m_allowed.Matches(address) ? Access::Allowed : Access::Unlisted;
}

std::vector<CAccessEntry> CAccessList::GetEntries() {
    Load();
    return m_entries;
}

void CAccessList::Load() {
    if (m_look.IsFresh(m_path)) return;
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    m_look.Forget();
    m_entries.clear();
    m_allowed.Clear();
    m_denied.Clear();
    CFileLook before;
    before.Note(m_path);
    if (Platform::FileIsThere(m_path)) {
        CSTable table;
        OpenAccess(table, m_path, true);
        CAccessEntry entry;
        const std::int32_t count = table.GetRecordCount();
        for (std::int32_t index = 0; index < count; ++index) {
            RequireSound(table, index);
            if (!ReadEntry(table, index, entry)) continue;
            (entry.access == Access::Denied ? m_denied : m_allowed).Insert(entry.pattern);
            m_entries.push_back(entry);
        }
    }
    m_look = before;
}

bool CAccessList::Add(const CAccessEntry& entry) {
    const std::string pattern = NormalPattern(entry.pattern);
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    CSTable table;
    OpenAccess(table, m_path, false);
    std::vector<std::byte> record = table.MakeRecord();
    table.PutNumber(record, KindColumn, static_cast<std::int64_t>(entry.access));
    table.PutText(record, PatternColumn, pattern);
    for (const std::int32_t index : FindEntries(table, pattern)) {
        CAccessEntry present;
        if (ReadEntry(table, index, present) && present.access == entry.access) return false;
    }
    table.AppendRecords(record);
    table.Flush();
    m_look.Forget();
    return true;
}

// The rest is written anew, so that the file shows the change in its length.
bool CAccessList::Remove(std::string_view pattern) {
    const std::string normal = NormalPattern(pattern);
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    if (!Platform::FileIsThere(m_path)) return false;
    CSTable table;
    OpenAccess(table, m_path, false);
    const std::vector<std::int32_t> found = FindEntries(table, normal);
    if (found.empty()) return false;
    for (const std::int32_t index : found) {
        table.Go(index);
        table.Delete();
    }
    table.Flush();
    table.Pack();
    table.Flush();
    m_look.Forget();
    return true;
}

bool CAccessList::IsPattern(std::string_view pattern, std::string* reason) {
    std::string normal;
    return CBlockedSet::Normalize(pattern, normal, reason);
}
