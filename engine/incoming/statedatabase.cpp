#include "engine/incoming/statedatabase.h"

#include <algorithm>
#include <cstdint>

#include "engine/eventlog.h"
#include "engine/lmdbfile.h"
#include "platform/faultplan.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

namespace {

constexpr std::size_t FirstMapSize = std::size_t{1} << 20;
constexpr std::uint64_t SpareRoom = std::uint64_t{1} << 20;
constexpr std::uint64_t ChangeCost = 16384;  // pages that one change may rewrite
constexpr int MostSetAside = 1000;

}  // namespace

struct CStateDatabase::CFileState : CLmdbEnvironment {
    MDB_dbi entries = 0;

    int Open(const std::string& path);
    int OpenEntries();
    int Grow();
};

// The caller keeps everyone else out, so the library's lock file and its table
// of readers are not needed.
int CStateDatabase::CFileState::Open(const std::string& path) {
    if (const int code = Create()) return code;
    Platform::FileStatus status;
    const std::uint64_t size = Platform::GetFileStatus(path, status) ? status.size : 0;
    // Where a map cannot be longer than the file, opening gives the file the length of the map.
    if (const int code = mdb_env_set_mapsize(environment, std::max(FirstMapSize, size))) return code;
    if (const int code = OpenFile(path, 0)) return code;
    return size == 0 || IsLongEnough(size) ? OpenEntries() : MDB_CORRUPTED;
}

int CStateDatabase::CFileState::OpenEntries() {
    CLmdbTransaction transaction;
    if (const int code = transaction.Begin(environment, 0)) return code;
    if (const int code = mdb_dbi_open(transaction.handle, nullptr, 0, &entries)) return code;
    return transaction.Commit();
}

int CStateDatabase::CFileState::Grow() {
    MDB_envinfo info{};
    if (const int code = mdb_env_info(environment, &info)) return code;
    return mdb_env_set_mapsize(environment, info.me_mapsize * 2);
}

CStateDatabase::CStateDatabase() = default;
CStateDatabase::~CStateDatabase() = default;

bool CStateDatabase::Open(const std::string& path) {
    m_path = path;
    return OpenFile();
}

bool CStateDatabase::Reopen() {
    return OpenFile();
}

void CStateDatabase::Close() noexcept {
    m_file.reset();
}

bool CStateDatabase::OpenFile() {
    m_file.reset();
    if (Platform::HitsFault(Platform::Operation::Open)) {
        SetLastErrorFromSystem();
        return false;
    }
    auto file = std::make_unique<CFileState>();
    const int code = file->Open(m_path);
    if (code == MDB_SUCCESS) {
        m_file = std::move(file);
        return true;
    }
    file.reset();
    return SetAside(code);
}

bool CStateDatabase::SetAside(int code) {
    SetLastErrorFormat("The state \"%s\" cannot be used: %s", m_path.c_str(), mdb_strerror(code));
    if (!IsLmdbDamage(code)) return false;
    m_file.reset();
    std::string aside;
    bool isMoved = false;
    for (int i = 1; i <= MostSetAside && !isMoved; ++i) {
        aside = m_path + ".damaged-" + std::to_string(i);
        isMoved = Platform::RenameNew(m_path, aside);
        if (!isMoved && !Platform::IsAlreadyThere(Platform::LastSystemError())) break;
    }
    if (!isMoved) return false;
    Log(LogError,
        "The state \"%s\" is damaged (%s) and was moved to \"%s\". What it knew of messages that were left on the "
        "server is lost: they will be processed once more.",
        m_path.c_str(), mdb_strerror(code), aside.c_str());
    auto file = std::make_unique<CFileState>();
    if (const int again = file->Open(m_path)) {
        SetLastErrorFormat("The state \"%s\" cannot be made anew: %s", m_path.c_str(), mdb_strerror(again));
        return false;
    }
    m_file = std::move(file);
    return true;
}

bool CStateDatabase::Get(std::string_view key, std::string& value) {
    bool isThere = false;
    if (!Find(key, value, isThere)) throw CLhvException(DescribeLastError());
    return isThere;
}

bool CStateDatabase::Find(std::string_view key, std::string& value, bool& isThere) {
    value.clear();
    isThere = false;
    if (!m_file) {
        SetLastErrorText("The state is not open.");
        return false;
    }
    if (key.empty() || key.size() > LongestKey) return true;
    if (Platform::HitsFault(Platform::Operation::Read)) {
        SetLastErrorFromSystem();
        return false;
    }
    CLmdbTransaction transaction;
    MDB_val wanted = ToLmdbValue(key);
    MDB_val found{};
    int code = transaction.Begin(m_file->environment, MDB_RDONLY);
    if (code == MDB_SUCCESS) code = mdb_get(transaction.handle, m_file->entries, &wanted, &found);
    isThere = code == MDB_SUCCESS;
    if (isThere) value = ToText(found);
    if (isThere || code == MDB_NOTFOUND) return true;
    transaction.Abort();  // before its file is closed
    SetLastErrorFormat("The state \"%s\" cannot be read: %s", m_path.c_str(), mdb_strerror(code));
    return m_visits == 0 && SetAside(code);
}

namespace {

// While it lives nothing may be changed: the map must not move.
class CVisit {
public:
    explicit CVisit(int& visits) : m_visits(visits) { ++m_visits; }
    CVisit(const CVisit&) = delete;
    CVisit& operator=(const CVisit&) = delete;
    ~CVisit() { --m_visits; }

private:
    int& m_visits;
};

using CursorOwner = std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)>;

// Drops the entry that the cursor is at when visit returns true and "drops" is set.
int Walk(MDB_txn* transaction, MDB_dbi entries, std::string_view prefix, bool drops,
         const CStateDatabase::Visit& visit) {
    MDB_cursor* cursor = nullptr;
    if (const int code = mdb_cursor_open(transaction, entries, &cursor)) return code;
    const CursorOwner owner(cursor, mdb_cursor_close);
    MDB_val key = ToLmdbValue(prefix);
    MDB_val value{};
    int code = mdb_cursor_get(cursor, &key, &value, MDB_SET_RANGE);
    for (; code == MDB_SUCCESS && ToText(key).starts_with(prefix);
         code = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) {
        const bool isWanted = visit(ToText(key), ToText(value));
        if (!drops && !isWanted) return MDB_SUCCESS;
        if (!drops || !isWanted) continue;
        if (const int failed = mdb_cursor_del(cursor, 0)) return failed;
    }
    return code == MDB_NOTFOUND ? MDB_SUCCESS : code;
}

}  // namespace

bool CStateDatabase::ForEach(std::string_view prefix, const Visit& visit) {
    if (!m_file) {
        SetLastErrorText("The state is not open.");
        return false;
    }
    int code = MDB_SUCCESS;
    {
        CLmdbTransaction transaction;
        const CVisit guard(m_visits);
        code = transaction.Begin(m_file->environment, MDB_RDONLY);
        if (code == MDB_SUCCESS) code = Walk(transaction.handle, m_file->entries, prefix, false, visit);
    }
    return code == MDB_SUCCESS || SetAside(code);
}

// A change that does not fit makes the map grow, and is made again.
int CStateDatabase::Write(const std::function<int(void* transaction)>& work, Written written, bool& isUnknown) {
    isUnknown = false;
    MDB_env* const environment = m_file->environment;
    mdb_env_set_flags(environment, MDB_NOSYNC, Platform::IsFlushEnabled() ? 0 : 1);
    mdb_env_set_flags(environment, MDB_NOMETASYNC, written == Written::Later ? 1 : 0);
    for (;;) {
        CLmdbTransaction transaction;
        int code = transaction.Begin(environment, 0);
        if (code == MDB_SUCCESS) code = work(transaction.handle);
        if (code == MDB_SUCCESS) {
            code = transaction.Commit();
            isUnknown = code != MDB_SUCCESS && code != MDB_MAP_FULL;
        }
        if (code != MDB_MAP_FULL) return code;
        transaction.Abort();
        if (const int failed = m_file->Grow()) return failed;
    }
}

CStateDatabase::Outcome CStateDatabase::Apply(std::span<const CStateChange> changes, Written written) {
    if (!m_file || m_visits > 0) {
        SetLastErrorText("The state cannot be changed now.");
        return Outcome::Nothing;
    }
    if (Platform::HitsFault(Platform::Operation::Write)) {
        SetLastErrorFromSystem();
        return Outcome::Nothing;
    }
    const auto put = [&](void* handle) {
        auto* const transaction = static_cast<MDB_txn*>(handle);
        for (const CStateChange& change : changes) {
            MDB_val key = ToLmdbValue(change.key);
            MDB_val value = ToLmdbValue(change.value);
            const int code = change.value.empty() ? mdb_del(transaction, m_file->entries, &key, nullptr)
                                                  : mdb_put(transaction, m_file->entries, &key, &value, 0);
            if (code != MDB_SUCCESS && (code != MDB_NOTFOUND || !change.value.empty())) return code;
        }
        return MDB_SUCCESS;
    };
    std::uint64_t bytes = std::min(changes.size() * ChangeCost, m_file->SizeItSays());
    for (const CStateChange& change : changes)
        bytes += change.key.size() + change.value.size();
    if (!EnsureRoom(bytes)) return Outcome::Nothing;
    bool isUnknown = false;
    int code = Write(put, written, isUnknown);
    if (IsLmdbDamage(code) && SetAside(code)) code = Write(put, written, isUnknown);
    if (code == MDB_SUCCESS && Platform::HitsFault(Platform::Operation::Flush)) {
        SetLastErrorFromSystem();
        return Outcome::Unknown;
    }
    if (code == MDB_SUCCESS) return Outcome::Done;
    SetLastErrorFormat("The state \"%s\" cannot be written: %s", m_path.c_str(), mdb_strerror(code));
    return isUnknown ? Outcome::Unknown : Outcome::Nothing;
}

bool CStateDatabase::Drop(std::string_view prefix, const Visit& drop) {
    if (!m_file || m_visits > 0) {
        SetLastErrorText("The state cannot be changed now.");
        return false;
    }
    if (!EnsureRoom(m_file->SizeItSays())) return false;
    bool isUnknown = false;
    const int code = Write(
        [&](void* handle) {
            const CVisit visit(m_visits);
            return Walk(static_cast<MDB_txn*>(handle), m_file->entries, prefix, true, drop);
        },
        Written::Later, isUnknown);
    return code == MDB_SUCCESS || SetAside(code);
}

// The library leaves out pages at the end that a change took and gave back, and
// a file that is too short is taken for a damaged one: so it gets its length
// before the change.  Where nothing was written it takes no room on the disk.
bool CStateDatabase::EnsureRoom(std::uint64_t bytes) {
    Platform::FileStatus status;
    const std::uint64_t needed = m_file->SizeItSays() + 2 * bytes + SpareRoom;
    if (Platform::GetFileStatus(m_path, status) && status.size >= needed) return true;
    Platform::CFile file;
    if (file.Open(m_path, Platform::FileMode::ReadWrite) && file.SetSize(needed + 4 * SpareRoom)) return true;
    SetLastErrorFromSystem();
    return false;
}
