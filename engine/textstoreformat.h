// textstoreformat.h - the bytes of a text store.
//
// P.dat1: a header, then one entry of 32 bytes per reference.  P.dat2: a header,
// then extents, each of one of 40 sizes and either free or the text of one
// reference.  docs/formats.md draws them.

#ifndef LISTHAVEN_ENGINE_TEXTSTOREFORMAT_H
#define LISTHAVEN_ENGINE_TEXTSTOREFORMAT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace TextStoreFormat {

inline constexpr std::size_t IndexHeaderSize = 512;
inline constexpr std::size_t EntrySize = 32;
inline constexpr std::size_t TextHeaderSize = 16;
inline constexpr std::size_t ExtentHeaderSize = 12;  // of one in use
inline constexpr std::size_t FreeHeaderSize = 16;    // of a free one
inline constexpr std::size_t Alignment = 16;
inline constexpr int ClassCount = 40;
inline constexpr std::int32_t NoReference = -1;
inline constexpr std::uint64_t NoExtent = 0;

// 32, 48, 64, 96, 128, 192, ... bytes.
constexpr std::uint64_t ClassSize(int sizeClass) noexcept {
    return (sizeClass % 2 == 0 ? std::uint64_t{32} : std::uint64_t{48}) << (sizeClass / 2);
}
int ClassForText(std::size_t length) noexcept;         // the smallest that takes it with its header
int LargestClassWithin(std::uint64_t bytes) noexcept;  // -1 when none
constexpr std::uint64_t Align(std::uint64_t offset) noexcept {
    return (offset + Alignment - 1) / Alignment * Alignment;
}

using EntryBytes = std::array<std::byte, EntrySize>;
using ExtentBytes = std::array<std::byte, ExtentHeaderSize>;
using FreeBytes = std::array<std::byte, FreeHeaderSize>;
using IndexHeader = std::array<std::byte, IndexHeaderSize>;
using TextHeader = std::array<std::byte, TextHeaderSize>;

struct Entry {
    enum class State { Used, Free, Damaged };
    State state = State::Free;
    std::uint64_t offset = 0;         // Used: of its extent
    std::int32_t next = NoReference;  // Free: the next free reference
    std::uint32_t length = 0;
    std::uint32_t checksum = 0;  // of the text
    int sizeClass = 0;
    std::uint32_t stamp = 0;  // the same in the extent: the two were written together
};

EntryBytes EncodeEntry(const Entry& entry, std::int32_t reference) noexcept;
Entry DecodeEntry(std::span<const std::byte> bytes, std::int32_t reference) noexcept;  // all zero is Free

ExtentBytes EncodeExtent(int sizeClass, std::int32_t reference, std::uint32_t stamp) noexcept;
FreeBytes EncodeFreeExtent(int sizeClass, std::uint64_t offset, std::uint64_t next) noexcept;
bool DecodeFreeExtent(std::span<const std::byte> bytes, int sizeClass, std::uint64_t offset,
                      std::uint64_t& next) noexcept;

IndexHeader NewIndexHeader() noexcept;
TextHeader NewTextHeader() noexcept;
bool IsIndexHeader(std::span<const std::byte> bytes) noexcept;
bool IsTextHeader(std::span<const std::byte> bytes) noexcept;

inline constexpr std::size_t FreeReferenceAt = 16;            // in the header of P.dat1: 4 bytes
constexpr std::size_t FreeExtentAt(int sizeClass) noexcept {  // 8 bytes
    return 24 + 8 * static_cast<std::size_t>(sizeClass);
}

}  // namespace TextStoreFormat

#endif  // LISTHAVEN_ENGINE_TEXTSTOREFORMAT_H
