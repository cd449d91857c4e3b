// stablestate.h - an open record table; for stable*.cpp only.

#ifndef LISTHAVEN_ENGINE_STABLESTATE_H
#define LISTHAVEN_ENGINE_STABLESTATE_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "engine/stable.h"
#include "engine/textstore.h"
#include "platform/file.h"

struct CSTable::CState {
    struct Column {
        ColumnType type = ColumnType::Flag;
        std::int32_t declaredSize = 1;
        std::int32_t size = 1;  // in the record
        std::uint32_t minVersion = 0;
        const char* name = "";
        std::int32_t offset = 0;  // in the record; -1: not in files of this version
        std::uint32_t counter = 0;
    };

    struct Layout {
        std::vector<Column> columns;  // by number; the first is the flag
        std::int32_t recordSize = 1;
        std::int32_t columnCount = 1;  // those that are in the record
        bool hasTexts = false;
    };

    static constexpr std::size_t BlockBytes = 262144;

    bool cancellable = false;
    bool readOnly = false;
    bool create = false;
    bool isNewName = false;  // the folder has not been flushed since the file was made
    std::string path;
    std::vector<CColumnDescription> descriptions;
    std::uint32_t version = 0;
    Layout layout;
    std::int32_t recordSize = 0;  // 0: closed
    std::int32_t cursor = -1;
    std::int32_t knownCount = 0;  // records for which the counters are right
    std::uint64_t identity = 0;
    Platform::CFile file;
    std::unique_ptr<CTextStore> texts;

    static Layout MakeLayout(std::span<const CColumnDescription> descriptions, std::uint32_t version);

    // Opening, in stableupgrade.cpp.
    bool OpenFiles();  // false when P cannot be opened
    std::uint32_t FindVersion();
    std::uint32_t ReadVersionFile(bool& isThere) const;
    void WriteVersionFile(std::uint32_t newVersion) const;
    void CheckLayout(bool hasVersionFile) const;
    bool FlagsFit(std::uint64_t size) const;
    bool HasRewriting() const;
    void FinishRewriting();
    void Upgrade();
    void WriteUpgraded(const Layout& next, Platform::CFile& to);
    void DropRewriting() const noexcept;

    [[noreturn]] void Fail(const char* what) const;
    [[noreturn]] void FailInternal(int line) const;
    void CheckStop() const;  // throws on a thread that was asked to stop

    std::uint64_t Length() const;
    std::int32_t Count() const;
    std::uint64_t OffsetOf(std::int32_t index) const;
    void SetLength(std::uint64_t length);
    const Column& PresentColumn(int number) const;  // throws
    const Column* FindColumn(int number) const;     // null: not in this version; throws when there is none
    void RequireRecord() const;
    void WriteAtCursor(std::int32_t offset, std::span<const std::byte> bytes);

    // Calls visit(first index, bytes of whole records) until it returns false.
    template <class V>
    void ForEachBlock(const V& visit) const;

    bool FindDownwards(bool deleted);
    std::uint32_t MaxCounter(int number, std::int32_t& holder) const;
    void LoadCounters();
    void CountLive();
    void CollectReferences(std::span<const std::byte> record, std::vector<std::int32_t>& references) const;

    struct Run {
        std::int32_t first = 0;
        std::int32_t count = 0;
    };
    std::vector<Run> FindDeletedRuns() const;
    void WritePacked(std::vector<std::int32_t>& freed);
    void ReplaceByNew();
    void RemoveEmptyFiles();
    std::int32_t ReferenceAt(std::span<const std::byte> record, const Column& column) const;
};

template <class V>
void CSTable::CState::ForEachBlock(const V& visit) const {
    const std::int32_t count = Count();
    const auto size = static_cast<std::size_t>(recordSize);
    const std::size_t perBlock = BlockBytes / size > 0 ? BlockBytes / size : 1;
    std::vector<std::byte> block;
    for (std::int32_t first = 0; first < count;) {
        CheckStop();
        const std::size_t records = std::min(perBlock, static_cast<std::size_t>(count - first));
        block.resize(records * size);
        if (!file.ReadAt(OffsetOf(first), block.data(), block.size())) Fail("cannot be read.");
        if (!visit(first, std::span<const std::byte>(block))) return;
        first += static_cast<std::int32_t>(records);
    }
}

#endif  // LISTHAVEN_ENGINE_STABLESTATE_H
