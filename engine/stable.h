// stable.h - a record table: one file of fixed-width records, and a cursor.
//
// A table at path P is the file P (records back to back, no header), P.ver,
// and P.dat1/P.dat2 if a column keeps its texts apart; docs/formats.md
// describes the bytes.  Indexes count from 0; sizes are in bytes.  Columns have
// the number of their description, from 1, whatever version the file has; column
// 0 is the deletion flag.
//
// Errors   Open() returns false when P itself cannot be opened, with the reason
//          in Platform::LastSystemError().  Every other fault throws
//          CLhvException, also on a thread that was asked to stop (see
//          SetCancellable).  A column that the file's version lacks reads as
//          empty and cannot be written.
// Sharing  No lock is taken but for the upgrade and for removing an empty
//          table's files: the caller holds the named mutex of the file
//          (TableMutexName).  A CSTable belongs to one thread at a time.
// Crash    Append() and the operations on whole records are one write each.
//          Upgrade and Pack() write aside and rename, so the old or the new table
//          is whole; one that was interrupted while renaming is finished by the
//          next Open().  A torn last record is not counted.  Nothing is flushed
//          before Flush().

#ifndef LISTHAVEN_ENGINE_STABLE_H
#define LISTHAVEN_ENGINE_STABLE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class CTextStore;

enum class ColumnType : std::int32_t { Flag = 0, Text = 1, StoredText = 2, Counter = 3, Binary = 4 };

struct CColumnDescription {
    ColumnType type;
    std::int32_t size;         // Text and Binary only; Text takes one byte more; 0 ends the list
    std::uint32_t minVersion;  // absent from files older than this
    const char* name;
};

// The named mutex of the table at that path.
std::string TableMutexName(std::string_view path);

class CSTable {
public:
    static constexpr std::uint32_t CurrentVersion = 0x2201;
    static constexpr std::uint32_t OldestVersion = 0x200;  // of a table without P.ver

    CSTable();
    CSTable(const CSTable&) = delete;
    CSTable& operator=(const CSTable&) = delete;
    virtual ~CSTable();  // closes

    // Closes what was open.  An older file is rewritten at CurrentVersion
    // first, unless readOnly; that takes [Execution] UpgradePause (50 ms) a
    // record.  The names of the columns must outlive the table.
    bool Open(std::string_view path, std::span<const CColumnDescription> columns, bool readOnly, bool create);
    void Close();  // removes the files of an empty table that was open for writing, unless its mutex is taken
    bool IsOpen() const noexcept;
    void SetCancellable(bool on) noexcept;

    // Another process may have packed, upgraded or removed the file since it was
    // opened; this object would then read and write a file without a name.
    bool IsCurrent() const;
    bool ReopenIfReplaced();  // true when it had to; the cursor is 0 then.  Throws when the file is gone for good

    const std::string& GetFileName() const noexcept;
    std::uint32_t GetVersion() const noexcept;
    std::int32_t GetRecordSize() const noexcept;  // 0 when closed
    std::int32_t GetRecordCount() const;          // deleted ones too; O(1); 0 when closed
    void Go(std::int32_t index) noexcept;         // not checked; no file access
    std::int32_t GetCursor() const noexcept;      // -1: none
    std::int32_t Append();                        // index of the new record, its counters filled in; -1 when closed

    // These work on the current record.
    void Delete();
    void Undelete();
    bool IsDeleted();
    bool FindPrevDeleted();  // from the current record downwards; false with the cursor at -1
    bool FindPrevLive();
    void ReadColumn(int column, std::span<std::byte> to);
    void WriteColumn(int column, std::span<const std::byte> from);
    std::string ReadText(int column);
    void WriteText(int column, std::string_view text);        // cut to the column's size; what follows the NUL stays
    void WriteTextInFull(int column, std::string_view text);  // the rest of the column becomes zero: for passwords
    std::int64_t ReadNumber(int column);                      // decimal text; 0 when it is none
    void WriteNumber(int column, std::int64_t value);
    std::uint32_t ReadCounter(int column);
    std::int32_t ReadReference(int column);  // of a StoredText column

    // Whole records, GetRecordSize() bytes each, in one read or write.
    void ReadRecord(std::span<std::byte> record);
    void ReadRecords(std::span<std::byte> records);  // from the current one on; a multiple of the size
    void WriteRecord(std::span<const std::byte> record);
    // Fills in the flags and counters, and writes all in one go.  Index of the first.
    std::int32_t AppendRecords(std::span<std::byte> records);

    // On records in memory; no file access but for nothing: texts of StoredText
    // columns go through GetTextStore().
    std::vector<std::byte> MakeRecord() const;                                     // live, empty, no texts
    std::string_view TextOf(std::span<const std::byte> record, int column) const;  // up to the NUL
    std::int64_t NumberOf(std::span<const std::byte> record, int column) const;
    std::uint32_t CounterOf(std::span<const std::byte> record, int column) const;
    std::int32_t ReferenceOf(std::span<const std::byte> record, int column) const;
    void PutText(std::span<std::byte> record, int column, std::string_view text) const;  // in full
    void PutNumber(std::span<std::byte> record, int column, std::int64_t value) const;
    void PutReference(std::span<std::byte> record, int column, std::int32_t reference) const;
    static bool IsDeletedRecord(std::span<const std::byte> record) noexcept;

    int GetColumnCount() const noexcept;             // with column 0
    bool HasColumn(int column) const noexcept;       // in a file of this version
    std::int32_t GetColumnSize(int column) const;    // in the record
    std::int32_t GetColumnOffset(int column) const;  // in the record
    CTextStore* GetTextStore() noexcept;             // null when no column needs one

    void RemoveRange(std::int32_t count);  // from the current record on; moves the tail, which a crash may leave double
    void Pack();                           // drops every deleted record and its texts; indexes change
    void RemoveAll();
    std::uint32_t FindMaxCounter(int column);              // leaves the cursor on the record that holds it
    void RaiseCounter(int column, std::uint32_t atLeast);  // the next record gets a greater one

    // Records and texts to the disk; then space that texts gave up is used again.
    void Flush();

protected:
    virtual void OnReadFault(int column);  // a short or failed read; throws by default

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

#endif  // LISTHAVEN_ENGINE_STABLE_H
