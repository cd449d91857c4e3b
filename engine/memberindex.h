// memberindex.h - the index of a member table by e-mail address.
//
// A file beside the table maps addresses to record indexes.  It is derived: it
// may be thrown away at any time, and an entry is a hint, to be checked against
// the record.  An address may have several entries.  docs/formats.md gives the
// contents.
//
// Errors   CLhvException.  A file that cannot be used as an index, for whatever
//          is in it, throws CIndexDamaged: remove it and build it anew.
// Sharing  No lock is taken or needed beside the named mutex of the table, which
//          the caller holds around every call, Open() and Close() included.
// Crash    A change is there whole or not at all.  After a power failure the
//          last change may be missing, which the state tells.

#ifndef LISTHAVEN_ENGINE_MEMBERINDEX_H
#define LISTHAVEN_ENGINE_MEMBERINDEX_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "utility/lhvexception.h"

class CIndexDamaged : public CLhvException {
public:
    using CLhvException::CLhvException;
};

// The order of e-mail addresses: bytes, without regard to the case of A-Z.
struct CCompareEmail {
    static std::string MakeKey(std::string_view address);  // equal keys: equal addresses
    bool operator()(std::string_view a, std::string_view b) const noexcept;
};

// What the index knows of the table it was made for.
struct IndexState {
    std::uint64_t tableIdentity = 0;  // of the file, see Platform::FileStatus
    std::int32_t recordCount = 0;
    std::int32_t liveCount = 0;
    bool settled = false;  // false while a change of the table is under way

    bool operator==(const IndexState&) const = default;
};

struct IndexEntry {
    std::string key;
    std::int32_t record = 0;
};

struct IndexChange {
    bool clear = false;  // all entries first
    std::vector<IndexEntry> removed;
    std::vector<IndexEntry> added;
    IndexState state;
};

class CSSIndex {
public:
    enum class Access { ReadWrite, ReadOnly };  // read-write creates the file

    CSSIndex();
    ~CSSIndex();

    void Open(const std::string& path, Access access);
    void Close() noexcept;
    bool IsOpen() const noexcept;

    // That the file is the one that was opened, and as long as it says.  False
    // when another one has taken its place.  Costs one look at the status.
    bool IsCurrent();

    bool ReadState(IndexState& state);                                    // false when there is none
    void Find(std::string_view key, std::vector<std::int32_t>& records);  // ascending
    void ForEach(const std::function<void(std::string_view key, std::int32_t record)>& visit);  // by key

    // Sorts the entries; one transaction.  Written Later, the file may be ruined by
    // a power failure before Sync(): the caller makes a note of that first.
    enum class Written { Now, Later };
    void Apply(IndexChange& change, Written written = Written::Now);
    void Sync();

private:
    struct CTransaction;
    struct CFileState;
    std::unique_ptr<CFileState> m_file;
};

#endif  // LISTHAVEN_ENGINE_MEMBERINDEX_H
