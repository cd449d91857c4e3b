#include "engine/crc32.h"

#include <array>

namespace {

using Table = std::array<std::array<std::uint32_t, 256>, 4>;

// Row k: the checksum of a byte with k zero bytes behind it.
constexpr Table MakeTable() {
    Table table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320U : 0U);
        table[0][i] = value;
    }
    for (std::size_t row = 1; row < table.size(); ++row) {
        for (std::size_t i = 0; i < 256; ++i) {
            const std::uint32_t value = table[row - 1][i];
            table[row][i] = (value >> 8) ^ table[0][value & 0xFF];
        }
    }
    return table;
}

constexpr Table Rows = MakeTable();

}  // namespace

std::uint32_t Crc32(std::span<const std::byte> bytes, std::uint32_t before) noexcept {
    std::uint32_t value = ~before;
    std::size_t i = 0;
    for (; i + 4 <= bytes.size(); i += 4) {
        for (std::size_t k = 0; k < 4; ++k)
            value ^= static_cast<std::uint32_t>(bytes[i + k]) << (8 * k);
        value =
            Rows[3][value & 0xFF] ^ Rows[2][(value >> 8) & 0xFF] ^ Rows[1][(value >> 16) & 0xFF] ^ Rows[0][value >> 24];
    }
    for (; i < bytes.size(); ++i)
        value = (value >> 8) ^ Rows[0][(value ^ static_cast<std::uint32_t>(bytes[i])) & 0xFF];
    return ~value;
}

std::uint32_t Crc32(std::string_view text, std::uint32_t before) noexcept {
    return Crc32(std::as_bytes(std::span(text)), before);
}
