#include "engine/textstoreformat.h"

#include <algorithm>

#include "engine/crc32.h"
#include "engine/littleendian.h"

namespace TextStoreFormat {

namespace {

constexpr std::string_view IndexMagic = "LHVTIDX1";
constexpr std::string_view TextMagic = "LHVTEXT1";
constexpr std::uint32_t FormatVersion = 1;
constexpr std::byte UsedMark{'U'};
constexpr std::byte FreeMark{'F'};

std::uint32_t UsedTag(int sizeClass) noexcept {
    return 0x00545854U | static_cast<std::uint32_t>(sizeClass) << 24;  // "TXT", class
}

std::uint32_t FreeTag(int sizeClass) noexcept {
    return 0x00455246U | static_cast<std::uint32_t>(sizeClass) << 24;  // "FRE", class
}

std::uint32_t EntryChecksum(std::span<const std::byte> bytes, std::int32_t reference) noexcept {
    std::array<std::byte, 4> number{};
    PutU32(number.data(), static_cast<std::uint32_t>(reference));
    return Crc32(number, Crc32(bytes.first(EntrySize - 4)));
}

std::uint32_t FreeChecksum(int sizeClass, std::uint64_t offset, std::uint64_t next) noexcept {
    std::array<std::byte, 20> bytes{};
    PutU32(bytes.data(), FreeTag(sizeClass));
    PutU64(bytes.data() + 4, offset);
    PutU64(bytes.data() + 12, next);
    return Crc32(bytes);
}

void PutMagic(std::byte* to, std::string_view magic) noexcept {
    std::transform(magic.begin(), magic.end(), to, [](char c) { return static_cast<std::byte>(c); });
}

bool HasMagic(std::span<const std::byte> bytes, std::string_view magic) noexcept {
    return bytes.size() >= magic.size() &&
           std::equal(magic.begin(), magic.end(), bytes.begin(),
                      [](char c, std::byte b) { return static_cast<std::byte>(c) == b; });
}

}  // namespace

int ClassForText(std::size_t length) noexcept {
    int sizeClass = 0;
    while (ClassSize(sizeClass) < length + ExtentHeaderSize)
        ++sizeClass;
    return sizeClass;
}

int LargestClassWithin(std::uint64_t bytes) noexcept {
    int sizeClass = ClassCount - 1;
    while (sizeClass >= 0 && ClassSize(sizeClass) > bytes)
        --sizeClass;
    return sizeClass;
}

EntryBytes EncodeEntry(const Entry& entry, std::int32_t reference) noexcept {
    EntryBytes bytes{};
    const bool isUsed = entry.state == Entry::State::Used;
    PutU64(bytes.data(), isUsed ? entry.offset : static_cast<std::uint32_t>(entry.next));
    PutU32(bytes.data() + 8, entry.length);
    PutU32(bytes.data() + 12, entry.checksum);
    bytes[16] = isUsed ? UsedMark : FreeMark;
    bytes[17] = static_cast<std::byte>(entry.sizeClass);
    PutU32(bytes.data() + 20, entry.stamp);
    PutU32(bytes.data() + EntrySize - 4, EntryChecksum(bytes, reference));
    return bytes;
}

Entry DecodeEntry(std::span<const std::byte> bytes, std::int32_t reference) noexcept {
    Entry entry;
    if (std::all_of(bytes.begin(), bytes.end(), [](std::byte b) { return b == std::byte{0}; })) return entry;
    entry.state = Entry::State::Damaged;
    if (GetU32(bytes.data() + EntrySize - 4) != EntryChecksum(bytes, reference)) return entry;
    entry.length = GetU32(bytes.data() + 8);
    entry.checksum = GetU32(bytes.data() + 12);
    entry.sizeClass = static_cast<int>(bytes[17]);
    entry.stamp = GetU32(bytes.data() + 20);
    if (bytes[16] == FreeMark) {
        entry.next = static_cast<std::int32_t>(GetU32(bytes.data()));
        entry.state = Entry::State::Free;
    } else if (bytes[16] == UsedMark && entry.sizeClass < ClassCount &&
               ExtentHeaderSize + std::uint64_t{entry.length} <= ClassSize(entry.sizeClass)) {
        entry.offset = GetU64(bytes.data());
        entry.state = Entry::State::Used;
    }
    return entry;
}

ExtentBytes EncodeExtent(int sizeClass, std::int32_t reference, std::uint32_t stamp) noexcept {
    ExtentBytes bytes{};
    PutU32(bytes.data(), UsedTag(sizeClass));
    PutU32(bytes.data() + 4, static_cast<std::uint32_t>(reference));
    PutU32(bytes.data() + 8, stamp);
    return bytes;
}

FreeBytes EncodeFreeExtent(int sizeClass, std::uint64_t offset, std::uint64_t next) noexcept {
    FreeBytes bytes{};
    PutU32(bytes.data(), FreeTag(sizeClass));
    PutU32(bytes.data() + 4, FreeChecksum(sizeClass, offset, next));
    PutU64(bytes.data() + 8, next);
    return bytes;
}

bool DecodeFreeExtent(std::span<const std::byte> bytes, int sizeClass, std::uint64_t offset,
                      std::uint64_t& next) noexcept {
    next = GetU64(bytes.data() + 8);
    return GetU32(bytes.data()) == FreeTag(sizeClass) &&
           GetU32(bytes.data() + 4) == FreeChecksum(sizeClass, offset, next);
}

IndexHeader NewIndexHeader() noexcept {
    IndexHeader header{};
    PutMagic(header.data(), IndexMagic);
    PutU32(header.data() + 8, FormatVersion);
    PutU32(header.data() + 12, EntrySize);
    PutU32(header.data() + FreeReferenceAt, static_cast<std::uint32_t>(NoReference));
    return header;
}

TextHeader NewTextHeader() noexcept {
    TextHeader header{};
    PutMagic(header.data(), TextMagic);
    PutU32(header.data() + 8, FormatVersion);
    return header;
}

bool IsIndexHeader(std::span<const std::byte> bytes) noexcept {
    return HasMagic(bytes, IndexMagic) && GetU32(bytes.data() + 8) == FormatVersion &&
           GetU32(bytes.data() + 12) == EntrySize;
}

bool IsTextHeader(std::span<const std::byte> bytes) noexcept {
    return HasMagic(bytes, TextMagic) && GetU32(bytes.data() + 8) == FormatVersion;
}

}  // namespace TextStoreFormat
