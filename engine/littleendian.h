// littleendian.h - numbers in stored bytes, least byte first, at any address.

#ifndef LISTHAVEN_ENGINE_LITTLEENDIAN_H
#define LISTHAVEN_ENGINE_LITTLEENDIAN_H

#include <cstddef>
#include <cstdint>

inline void PutU32(std::byte* to, std::uint32_t value) noexcept {
    for (int i = 0; i < 4; ++i)
        to[i] = static_cast<std::byte>(value >> (8 * i));
}

inline void PutU64(std::byte* to, std::uint64_t value) noexcept {
    for (int i = 0; i < 8; ++i)
        to[i] = static_cast<std::byte>(value >> (8 * i));
}

inline std::uint32_t GetU32(const std::byte* from) noexcept {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value |= static_cast<std::uint32_t>(from[i]) << (8 * i);
    return value;
}

inline std::uint64_t GetU64(const std::byte* from) noexcept {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i)
        value |= static_cast<std::uint64_t>(from[i]) << (8 * i);
    return value;
}

#endif  // LISTHAVEN_ENGINE_LITTLEENDIAN_H
