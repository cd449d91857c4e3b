// textstore.h - texts of any length, each known by a number.
//
// The store of a table at path P is P.dat1 (one entry per reference) and P.dat2
// (the texts); docs/formats.md gives the bytes.  The files are made by the first
// text.  References count from 0 and are given again after Free().
//
// Errors   Everything throws CLhvException: the system's fault, or a reference
//          that holds no text.  What threw has changed no text.
// Sharing  No lock is taken: the caller holds the named mutex of the table, for
//          reading too.  Nothing of the allocation is cached between calls, so
//          several objects and processes may have one store open.
// Crash    A text is the old or the new one, never a mixture and never another
//          reference's: it is written elsewhere first, then its entry is
//          switched by one small write.  Space that a crash left behind is found
//          by Repair().  This holds for a power failure too, because space is
//          only used again after Release(), which is to follow a Flush() of the
//          store and of what holds the references.

#ifndef LISTHAVEN_ENGINE_TEXTSTORE_H
#define LISTHAVEN_ENGINE_TEXTSTORE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// What a look through a whole store found.
struct TextStoreReport {
    std::int32_t texts = 0;               // references that hold one
    std::vector<std::int32_t> missing;    // in use, but without a text
    std::vector<std::int32_t> damaged;    // in use, but the text or its entry is not what was written
    std::vector<std::int32_t> usedTwice;  // by two records; each is named once
    std::int32_t unused = 0;              // texts that nothing refers to
    std::uint64_t lostBytes = 0;          // of the text file, neither in use nor known to be free
    bool freeListsDamaged = false;
    bool IsSound() const noexcept { return missing.empty() && damaged.empty() && usedTwice.empty(); }
};

class CTextStore {
public:
    enum class Access { ReadWrite, ReadOnly };
    enum class Outcome { Good, Missing, Damaged };

    static constexpr std::int32_t NoText = -1;
    static constexpr std::size_t MaxText = std::size_t{16} << 20;

    CTextStore();
    CTextStore(const CTextStore&) = delete;
    CTextStore& operator=(const CTextStore&) = delete;
    ~CTextStore();

    void Open(std::string_view tablePath, Access access);  // costs no more for many texts
    void Close() noexcept;                                 // frees that were not released leak until Repair()
    bool IsOpen() const noexcept;

    std::string Read(std::int32_t reference);                    // throws when there is none, or a damaged one
    Outcome TryRead(std::int32_t reference, std::string& text);  // throws for the system's faults only
    std::int32_t Add(std::string_view text);
    void Replace(std::int32_t reference, std::string_view text);  // keeps the reference
    void Free(std::int32_t reference);                            // takes effect with Release(); NoText is ignored

    // As Add() for each, with one write to each file; at the end, no matter what is free.
    std::vector<std::int32_t> AddMany(std::span<const std::string_view> texts);

    void Flush();                                // to the disk; reads and writes only go through the system
    void Release();                              // makes what Free() and Replace() gave up available
    std::size_t GetUnreleased() const noexcept;  // how many wait for that
    void RemoveAll();                            // the files stay, empty
    bool RemoveFiles();                          // closes; false when one could not be removed

    std::int32_t GetReferenceCount();  // free ones too: all references are below it

    // inUse: every reference that the table holds, in any order.  Reads all.
    TextStoreReport Check(std::span<const std::int32_t> inUse);

    // Check(), then frees what nothing refers to and builds the lists of free
    // space anew.  What is in use stays as it is, also when damaged: the owner of
    // the reference has to give it up first.
    TextStoreReport Repair(std::span<const std::int32_t> inUse);

private:
    struct CCheck;
    struct CState;
    std::unique_ptr<CState> m_state;
};

#endif  // LISTHAVEN_ENGINE_TEXTSTORE_H
