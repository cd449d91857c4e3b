#include "engine/memberindex.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "engine/lmdbfile.h"
#include "platform/faultplan.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "utility/text.h"

namespace {

constexpr std::size_t FirstMapSize = std::size_t{1} << 20;
constexpr std::uint32_t StateLayout = 1;
constexpr std::size_t StateSize = 24;
constexpr char StateKey[] = "state";

[[noreturn]] void Fail(const std::string& path, int code) {
    // Codes of the system are positive, the library's own negative.
    const auto systemCode = static_cast<std::uint32_t>(code > 0 ? code : 0);
    const std::string text = "The index " + path + " cannot be used: " + mdb_strerror(code);
    if (IsLmdbDamage(code)) throw CIndexDamaged(text, systemCode);
    throw CLhvException(text, systemCode);
}

void Check(const std::string& path, int code) {
    if (code != MDB_SUCCESS) Fail(path, code);
}

// Little-endian in the state, big-endian in the entries: their order is that of the bytes.
void PutNumber(std::uint8_t* to, std::uint64_t number, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        to[i] = static_cast<std::uint8_t>(number >> (8 * i));
}

std::uint64_t TakeNumber(const std::uint8_t* from, std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = size; i-- > 0;)
        number = number << 8 | from[i];
    return number;
}

using RecordBytes = std::array<std::uint8_t, 4>;

RecordBytes ToRecordBytes(std::int32_t record) {
    const auto number = static_cast<std::uint32_t>(record);
    return {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
            static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

std::int32_t FromRecordBytes(const std::uint8_t* bytes) {
    return static_cast<std::int32_t>(std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
                                     std::uint32_t{bytes[2]} << 8 | bytes[3]);
}

MDB_val ToValue(RecordBytes& bytes) {
    return {bytes.size(), bytes.data()};
}

std::array<std::uint8_t, StateSize> EncodeState(const IndexState& state) {
    std::array<std::uint8_t, StateSize> bytes{};
    PutNumber(&bytes[0], StateLayout, 4);
    PutNumber(&bytes[4], state.settled ? 1 : 0, 4);
    PutNumber(&bytes[8], state.tableIdentity, 8);
    PutNumber(&bytes[16], static_cast<std::uint32_t>(state.recordCount), 4);
    PutNumber(&bytes[20], static_cast<std::uint32_t>(state.liveCount), 4);
    return bytes;
}

bool DecodeState(const MDB_val& value, IndexState& state) {
    if (value.mv_size != StateSize) return false;
    const auto* bytes = static_cast<const std::uint8_t*>(value.mv_data);
    if (TakeNumber(bytes, 4) != StateLayout) return false;
    state.settled = TakeNumber(bytes + 4, 4) == 1;
    state.tableIdentity = TakeNumber(bytes + 8, 8);
    state.recordCount = static_cast<std::int32_t>(TakeNumber(bytes + 16, 4));
    state.liveCount = static_cast<std::int32_t>(TakeNumber(bytes + 20, 4));
    return true;
}

void SortByKey(std::vector<IndexEntry>& entries) {
    std::sort(entries.begin(), entries.end(), [](const IndexEntry& a, const IndexEntry& b) {
        const int order = a.key.compare(b.key);
        return order != 0 ? order < 0 : a.record < b.record;
    });
}

}  // namespace

std::string CCompareEmail::MakeKey(std::string_view address) {
    return LowerAscii(address);
}

bool CCompareEmail::operator()(std::string_view a, std::string_view b) const noexcept {
    return CompareNoCase(a, b) < 0;
}

struct CSSIndex::CFileState : CLmdbEnvironment {
    std::string path;
    MDB_dbi entries = 0;
    MDB_dbi state = 0;
    bool hasTables = false;
    Access access = Access::ReadWrite;
    std::uint64_t identity = 0;

    void OpenEnvironment();
    void MakeRoom();
    std::uint64_t GetLength() const;
    void OpenTables();
    void KeepLongEnough();
    void Grow();
    int TryApply(const IndexChange& change);
};

struct CSSIndex::CTransaction : CLmdbTransaction {
    CTransaction(CFileState& file, unsigned flags) {
        int code = Begin(file.environment, flags);
        if (code == MDB_MAP_RESIZED) {  // another process has made it grow
            Check(file.path, mdb_env_set_mapsize(file.environment, file.GetLength()));
            code = Begin(file.environment, flags);
        }
        Check(file.path, code);
    }
};

// The named mutex keeps everyone else out, so the library's own lock file, its
// table of readers and its rule of one environment per process are not needed.
void CSSIndex::CFileState::OpenEnvironment() {
    Check(path, Create());
    Check(path, mdb_env_set_maxdbs(environment, 2));
    Platform::FileStatus status;
    const std::uint64_t size = GetLength();
    const bool isNew = size == 0;
    const bool reads = access == Access::ReadOnly;
    // Where a map cannot be longer than the file, opening gives the file the length of the map.
    Check(path, mdb_env_set_mapsize(environment, reads && !isNew ? size : std::max(FirstMapSize, size)));
    Check(path, OpenFile(path, MDB_NOMETASYNC | (reads ? MDB_RDONLY : 0U)));
    if (!Platform::GetFileStatus(path, status)) throw CLhvException("The index " + path + " has vanished.");
    identity = status.identity;
    if (!isNew && !IsLongEnough(size)) throw CIndexDamaged("The index " + path + " is shorter than it says.");
    if (!reads) MakeRoom();
}

// Less than another program has mapped must not be asked for: it would cut the file.
std::uint64_t CSSIndex::CFileState::GetLength() const {
    Platform::FileStatus status;
    return Platform::GetFileStatus(path, status) ? status.size : 0;
}

// Only what is used counts: the length of the file may be that of an earlier map.
void CSSIndex::CFileState::MakeRoom() {
    MDB_envinfo info{};
    Check(path, mdb_env_info(environment, &info));
    std::uint64_t mapSize = info.me_mapsize;
    while (mapSize < SizeItSays() + SizeItSays() / 4)
        mapSize *= 2;
    if (mapSize > info.me_mapsize) Check(path, mdb_env_set_mapsize(environment, mapSize));
}

void CSSIndex::CFileState::OpenTables() {
    const bool writes = access == Access::ReadWrite;
    CTransaction transaction(*this, writes ? 0 : unsigned{MDB_RDONLY});
    const unsigned create = writes ? unsigned{MDB_CREATE} : 0;
    int code = mdb_dbi_open(transaction.handle, "entries", create | MDB_DUPSORT | MDB_DUPFIXED, &entries);
    if (code == MDB_SUCCESS) code = mdb_dbi_open(transaction.handle, "state", create, &state);
    if (code == MDB_NOTFOUND) return;
    Check(path, code);
    Check(path, transaction.Commit());
    hasTables = true;
    if (writes) KeepLongEnough();
}

// The library leaves out pages at the end that a change took and gave back.
void CSSIndex::CFileState::KeepLongEnough() {
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(path, status) || IsLongEnough(status.size)) return;
    Platform::CFile file;
    if (file.Open(path, Platform::FileMode::ReadWrite)) file.SetSize(SizeItSays());
}

void CSSIndex::CFileState::Grow() {
    MDB_envinfo info{};
    Check(path, mdb_env_info(environment, &info));
    Check(path, mdb_env_set_mapsize(environment, std::max(std::uint64_t{info.me_mapsize} * 2, GetLength())));
}

int CSSIndex::CFileState::TryApply(const IndexChange& change) {
    CTransaction transaction(*this, 0);
    if (change.clear) {
        if (const int code = mdb_drop(transaction.handle, entries, 0)) return code;
    }
    for (const IndexEntry& entry : change.removed) {
        MDB_val key = ToLmdbValue(entry.key);
        RecordBytes bytes = ToRecordBytes(entry.record);
        MDB_val value = ToValue(bytes);
        const int code = entry.key.empty() ? MDB_SUCCESS : mdb_del(transaction.handle, entries, &key, &value);
        if (code != MDB_SUCCESS && code != MDB_NOTFOUND) return code;
    }
    for (const IndexEntry& entry : change.added) {
        if (entry.key.empty()) continue;  // nobody looks for it
        MDB_val key = ToLmdbValue(entry.key);
        RecordBytes bytes = ToRecordBytes(entry.record);
        MDB_val value = ToValue(bytes);
        const int code = mdb_put(transaction.handle, entries, &key, &value, MDB_NODUPDATA);
        if (code != MDB_SUCCESS && code != MDB_KEYEXIST) return code;
    }
    MDB_val key = ToLmdbValue(StateKey);
    auto bytes = EncodeState(change.state);
    MDB_val value{bytes.size(), bytes.data()};
    if (const int code = mdb_put(transaction.handle, state, &key, &value, 0)) return code;
    return transaction.Commit();
}

CSSIndex::CSSIndex() = default;
CSSIndex::~CSSIndex() = default;

void CSSIndex::Open(const std::string& path, Access access) {
    Close();
    auto file = std::make_unique<CFileState>();
    file->path = path;
    file->access = access;
    if (Platform::HitsFault(Platform::Operation::Open)) {
        throw CLhvException("The index " + path + " cannot be opened.", Platform::LastSystemError());
    }
    file->OpenEnvironment();
    file->OpenTables();
    m_file = std::move(file);
}

void CSSIndex::Close() noexcept {
    m_file.reset();
}
bool CSSIndex::IsOpen() const noexcept {
    return m_file != nullptr;
}

bool CSSIndex::IsCurrent() {
    Platform::FileStatus status;
    if (!m_file || !Platform::GetFileStatus(m_file->path, status) || status.identity != m_file->identity) return false;
    if (!m_file->IsLongEnough(status.size)) {
        throw CIndexDamaged("The index " + m_file->path + " is shorter than it says.");
    }
    return true;
}

bool CSSIndex::ReadState(IndexState& state) {
    if (!m_file->hasTables) return false;
    CTransaction transaction(*m_file, MDB_RDONLY);
    MDB_val key = ToLmdbValue(StateKey);
    MDB_val value{};
    const int code = mdb_get(transaction.handle, m_file->state, &key, &value);
    if (code == MDB_NOTFOUND) return false;
    Check(m_file->path, code);
    return DecodeState(value, state);
}

void CSSIndex::Find(std::string_view key, std::vector<std::int32_t>& records) {
    records.clear();
    const auto longest = static_cast<std::size_t>(mdb_env_get_maxkeysize(m_file->environment));
    if (key.empty() || key.size() > longest || !m_file->hasTables) return;
    CTransaction transaction(*m_file, MDB_RDONLY);
    MDB_cursor* cursor = nullptr;
    Check(m_file->path, mdb_cursor_open(transaction.handle, m_file->entries, &cursor));
    const std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)> owner(cursor, mdb_cursor_close);
    MDB_val wanted = ToLmdbValue(key);
    MDB_val value{};
    int code = mdb_cursor_get(cursor, &wanted, &value, MDB_SET);
    while (code == MDB_SUCCESS) {
        if (value.mv_size != 4) throw CIndexDamaged("The index " + m_file->path + " holds an entry of wrong size.");
        records.push_back(FromRecordBytes(static_cast<const std::uint8_t*>(value.mv_data)));
        code = mdb_cursor_get(cursor, &wanted, &value, MDB_NEXT_DUP);
    }
    if (code != MDB_NOTFOUND) Fail(m_file->path, code);
}

void CSSIndex::ForEach(const std::function<void(std::string_view key, std::int32_t record)>& visit) {
    if (!m_file->hasTables) return;
    CTransaction transaction(*m_file, MDB_RDONLY);
    MDB_cursor* cursor = nullptr;
    Check(m_file->path, mdb_cursor_open(transaction.handle, m_file->entries, &cursor));
    const std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)> owner(cursor, mdb_cursor_close);
    MDB_val key{};
    MDB_val value{};
    int code = MDB_SUCCESS;
    while ((code = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) == MDB_SUCCESS) {
        if (value.mv_size != 4) throw CIndexDamaged("The index " + m_file->path + " holds an entry of wrong size.");
        visit({static_cast<const char*>(key.mv_data), key.mv_size},
              FromRecordBytes(static_cast<const std::uint8_t*>(value.mv_data)));
    }
    if (code != MDB_NOTFOUND) Fail(m_file->path, code);
}

void CSSIndex::Apply(IndexChange& change, Written written) {
    SortByKey(change.removed);
    SortByKey(change.added);
    if (Platform::HitsFault(Platform::Operation::Write)) {
        throw CLhvException("The index " + m_file->path + " cannot be written.", Platform::LastSystemError());
    }
    const bool later = written == Written::Later || !Platform::IsFlushEnabled();
    Check(m_file->path, mdb_env_set_flags(m_file->environment, MDB_NOSYNC, later ? 1 : 0));
    int code = m_file->TryApply(change);
    while (code == MDB_MAP_FULL) {
        m_file->Grow();
        code = m_file->TryApply(change);
    }
    Check(m_file->path, code);
    m_file->KeepLongEnough();
}

void CSSIndex::Sync() {
    if (!Platform::IsFlushEnabled()) return;
    if (Platform::HitsFault(Platform::Operation::Flush)) {
        throw CLhvException("The index " + m_file->path + " cannot be written.", Platform::LastSystemError());
    }
    Check(m_file->path, mdb_env_sync(m_file->environment, 1));
}
