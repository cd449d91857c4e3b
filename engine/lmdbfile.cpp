#include "engine/lmdbfile.h"

#include "platform/file.h"

bool IsLmdbDamage(int code) {
    switch (code) {
        case MDB_INVALID:
        case MDB_CORRUPTED:
        case MDB_PAGE_NOTFOUND:
        case MDB_VERSION_MISMATCH:
        case MDB_INCOMPATIBLE:
        case MDB_BAD_DBI:
        case MDB_PANIC:
        case MDB_CURSOR_FULL:
        case MDB_PAGE_FULL:
            return true;
        default:
            return false;
    }
}

MDB_val ToLmdbValue(std::string_view text) {
    return {text.size(), const_cast<char*>(text.data())};
}

std::string_view ToText(const MDB_val& value) {
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

CLmdbEnvironment::~CLmdbEnvironment() {
    if (environment) mdb_env_close(environment);
}

int CLmdbEnvironment::OpenFile(const std::string& path, unsigned flags) {
    constexpr unsigned Always = MDB_NOSUBDIR | MDB_NOTLS | MDB_NOLOCK | MDB_NORDAHEAD;
    const std::string name = Platform::NameForLibraries(path);
    if (const int code = mdb_env_open(environment, name.c_str(), Always | flags, 0660)) return code;
    MDB_stat statistics{};
    const int code = mdb_env_stat(environment, &statistics);
    pageSize = statistics.ms_psize;
    return code;
}

std::uint64_t CLmdbEnvironment::SizeItSays() const {
    MDB_envinfo info{};
    mdb_env_info(environment, &info);
    return (std::uint64_t{info.me_last_pgno} + 1) * pageSize;
}

bool CLmdbEnvironment::IsLongEnough(std::uint64_t size) const {
    return size >= 2 * pageSize && size >= SizeItSays();
}

int CLmdbTransaction::Begin(MDB_env* environment, unsigned flags) {
    return mdb_txn_begin(environment, nullptr, flags, &handle);
}

int CLmdbTransaction::Commit() {
    MDB_txn* const committed = handle;
    handle = nullptr;  // freed by the call, whatever it returns
    return mdb_txn_commit(committed);
}

void CLmdbTransaction::Abort() {
    if (handle) mdb_txn_abort(handle);
    handle = nullptr;
}
