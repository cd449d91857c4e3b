// memberfiles.h - the files of one list's members, as they are under its mutex.
//
// A list without members has no files: a table that is empty is not kept open
// beyond the operation, since closing it removes it.
//
// Errors   CLhvException.
// Order    Everything but the constructor needs a CMemberHold to be alive; what
//          was read before it is no longer true.

#ifndef LISTHAVEN_ENGINE_MEMBERFILES_H
#define LISTHAVEN_ENGINE_MEMBERFILES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/memberindex.h"
#include "engine/memberrecord.h"
#include "engine/membertable.h"
#include "platform/namedmutex.h"

class CMemberFiles {
public:
    CMemberFiles(const std::string& tablePath, bool readOnly);
    CMemberFiles(const CMemberFiles&) = delete;
    CMemberFiles& operator=(const CMemberFiles&) = delete;
    ~CMemberFiles();  // takes the mutex to close

    const std::string& GetPath() const noexcept { return m_path; }
    bool IsReadOnly() const noexcept { return m_readOnly; }
    std::int32_t GetRecordCount() const noexcept { return m_recordCount; }
    std::uint32_t GetGeneration() const noexcept { return m_generation; }  // changes when records may have moved

    void RequireWritable() const;  // also makes the table when there is none
    void MakeTable();

    // Records lie back to back in blocks, each of GetRecordSize() bytes.
    std::size_t GetRecordSize() const noexcept;
    bool ReadMember(std::int32_t index, std::span<std::byte> record);  // false when there is no member
    void ReadBlock(std::int32_t first, std::int32_t count, std::vector<std::byte>& records);
    void WriteRecord(std::int32_t index, std::span<const std::byte> record);
    void AppendRecords(std::span<std::byte> records);
    void ForEachMember(const std::function<bool(std::int32_t index, CMemberRecord record)>& visit);

    std::string ReadText(std::int32_t reference);
    std::vector<std::int32_t> StoreTexts(std::span<const std::string_view> texts);
    void FreeTexts(std::span<const std::int32_t> references) noexcept;  // after the records that held them are flushed
    void FlushTexts();
    void FlushRecords();

    // The index by address.  While it cannot be used (a folder that may not be
    // written) the table is walked instead.
    std::int32_t Find(std::string_view address);
    std::int32_t CountMembers();
    void PrepareIndex();  // so that it fits the table; throws when it cannot be made to
    const IndexState& GetIndexState() const noexcept { return m_state; }
    void ApplyIndex(IndexChange& change);        // on the disk when it returns
    void ApplyIndexInBulk(IndexChange& change);  // on the disk when the list is closed, or changed otherwise
    void RebuildIndex();
    void DropIndex() noexcept;  // closes it; it is looked at anew when it is next needed
    bool EmptyIndex() noexcept;
    void RemoveIndex() noexcept;  // with its file

    // Members that were there and are no longer; see CMemberStore.  In memberloss.cpp.
    bool HasForeignRecords();  // a look at a few
    std::vector<std::string> FindLost();
    void NoteLost();  // before an index that knows them is made anew
    void ForgetLost();
    void RefuseDamaged() noexcept { m_refusesDamaged = true; }
    void CheckRecord(std::int32_t index, const CMemberRecord& record) const;  // throws if it is to be refused

    void Pack();

private:
    friend class CMemberHold;

    std::vector<std::int32_t> FindDamagedRecords(bool& areZeros);
    bool CompareWithIndex(const std::vector<std::int32_t>& damaged, std::vector<std::string>& lost);
    std::vector<std::string> ReadLost() const;

    void ForgetLooks() noexcept;
    void NoteIdentity();
    void Refresh();
    void OpenTable(bool create);
    void CloseTable();
    void CloseWhenEmpty() noexcept;
    void CloseForOthers() noexcept;
    bool TryPrepareIndex();
    bool IndexFits();
    void ApplyIndex(IndexChange& change, CSSIndex::Written written);
    void BeginUnsynced();
    void EndUnsynced();
    bool WasLeftUnsynced();
    std::int32_t FindInIndex(std::string_view key);
    std::int32_t FindByWalk(std::string_view key);

    std::string m_path;
    std::string m_indexPath;
    std::string m_lostPath;
    bool m_readOnly;
    bool m_refusesDamaged = false;
    Platform::CNamedMutex m_mutex;

    // A file that says that the index is not on the disk yet.  Whoever wrote it
    // holds the presence; when nobody does, the index is not to be trusted.
    std::string m_unsyncedPath;
    Platform::CPresence m_unsynced;
    bool m_isUnsynced = false;
    int m_bulkChanges = 0;

    std::unique_ptr<CMemberTable> m_table;  // empty: there is no file, or an empty one
    std::uint64_t m_identity = 0;
    std::int32_t m_recordCount = 0;
    std::uint32_t m_generation = 0;
    int m_holds = 0;
    bool m_isClosedForOthers = false;  // records have not moved if it is the same file when it is opened again
    CSSIndex m_index;
    IndexState m_state;
    std::vector<std::int32_t> m_hits;
    std::vector<std::byte> m_record;
    std::int32_t m_found = -1;     // the member that is in m_record, while nobody else can change it
    bool m_isIndexLooked = false;  // the index fits, likewise
};

// Holds the mutex for one operation, or for several when others are within it.
class CMemberHold {
public:
    explicit CMemberHold(CMemberFiles& files);
    CMemberHold(const CMemberHold&) = delete;
    CMemberHold& operator=(const CMemberHold&) = delete;
    ~CMemberHold();

private:
    CMemberFiles& m_files;
};

#endif  // LISTHAVEN_ENGINE_MEMBERFILES_H
