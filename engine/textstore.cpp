#include "engine/textstore.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "engine/crc32.h"
#include "engine/eventlog.h"
#include "engine/littleendian.h"
#include "engine/textstorestate.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

using namespace TextStoreFormat;

namespace {

constexpr std::string_view SourceName = "Shared/Engine/textstore";
constexpr std::size_t LargestPadding = 4096;              // above it the file is made longer instead
constexpr std::size_t GroupBytes = std::size_t{8} << 20;  // one write of AddMany()

std::span<const std::byte> BytesOf(std::string_view text) {
    return std::as_bytes(std::span(text));
}

void AppendBytes(std::vector<std::byte>& to, std::span<const std::byte> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

}  // namespace

void CTextStore::CState::Fail(const std::string& path, const char* what) const {
    throw CLhvException("The text file \"" + path + "\" " + what, Platform::LastSystemError());
}

bool CTextStore::CState::OpenFile(Platform::CFile& file, const std::string& path) {
    if (file.IsOpen()) return true;
    const auto mode = access == Access::ReadOnly ? Platform::FileMode::Read : Platform::FileMode::ReadWrite;
    if (file.Open(path, mode)) return true;
    if (!Platform::IsNotFound(Platform::LastSystemError())) Fail(path, "cannot be opened.");
    return false;
}

// A file shorter than its header was being made when its maker died.
bool CTextStore::CState::HasHeader(const Platform::CFile& file, const std::string& path, std::size_t size,
                                   std::span<std::byte> header) {
    std::uint64_t length = 0;
    if (!file.GetSize(length)) Fail(path, "cannot be read.");
    if (length < size) return false;
    if (!file.ReadAt(0, header.data(), header.size())) Fail(path, "cannot be read.");
    return true;
}

bool CTextStore::CState::OpenExisting() {
    if (index.IsOpen() && texts.IsOpen()) return true;
    if (!OpenFile(index, indexPath)) return false;
    IndexHeader header{};
    if (!HasHeader(index, indexPath, IndexHeaderSize, header)) {
        index.Close();
        return false;
    }
    Platform::SetLastSystemError(0);
    if (!IsIndexHeader(header)) {
        index.Close();
        Fail(indexPath, "is not the index of a text store.");
    }
    TextHeader textHeader{};
    if (!OpenFile(texts, textPath) || !HasHeader(texts, textPath, TextHeaderSize, textHeader)) return true;
    Platform::SetLastSystemError(0);
    if (!IsTextHeader(textHeader)) {
        texts.Close();
        Fail(textPath, "is not a text store.");
    }
    return true;
}

void CTextStore::CState::CreateFiles() {
    const IndexHeader indexHeader = NewIndexHeader();
    const TextHeader textHeader = NewTextHeader();
    index.Close();
    texts.Close();
    const auto mode = Platform::FileMode::OpenOrCreate;
    TextHeader found{};
    if (!texts.Open(textPath, mode)) Fail(textPath, "cannot be created.");
    if (!HasHeader(texts, textPath, TextHeaderSize, found)) WriteTexts(0, textHeader);
    Platform::SetLastSystemError(0);
    if (HasHeader(texts, textPath, TextHeaderSize, found) && !IsTextHeader(found)) {
        texts.Close();
        Fail(textPath, "is not a text store.");
    }
    if (!texts.Flush()) Fail(textPath, "cannot be written.");
    if (!index.Open(indexPath, mode)) Fail(indexPath, "cannot be created.");
    WriteIndex(0, indexHeader);
    const std::string folder = ParentFolder(indexPath);
    if (!index.Flush() || !Platform::FlushFolder(folder.empty() ? "." : folder)) Fail(indexPath, "cannot be written.");
}

void CTextStore::CState::OpenForWriting() {
    if (!isOpen || access == Access::ReadOnly) ThrowInternalError(SourceName, __LINE__);
    if (!OpenExisting()) CreateFiles();
    if (!texts.IsOpen() || TextSize() < TextHeaderSize) {
        if (CountReferences() > 0) Fail(textPath, "is missing.");
        index.Close();
        CreateFiles();
    }
}

std::uint64_t CTextStore::CState::IndexSize() const {
    std::uint64_t size = 0;
    if (!index.GetSize(size)) Fail(indexPath, "cannot be read.");
    return size;
}

std::uint64_t CTextStore::CState::TextSize() const {
    std::uint64_t size = 0;
    if (!texts.GetSize(size)) Fail(textPath, "cannot be read.");
    return size;
}

std::int32_t CTextStore::CState::CountReferences() const {
    const std::uint64_t size = IndexSize();
    const std::uint64_t count = size < IndexHeaderSize ? 0 : (size - IndexHeaderSize) / EntrySize;
    return static_cast<std::int32_t>(std::min<std::uint64_t>(count, std::numeric_limits<std::int32_t>::max()));
}

void CTextStore::CState::WriteIndex(std::uint64_t offset, std::span<const std::byte> bytes) {
    if (!index.WriteAt(offset, bytes.data(), bytes.size())) Fail(indexPath, "cannot be written.");
}

void CTextStore::CState::WriteTexts(std::uint64_t offset, std::span<const std::byte> bytes) {
    if (!texts.WriteAt(offset, bytes.data(), bytes.size())) Fail(textPath, "cannot be written.");
}

Entry CTextStore::CState::ReadEntry(std::int32_t reference) const {
    if (reference < 0 || reference >= CountReferences()) return {};
    EntryBytes bytes{};
    const std::uint64_t offset = IndexHeaderSize + static_cast<std::uint64_t>(reference) * EntrySize;
    if (!index.ReadAt(offset, bytes.data(), bytes.size())) Fail(indexPath, "cannot be read.");
    return DecodeEntry(bytes, reference);
}

void CTextStore::CState::WriteEntry(std::int32_t reference, const Entry& entry) {
    WriteIndex(IndexHeaderSize + static_cast<std::uint64_t>(reference) * EntrySize, EncodeEntry(entry, reference));
}

CTextStore::Outcome CTextStore::CState::ReadExtent(std::int32_t reference, const Entry& entry,
                                                   std::string& text) const {
    if (!texts.IsOpen()) return Outcome::Damaged;
    text.resize(ExtentHeaderSize + entry.length);
    if (!texts.ReadAt(entry.offset, text.data(), text.size())) {
        if (Platform::LastSystemError() != 0) Fail(textPath, "cannot be read.");
        return Outcome::Damaged;  // the file ends before
    }
    const ExtentBytes header = EncodeExtent(entry.sizeClass, reference, entry.stamp);
    const bool isOwn = std::equal(header.begin(), header.end(), BytesOf(text).begin());
    text.erase(0, ExtentHeaderSize);
    return isOwn && Crc32(text) == entry.checksum ? Outcome::Good : Outcome::Damaged;
}

bool CTextStore::CState::IsOwnExtent(std::int32_t reference, const Entry& entry) const {
    ExtentBytes found{};
    return texts.ReadAt(entry.offset, found.data(), found.size()) &&
           found == EncodeExtent(entry.sizeClass, reference, entry.stamp);
}

// A free list whose first link is not sound is given up: the space in it is lost
// until the store is repaired, which harms nobody.
std::int32_t CTextStore::CState::TakeReference() {
    std::array<std::byte, 4> bytes{};
    if (!index.ReadAt(FreeReferenceAt, bytes.data(), bytes.size())) Fail(indexPath, "cannot be read.");
    const auto first = static_cast<std::int32_t>(GetU32(bytes.data()));
    const std::int32_t count = CountReferences();
    if (first == NoReference) {
        if (count == std::numeric_limits<std::int32_t>::max()) Fail(indexPath, "is full.");
        return count;
    }
    const Entry entry = ReadEntry(first);
    const bool isSound = first >= 0 && first < count && entry.state == Entry::State::Free &&
                         entry.next >= NoReference && entry.next < count && entry.next != first;
    if (!isSound) Log(LogWarning, "The list of free references in %s is damaged and left.", indexPath.c_str());
    PutU32(bytes.data(), static_cast<std::uint32_t>(isSound ? entry.next : NoReference));
    WriteIndex(FreeReferenceAt, bytes);
    return isSound ? first : count;
}

std::uint64_t CTextStore::CState::TakeExtent(int sizeClass, bool& isNew) {
    std::array<std::byte, 8> bytes{};
    if (!index.ReadAt(FreeExtentAt(sizeClass), bytes.data(), bytes.size())) Fail(indexPath, "cannot be read.");
    const std::uint64_t first = GetU64(bytes.data());
    const std::uint64_t size = TextSize();
    isNew = true;
    if (first == NoExtent) return Align(size);
    FreeBytes header{};
    std::uint64_t next = 0;
    const bool isSound = first < size && first % Alignment == 0 && first + ClassSize(sizeClass) <= size &&
                         texts.ReadAt(first, header.data(), header.size()) &&
                         DecodeFreeExtent(header, sizeClass, first, next);
    if (!isSound) Log(LogWarning, "A list of free space in %s is damaged and left.", textPath.c_str());
    PutU64(bytes.data(), isSound ? next : NoExtent);
    WriteIndex(FreeExtentAt(sizeClass), bytes);
    isNew = !isSound;
    return isSound ? first : Align(size);
}

Entry CTextStore::CState::WriteText(std::int32_t reference, std::string_view text) {
    Entry entry;
    entry.state = Entry::State::Used;
    entry.length = static_cast<std::uint32_t>(text.size());
    entry.checksum = Crc32(text);
    entry.sizeClass = ClassForText(text.size());
    entry.stamp = Platform::RandomNumber();
    bool isNew = false;
    entry.offset = TakeExtent(entry.sizeClass, isNew);
    std::vector<std::byte> bytes;
    AppendBytes(bytes, EncodeExtent(entry.sizeClass, reference, entry.stamp));
    AppendBytes(bytes, BytesOf(text));
    const std::uint64_t size = ClassSize(entry.sizeClass);
    if (isNew && size <= LargestPadding) bytes.resize(size);
    WriteTexts(entry.offset, bytes);
    if (isNew && size > LargestPadding && !texts.SetSize(entry.offset + size)) Fail(textPath, "cannot be written.");
    WriteEntry(reference, entry);
    return entry;
}

// New links first, then the header with the heads of the lists: a crash in
// between loses the new links only.
void CTextStore::CState::ReleaseAll() {
    if (unreleased.empty() || !OpenExisting() || !texts.IsOpen()) return;
    IndexHeader header{};
    if (!index.ReadAt(0, header.data(), header.size())) Fail(indexPath, "cannot be read.");
    for (const Unreleased& item : unreleased) {
        if (item.wholeReference) {
            Entry now = ReadEntry(item.reference);
            if (now.state != Entry::State::Used || now.stamp != item.entry.stamp || now.offset != item.entry.offset) {
                continue;
            }
            Entry freed;
            freed.next = static_cast<std::int32_t>(GetU32(header.data() + FreeReferenceAt));
            WriteEntry(item.reference, freed);
            PutU32(header.data() + FreeReferenceAt, static_cast<std::uint32_t>(item.reference));
        }
        if (!IsOwnExtent(item.reference, item.entry)) continue;
        std::byte* const first = header.data() + FreeExtentAt(item.entry.sizeClass);
        WriteTexts(item.entry.offset, EncodeFreeExtent(item.entry.sizeClass, item.entry.offset, GetU64(first)));
        PutU64(first, item.entry.offset);
    }
    WriteIndex(0, header);
    unreleased.clear();
}

CTextStore::CTextStore() : m_state(std::make_unique<CState>()) {}
CTextStore::~CTextStore() = default;

void CTextStore::Open(std::string_view tablePath, Access access) {
    Close();
    m_state->indexPath = std::string(tablePath) + ".dat1";
    m_state->textPath = std::string(tablePath) + ".dat2";
    m_state->access = access;
    m_state->isOpen = true;
    m_state->OpenExisting();
}

void CTextStore::Close() noexcept {
    m_state->index.Close();
    m_state->texts.Close();
    m_state->unreleased.clear();
    m_state->isOpen = false;
}

bool CTextStore::IsOpen() const noexcept {
    return m_state->isOpen;
}

CTextStore::Outcome CTextStore::TryRead(std::int32_t reference, std::string& text) {
    text.clear();
    if (reference < 0 || !m_state->OpenExisting()) return Outcome::Missing;
    const Entry entry = m_state->ReadEntry(reference);
    if (entry.state == Entry::State::Free) return Outcome::Missing;
    if (entry.state == Entry::State::Damaged) return Outcome::Damaged;
    const Outcome outcome = m_state->ReadExtent(reference, entry, text);
    if (outcome != Outcome::Good) text.clear();
    return outcome;
}

std::string CTextStore::Read(std::int32_t reference) {
    std::string text;
    const Outcome outcome = TryRead(reference, text);
    if (outcome != Outcome::Good) {
        throw CLhvException("The text file \"" + m_state->textPath + "\" is damaged: text " +
                            std::to_string(reference) +
                            (outcome == Outcome::Missing ? " is missing." : " is not whole."));
    }
    return text;
}

std::int32_t CTextStore::Add(std::string_view text) {
    if (text.size() > MaxText) throw CLhvException("The text is longer than 16 MiB.");
    m_state->OpenForWriting();
    const std::int32_t reference = m_state->TakeReference();
    m_state->WriteText(reference, text);
    return reference;
}

void CTextStore::Replace(std::int32_t reference, std::string_view text) {
    if (text.size() > MaxText) throw CLhvException("The text is longer than 16 MiB.");
    m_state->OpenForWriting();
    const Entry before = m_state->ReadEntry(reference);
    if (before.state == Entry::State::Free) {
        throw CLhvException("The text file \"" + m_state->textPath + "\" is damaged: text " +
                            std::to_string(reference) + " is missing.");
    }
    if (before.state == Entry::State::Used) m_state->unreleased.push_back({reference, before, false});
    try {
        m_state->WriteText(reference, text);
    } catch (...) {
        if (before.state == Entry::State::Used) m_state->unreleased.pop_back();
        throw;
    }
}

void CTextStore::Free(std::int32_t reference) {
    if (reference < 0) return;
    m_state->OpenForWriting();
    const Entry entry = m_state->ReadEntry(reference);
    if (entry.state == Entry::State::Used) m_state->unreleased.push_back({reference, entry, true});
}

std::vector<std::int32_t> CTextStore::AddMany(std::span<const std::string_view> texts) {
    std::vector<std::int32_t> references;
    references.reserve(texts.size());
    std::size_t done = 0;
    while (done < texts.size()) {
        m_state->OpenForWriting();
        const std::int32_t first = m_state->CountReferences();
        const std::uint64_t start = Align(m_state->TextSize());
        std::vector<std::byte> extents;
        std::vector<std::byte> entries;
        std::int32_t reference = first;
        for (; done < texts.size() && extents.size() < GroupBytes; ++done, ++reference) {
            const std::string_view text = texts[done];
            if (text.size() > MaxText) throw CLhvException("The text is longer than 16 MiB.");
            if (reference == std::numeric_limits<std::int32_t>::max()) m_state->Fail(m_state->indexPath, "is full.");
            Entry entry;
            entry.state = Entry::State::Used;
            entry.offset = start + extents.size();
            entry.length = static_cast<std::uint32_t>(text.size());
            entry.checksum = Crc32(text);
            entry.sizeClass = ClassForText(text.size());
            entry.stamp = Platform::RandomNumber();
            AppendBytes(extents, EncodeExtent(entry.sizeClass, reference, entry.stamp));
            AppendBytes(extents, BytesOf(text));
            extents.resize(entry.offset - start + ClassSize(entry.sizeClass));
            AppendBytes(entries, EncodeEntry(entry, reference));
            references.push_back(reference);
        }
        m_state->WriteTexts(start, extents);
        m_state->WriteIndex(IndexHeaderSize + static_cast<std::uint64_t>(first) * EntrySize, entries);
    }
    return references;
}

void CTextStore::Flush() {
    if (m_state->access == Access::ReadOnly) return;
    if (m_state->texts.IsOpen() && !m_state->texts.Flush()) m_state->Fail(m_state->textPath, "cannot be written.");
    if (m_state->index.IsOpen() && !m_state->index.Flush()) m_state->Fail(m_state->indexPath, "cannot be written.");
}

void CTextStore::Release() {
    m_state->ReleaseAll();
}
std::size_t CTextStore::GetUnreleased() const noexcept {
    return m_state->unreleased.size();
}

void CTextStore::RemoveAll() {
    m_state->unreleased.clear();
    if (!m_state->OpenExisting()) return;
    if (!m_state->index.SetSize(0)) m_state->Fail(m_state->indexPath, "cannot be emptied.");
    m_state->index.Close();
    if (m_state->texts.IsOpen() && !m_state->texts.SetSize(0)) m_state->Fail(m_state->textPath, "cannot be emptied.");
    m_state->texts.Close();
}

bool CTextStore::RemoveFiles() {
    Close();
    bool removed = true;
    for (const std::string& path : {m_state->indexPath, m_state->textPath}) {
        if (!Platform::RemoveFile(path) && !Platform::IsNotFound(Platform::LastSystemError())) removed = false;
    }
    return removed;
}

std::int32_t CTextStore::GetReferenceCount() {
    return m_state->OpenExisting() ? m_state->CountReferences() : 0;
}
