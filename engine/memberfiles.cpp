#include "engine/memberfiles.h"

#include <algorithm>
#include <array>
#include <utility>

#include "engine/eventlog.h"
#include "engine/textstore.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/openfiles.h"
#include "platform/systemerror.h"
#include "utility/paths.h"

namespace {

constexpr std::int32_t BlockRecords = 256;  // 256 KB at a time
constexpr std::size_t RebuildGroup = 4096;  // entries of one index transaction
constexpr int BulkChangesOfOneMap = 32;     // pages of the index that were read stay in memory until it is closed

std::string IndexPathOf(const std::string& tablePath) {
    constexpr std::string_view Ending = ".MBR";
    std::string path = tablePath;
    if (path.ends_with(Ending)) path.resize(path.size() - Ending.size());
    return path + ".MBX";
}

}  // namespace

CMemberHold::CMemberHold(CMemberFiles& files) : m_files(files) {
    m_files.m_mutex.Lock();
    ++m_files.m_holds;
    try {
        if (m_files.m_holds == 1) m_files.Refresh();  // else nobody has changed them since
    } catch (...) {
        --m_files.m_holds;
        m_files.m_mutex.Unlock();
        throw;
    }
}

CMemberHold::~CMemberHold() {
    if (m_files.m_holds == 1) m_files.CloseWhenEmpty();
    if (--m_files.m_holds == 0 && !Platform::OpenFilesCanBeReplaced()) m_files.CloseForOthers();
    m_files.m_mutex.Unlock();
}

CMemberFiles::CMemberFiles(const std::string& tablePath, bool readOnly)
    : m_path(tablePath),
      m_indexPath(IndexPathOf(tablePath)),
      m_lostPath(tablePath + ".lost"),
      m_readOnly(readOnly),
      m_mutex(TableMutexName(tablePath)),
      m_unsyncedPath(m_indexPath + "-unsynced"),
      m_record(CMemberRecord::Size) {}

CMemberFiles::~CMemberFiles() {
    m_mutex.Lock();
    try {
        EndUnsynced();
        CloseTable();
    } catch (const std::exception& e) {
        Log(LogError, "The members in %s could not be closed: %s", m_path.c_str(), e.what());
    }
    m_index.Close();
    m_mutex.Unlock();
}

// What was found out under the mutex holds until it is given back, or this object changes something.
void CMemberFiles::ForgetLooks() noexcept {
    m_found = -1;
    m_isIndexLooked = false;
}

// Another process may have added records, packed the table, or removed it.
void CMemberFiles::Refresh() {
    ForgetLooks();
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(m_path, status)) {
        if (!Platform::IsNotFound(Platform::LastSystemError())) {
            throw CLhvException("The members in " + m_path + " cannot be read.", Platform::LastSystemError());
        }
        CloseTable();
        return;
    }
    if (m_table && status.identity != m_identity) CloseTable();
    if (!m_table) OpenTable(false);
    m_recordCount = m_table->GetRecordCount();
}

void CMemberFiles::OpenTable(bool create) {
    auto table = std::make_unique<CMemberTable>();
    if (!table->Open(m_path, CMemberTable::Columns(), m_readOnly, create)) {
        throw CLhvException("The members in " + m_path + " cannot be opened.", Platform::LastSystemError());
    }
    m_table = std::move(table);
    m_recordCount = m_table->GetRecordCount();
    NoteIdentity();  // only now: the opening may have put an upgraded file in its place
}

void CMemberFiles::NoteIdentity() {
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(m_path, status)) {
        throw CLhvException("The members in " + m_path + " have vanished.", Platform::LastSystemError());
    }
    const bool isTheSame = std::exchange(m_isClosedForOthers, false) && m_identity == status.identity;
    if (!isTheSame) ++m_generation;
    m_identity = status.identity;
}

void CMemberFiles::CloseTable() {
    ForgetLooks();
    m_recordCount = 0;
    if (std::exchange(m_isClosedForOthers, false)) ++m_generation;
    if (!m_table) return;
    ++m_generation;
    const std::unique_ptr<CMemberTable> table = std::move(m_table);
    table->Close();
}

// Who packs the table or removes the index needs it closed there.
void CMemberFiles::CloseForOthers() noexcept {
    m_index.Close();
    if (!m_table) return;
    try {
        const std::unique_ptr<CMemberTable> table = std::move(m_table);
        m_isClosedForOthers = true;
        table->Close();
    } catch (const std::exception& e) {
        Log(LogError, "The members in %s could not be closed: %s", m_path.c_str(), e.what());
    }
}

void CMemberFiles::CloseWhenEmpty() noexcept {
    try {
        if (!m_table || m_table->GetRecordCount() > 0) return;
        CloseTable();
        if (m_readOnly) return;
        NoteLost();
        RemoveIndex();
    } catch (const std::exception& e) {
        Log(LogError, "The members in %s could not be closed: %s", m_path.c_str(), e.what());
    }
}

void CMemberFiles::RequireWritable() const {
    if (m_readOnly) throw CLhvException("The members in " + m_path + " were opened for reading only.");
    if (!m_mutex.IsShared()) throw CLhvException("The members in " + m_path + " cannot be locked.");
}

void CMemberFiles::MakeTable() {
    RequireWritable();
    if (!m_table) OpenTable(true);
}

std::size_t CMemberFiles::GetRecordSize() const noexcept {
    return m_table ? static_cast<std::size_t>(m_table->GetRecordSize()) : CMemberRecord::Size;
}

bool CMemberFiles::ReadMember(std::int32_t index, std::span<std::byte> record) {
    if (index < 0 || index >= m_recordCount) return false;
    if (index == m_found && record.data() != m_record.data()) {
        std::copy_n(m_record.begin(), GetRecordSize(), record.begin());
        return true;
    }
    m_table->Go(index);
    m_table->ReadRecord(record.first(GetRecordSize()));
    CheckRecord(index, CMemberRecord(record));
    return CMemberRecord(record).IsMember();
}

void CMemberFiles::ReadBlock(std::int32_t first, std::int32_t count, std::vector<std::byte>& records) {
    records.resize(static_cast<std::size_t>(count) * GetRecordSize());
    if (count <= 0) return;
    m_table->Go(first);
    m_table->ReadRecords(records);
}

void CMemberFiles::WriteRecord(std::int32_t index, std::span<const std::byte> record) {
    ForgetLooks();
    m_table->Go(index);
    m_table->WriteRecord(record);
}

void CMemberFiles::AppendRecords(std::span<std::byte> records) {
    ForgetLooks();
    m_table->AppendRecords(records);
    m_recordCount = m_table->GetRecordCount();
}

void CMemberFiles::ForEachMember(const std::function<bool(std::int32_t index, CMemberRecord record)>& visit) {
    std::vector<std::byte> block;
    const std::size_t size = GetRecordSize();
    for (std::int32_t first = 0; first < m_recordCount; first += BlockRecords) {
        const std::int32_t count = std::min(BlockRecords, m_recordCount - first);
        ReadBlock(first, count, block);
        for (std::int32_t i = 0; i < count; ++i) {
            const CMemberRecord record{std::span(block).subspan(static_cast<std::size_t>(i) * size, size)};
            CheckRecord(first + i, record);
            if (record.IsMember() && !visit(first + i, record)) return;
        }
    }
}

// A text that is lost must not make its member unreadable.
std::string CMemberFiles::ReadText(std::int32_t reference) {
    std::string text;
    if (reference < 0) return text;
    if (m_table->GetTextStore()->TryRead(reference, text) != CTextStore::Outcome::Good) {
        Log(LogError, "The text %d of %s is damaged and taken as empty.", reference, m_path.c_str());
        text.clear();
    }
    return text;
}

std::vector<std::int32_t> CMemberFiles::StoreTexts(std::span<const std::string_view> texts) {
    if (texts.size() == 1) return {m_table->GetTextStore()->Add(texts.front())};
    return m_table->GetTextStore()->AddMany(texts);
}

// A text that cannot be freed only takes room until the next repair.
void CMemberFiles::FreeTexts(std::span<const std::int32_t> references) noexcept {
    if (references.empty() || !m_table) return;
    try {
        CTextStore& store = *m_table->GetTextStore();
        for (const std::int32_t reference : references)
            store.Free(reference);
        store.Release();
    } catch (const std::exception& e) {
        Log(LogWarning, "Texts of %s could not be freed: %s", m_path.c_str(), e.what());
    }
}

void CMemberFiles::FlushTexts() {
    m_table->GetTextStore()->Flush();
}
void CMemberFiles::FlushRecords() {
    m_table->Flush();
}

std::int32_t CMemberFiles::Find(std::string_view address) {
    if (m_recordCount == 0) return -1;
    const std::string key = CCompareEmail::MakeKey(address);
    if (!TryPrepareIndex()) return FindByWalk(key);
    try {
        return FindInIndex(key);
    } catch (const CIndexDamaged& e) {
        Log(LogWarning, "%s", e.what());
        RemoveIndex();
    }
    return TryPrepareIndex() ? FindInIndex(key) : FindByWalk(key);
}

std::int32_t CMemberFiles::FindInIndex(std::string_view key) {
    m_index.Find(key, m_hits);
    m_found = -1;
    for (const std::int32_t index : m_hits) {
        if (ReadMember(index, m_record) && CCompareEmail::MakeKey(CMemberRecord(m_record).GetAddress()) == key) {
            return m_found = index;
        }
    }
    return -1;
}

std::int32_t CMemberFiles::FindByWalk(std::string_view key) {
    std::int32_t found = -1;
    ForEachMember([&](std::int32_t index, const CMemberRecord& record) {
        if (CCompareEmail::MakeKey(record.GetAddress()) != key) return true;
        found = index;
        return false;
    });
    return found;
}

std::int32_t CMemberFiles::CountMembers() {
    if (m_recordCount == 0) return 0;
    if (TryPrepareIndex()) return m_state.liveCount;
    std::int32_t count = 0;
    ForEachMember([&](std::int32_t, const CMemberRecord&) { return ++count > 0; });
    return count;
}

bool CMemberFiles::TryPrepareIndex() {
    // Without the mutex somebody else could be changing the pages being read.
    if (!m_mutex.IsShared()) return false;
    try {
        PrepareIndex();
        return true;
    } catch (const CLhvException& e) {
        if (!m_readOnly) Log(LogWarning, "Members are looked for without an index: %s", e.what());
        DropIndex();
        return false;
    }
}

bool CMemberFiles::IndexFits() {
    if (m_isIndexLooked && m_index.IsOpen()) return true;
    if (!m_index.IsOpen() || !m_index.IsCurrent()) {
        if (WasLeftUnsynced()) throw CIndexDamaged("The index " + m_indexPath + " was not written to its end.");
        m_index.Open(m_indexPath, m_readOnly ? CSSIndex::Access::ReadOnly : CSSIndex::Access::ReadWrite);
    }
    m_isIndexLooked = m_index.ReadState(m_state) && m_state.settled && m_state.recordCount == m_recordCount &&
                      m_state.tableIdentity == m_identity;
    return m_isIndexLooked;
}

void CMemberFiles::PrepareIndex() {
    try {
        if (IndexFits()) return;
    } catch (const CIndexDamaged& e) {
        RequireWritable();
        Log(LogWarning, "%s", e.what());
        RemoveIndex();
    }
    RequireWritable();
    NoteLost();
    if (m_recordCount > 0) Log(LogInfo, "The index of %s does not fit and is built anew.", m_path.c_str());
    RebuildIndex();
}

void CMemberFiles::RebuildIndex() {
    ForgetLooks();
    if (!m_index.IsOpen() || !m_index.IsCurrent()) m_index.Open(m_indexPath, CSSIndex::Access::ReadWrite);
    BeginUnsynced();
    IndexChange change;
    change.clear = true;
    change.state.tableIdentity = m_identity;
    change.state.recordCount = m_recordCount;
    m_index.Apply(change, CSSIndex::Written::Later);
    change.clear = false;
    ForEachMember([&](std::int32_t index, const CMemberRecord& record) {
        change.added.push_back({CCompareEmail::MakeKey(record.GetAddress()), index});
        ++change.state.liveCount;
        if (change.added.size() >= RebuildGroup) {
            m_index.Apply(change, CSSIndex::Written::Later);
            change.added.clear();
        }
        return true;
    });
    change.state.settled = true;
    m_index.Apply(change, CSSIndex::Written::Later);
    EndUnsynced();
    m_state = change.state;
}

void CMemberFiles::ApplyIndex(IndexChange& change) {
    EndUnsynced();
    ApplyIndex(change, CSSIndex::Written::Now);
}

void CMemberFiles::ApplyIndexInBulk(IndexChange& change) {
    BeginUnsynced();
    ApplyIndex(change, CSSIndex::Written::Later);
    if (++m_bulkChanges % BulkChangesOfOneMap == 0) m_index.Close();
}

void CMemberFiles::ApplyIndex(IndexChange& change, CSSIndex::Written written) {
    ForgetLooks();
    try {
        m_index.Apply(change, written);
    } catch (const CIndexDamaged& e) {
        Log(LogWarning, "%s", e.what());
        RemoveIndex();
        RebuildIndex();
        m_index.Apply(change);
    }
    m_state = change.state;
}

// The name of the note is on the disk before anything that it warns of.
void CMemberFiles::BeginUnsynced() {
    if (!Platform::IsFlushEnabled()) return;
    const bool isNoted = Platform::FileIsThere(m_unsyncedPath);
    if (isNoted && (m_isUnsynced || Platform::CPresence::IsHeld(TableMutexName(m_unsyncedPath)))) return;
    using Result = Platform::CPresence::Result;
    m_isUnsynced = m_isUnsynced || m_unsynced.Acquire(TableMutexName(m_unsyncedPath)) == Result::Acquired;
    Platform::CFile note;
    if (!note.Open(m_unsyncedPath, Platform::FileMode::OpenOrCreate) ||
        !Platform::FlushFolder(ParentFolder(m_unsyncedPath))) {
        throw CLhvException("The index " + m_indexPath + " cannot be written.", Platform::LastSystemError());
    }
}

void CMemberFiles::EndUnsynced() {
    if (!m_isUnsynced) return;
    if (!m_index.IsOpen() || !m_index.IsCurrent()) m_index.Open(m_indexPath, CSSIndex::Access::ReadWrite);
    m_index.Sync();
    Platform::RemoveFile(m_unsyncedPath);
    m_unsynced.Release();
    m_isUnsynced = false;
}

bool CMemberFiles::WasLeftUnsynced() {
    return !m_isUnsynced && Platform::FileIsThere(m_unsyncedPath) &&
           !Platform::CPresence::IsHeld(TableMutexName(m_unsyncedPath));
}

void CMemberFiles::DropIndex() noexcept {
    ForgetLooks();
    m_index.Close();
}

// Where a file that another program has mapped cannot be removed.
bool CMemberFiles::EmptyIndex() noexcept {
    try {
        CSSIndex index;
        index.Open(m_indexPath, CSSIndex::Access::ReadWrite);
        IndexChange change;
        change.clear = true;
        index.Apply(change);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void CMemberFiles::RemoveIndex() noexcept {
    ForgetLooks();
    m_index.Close();
    const bool isGone = Platform::RemoveFile(m_indexPath) || Platform::IsNotFound(Platform::LastSystemError());
    if (isGone || EmptyIndex()) Platform::RemoveFile(m_unsyncedPath);
    m_unsynced.Release();
    m_isUnsynced = false;
}

void CMemberFiles::Pack() {
    NoteLost();
    ForgetLooks();
    m_table->Pack();
    if (m_table->GetRecordCount() == m_recordCount) return;
    m_recordCount = m_table->GetRecordCount();
    NoteIdentity();
    if (m_recordCount > 0) RebuildIndex();
}
