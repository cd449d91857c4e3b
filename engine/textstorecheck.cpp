#include <algorithm>
#include <utility>

#include "engine/littleendian.h"
#include "engine/textstore.h"
#include "engine/textstorestate.h"

using namespace TextStoreFormat;

namespace {

struct Space {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
};

constexpr std::size_t EntriesPerRead = 8192;

// Calls visit(reference, entry) for every entry.
template <class V>
void ForEachEntry(const Platform::CFile& index, std::int32_t count, const V& visit) {
    std::vector<std::byte> block(EntriesPerRead * EntrySize);
    for (std::int32_t first = 0; first < count; first += static_cast<std::int32_t>(EntriesPerRead)) {
        const auto entries = std::min(EntriesPerRead, static_cast<std::size_t>(count - first));
        const std::uint64_t offset = IndexHeaderSize + static_cast<std::uint64_t>(first) * EntrySize;
        const bool wasRead = index.ReadAt(offset, block.data(), entries * EntrySize);
        for (std::size_t i = 0; i < entries; ++i) {
            const std::int32_t reference = first + static_cast<std::int32_t>(i);
            Entry entry;
            entry.state = Entry::State::Damaged;
            if (wasRead) entry = DecodeEntry(std::span(block).subspan(i * EntrySize, EntrySize), reference);
            visit(reference, entry);
        }
    }
}

std::uint64_t SumOf(const std::vector<Space>& spaces) {
    std::uint64_t sum = 0;
    for (const Space& space : spaces)
        sum += space.end - space.start;
    return sum;
}

void SortSpaces(std::vector<Space>& spaces) {
    std::sort(spaces.begin(), spaces.end(), [](const Space& a, const Space& b) { return a.start < b.start; });
}

bool Overlaps(std::vector<Space> spaces) {
    SortSpaces(spaces);
    for (std::size_t i = 1; i < spaces.size(); ++i) {
        if (spaces[i].start < spaces[i - 1].end) return true;
    }
    return false;
}

}  // namespace

// One walk over a store: what is used, by whom, and what is free.
struct CTextStore::CCheck {
    CState& store;
    TextStoreReport report;
    std::vector<std::uint8_t> users;  // per reference, up to 2
    std::vector<Space> used;          // extents of texts in use
    std::vector<Space> free;          // extents on the lists
    bool extentsUnknown = false;      // of a text in use: its entry is damaged

    CCheck(CState& state, std::span<const std::int32_t> inUse);
    void LookAtTexts();
    void LookAtFreeReferences(const IndexHeader& header);
    void LookAtFreeExtents(const IndexHeader& header, int sizeClass);
    void LookAtFreeSpace();

    void FreeReferences(IndexHeader& header);
    void FreeSpace(IndexHeader& header, Space gap);
    void Rebuild();
};

CTextStore::CCheck::CCheck(CState& state, std::span<const std::int32_t> inUse) : store(state) {
    const std::int32_t count = store.OpenExisting() ? store.CountReferences() : 0;
    users.resize(static_cast<std::size_t>(count));
    for (const std::int32_t reference : inUse) {
        if (reference < 0) continue;
        if (reference >= count) {
            report.missing.push_back(reference);
            continue;
        }
        std::uint8_t& number = users[static_cast<std::size_t>(reference)];
        if (number == 1) report.usedTwice.push_back(reference);
        if (number < 2) ++number;
    }
}

void CTextStore::CCheck::LookAtTexts() {
    std::string text;
    ForEachEntry(store.index, static_cast<std::int32_t>(users.size()), [&](std::int32_t reference, const Entry& entry) {
        const bool isWanted = users[static_cast<std::size_t>(reference)] != 0;
        if (entry.state == Entry::State::Used) {
            ++report.texts;
            if (!isWanted) {
                ++report.unused;
                return;
            }
            used.push_back({entry.offset, entry.offset + ClassSize(entry.sizeClass)});
            if (store.ReadExtent(reference, entry, text) != Outcome::Good) report.damaged.push_back(reference);
        } else if (isWanted) {
            if (entry.state == Entry::State::Damaged) extentsUnknown = true;
            (entry.state == Entry::State::Free ? report.missing : report.damaged).push_back(reference);
        }
    });
}

void CTextStore::CCheck::LookAtFreeReferences(const IndexHeader& header) {
    const auto count = static_cast<std::int32_t>(users.size());
    auto reference = static_cast<std::int32_t>(GetU32(header.data() + FreeReferenceAt));
    std::int32_t steps = 0;
    while (reference != NoReference) {
        const bool isInRange = reference >= 0 && reference < count && ++steps <= count;
        const Entry entry = isInRange ? store.ReadEntry(reference) : Entry{};
        if (!isInRange || entry.state != Entry::State::Free) {
            report.freeListsDamaged = true;
            return;
        }
        reference = entry.next;
    }
}

void CTextStore::CCheck::LookAtFreeExtents(const IndexHeader& header, int sizeClass) {
    const std::uint64_t size = store.TextSize();
    std::uint64_t offset = GetU64(header.data() + FreeExtentAt(sizeClass));
    std::uint64_t steps = 0;
    while (offset != NoExtent) {
        FreeBytes bytes{};
        std::uint64_t next = 0;
        const bool isSound = ++steps <= size / ClassSize(0) && offset < size && size - offset >= ClassSize(sizeClass) &&
                             store.texts.ReadAt(offset, bytes.data(), bytes.size()) &&
                             DecodeFreeExtent(bytes, sizeClass, offset, next);
        if (!isSound) {
            report.freeListsDamaged = true;
            return;
        }
        free.push_back({offset, offset + ClassSize(sizeClass)});
        offset = next;
    }
}

void CTextStore::CCheck::LookAtFreeSpace() {
    if (!store.index.IsOpen() || !store.texts.IsOpen()) return;
    IndexHeader header{};
    if (!store.index.ReadAt(0, header.data(), header.size())) store.Fail(store.indexPath, "cannot be read.");
    LookAtFreeReferences(header);
    for (int sizeClass = 0; sizeClass < ClassCount; ++sizeClass)
        LookAtFreeExtents(header, sizeClass);
    std::vector<Space> all = used;
    all.insert(all.end(), free.begin(), free.end());
    if (Overlaps(std::move(all))) report.freeListsDamaged = true;
    const std::uint64_t known = TextHeaderSize + SumOf(used) + SumOf(free);
    const std::uint64_t size = store.TextSize();
    report.lostBytes = size > known ? size - known : 0;
}

void CTextStore::CCheck::FreeReferences(IndexHeader& header) {
    ForEachEntry(store.index, static_cast<std::int32_t>(users.size()), [&](std::int32_t reference, const Entry&) {
        if (users[static_cast<std::size_t>(reference)] != 0) return;
        Entry freed;
        freed.next = static_cast<std::int32_t>(GetU32(header.data() + FreeReferenceAt));
        store.WriteEntry(reference, freed);
        PutU32(header.data() + FreeReferenceAt, static_cast<std::uint32_t>(reference));
    });
}

void CTextStore::CCheck::FreeSpace(IndexHeader& header, Space gap) {
    gap.start = Align(gap.start);
    while (gap.start < gap.end) {
        const int sizeClass = LargestClassWithin(gap.end - gap.start);
        if (sizeClass < 0) return;  // too little for any text
        std::byte* const first = header.data() + FreeExtentAt(sizeClass);
        store.WriteTexts(gap.start, EncodeFreeExtent(sizeClass, gap.start, GetU64(first)));
        PutU64(first, gap.start);
        gap.start += ClassSize(sizeClass);
    }
}

// The lists are emptied first: an interrupted repair only loses space.
void CTextStore::CCheck::Rebuild() {
    IndexHeader header = NewIndexHeader();
    store.WriteIndex(0, header);
    FreeReferences(header);
    if (extentsUnknown) {  // what looks free may hold that text
        store.WriteIndex(0, header);
        return;
    }
    SortSpaces(used);
    std::uint64_t end = TextHeaderSize;
    for (const Space& space : used) {
        if (space.start > end) FreeSpace(header, {end, space.start});
        end = std::max(end, space.end);
    }
    if (store.TextSize() > end && !store.texts.SetSize(end)) store.Fail(store.textPath, "cannot be written.");
    store.WriteIndex(0, header);
}

TextStoreReport CTextStore::Check(std::span<const std::int32_t> inUse) {
    CCheck check(*m_state, inUse);
    check.LookAtTexts();
    check.LookAtFreeSpace();
    return check.report;
}

TextStoreReport CTextStore::Repair(std::span<const std::int32_t> inUse) {
    CCheck check(*m_state, inUse);
    check.LookAtTexts();
    check.LookAtFreeSpace();
    m_state->unreleased.clear();
    if (m_state->index.IsOpen() && m_state->texts.IsOpen() && m_state->TextSize() >= TextHeaderSize) {
        m_state->OpenForWriting();
        check.Rebuild();
        Flush();
    }
    return check.report;
}
