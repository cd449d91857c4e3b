// crc32.h - the checksum of stored bytes: CRC-32 as in IEEE 802.3, ISO 3309.

#ifndef LISTHAVEN_ENGINE_CRC32_H
#define LISTHAVEN_ENGINE_CRC32_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// before: the checksum of what precedes the bytes.
std::uint32_t Crc32(std::span<const std::byte> bytes, std::uint32_t before = 0) noexcept;
std::uint32_t Crc32(std::string_view text, std::uint32_t before = 0) noexcept;

#endif  // LISTHAVEN_ENGINE_CRC32_H
