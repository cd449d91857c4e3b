// lmdbfile.h - what the files of the LMDB library have in common here.
//
// They are opened without the library's lock file and table of readers: whoever
// uses these keeps every other process and thread out.
//
// Errors   The library's codes: those of the system are positive, its own negative.

#ifndef LISTHAVEN_ENGINE_LMDBFILE_H
#define LISTHAVEN_ENGINE_LMDBFILE_H

#include <lmdb.h>

#include <cstdint>
#include <string>
#include <string_view>

// That the contents of the file are at fault.  MDB_BAD_TXN is not among them: it
// follows an error that was not heeded, and says nothing of the file.
bool IsLmdbDamage(int code);

MDB_val ToLmdbValue(std::string_view text);
std::string_view ToText(const MDB_val& value);

struct CLmdbEnvironment {
    CLmdbEnvironment() = default;
    CLmdbEnvironment(const CLmdbEnvironment&) = delete;
    CLmdbEnvironment& operator=(const CLmdbEnvironment&) = delete;
    ~CLmdbEnvironment();

    int Create() { return mdb_env_create(&environment); }
    int OpenFile(const std::string& path, unsigned flags);

    std::uint64_t SizeItSays() const;  // bytes, by the last page that is used

    // Reading a mapped page behind the end of the file would end the process, and
    // the first two pages say how many there are.
    bool IsLongEnough(std::uint64_t size) const;

    MDB_env* environment = nullptr;
    std::uint64_t pageSize = 0;
};

// Aborted unless it was committed.
class CLmdbTransaction {
public:
    CLmdbTransaction() = default;
    CLmdbTransaction(const CLmdbTransaction&) = delete;
    CLmdbTransaction& operator=(const CLmdbTransaction&) = delete;
    ~CLmdbTransaction() { Abort(); }

    int Begin(MDB_env* environment, unsigned flags);
    int Commit();
    void Abort();

    MDB_txn* handle = nullptr;
};

#endif  // LISTHAVEN_ENGINE_LMDBFILE_H
