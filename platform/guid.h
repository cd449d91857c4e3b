// guid.h - globally unique identifiers and random bytes of the system.

#ifndef LISTHAVEN_PLATFORM_GUID_H
#define LISTHAVEN_PLATFORM_GUID_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace Platform {

struct Guid {
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::array<std::uint8_t, 8> data4{};

    bool operator==(const Guid&) const = default;
};

Guid NewGuid();  // never the null GUID; throws std::runtime_error when the system has no randomness

void FillRandom(void* to, std::size_t size);  // fit for secrets; throws likewise
std::uint32_t RandomNumber();                 // not for secrets: from a generator per thread

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_GUID_H
