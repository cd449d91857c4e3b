// looplevel.h - the loop protection of a list, as one of four levels.

#ifndef LISTHAVEN_ENGINE_LOOPLEVEL_H
#define LISTHAVEN_ENGINE_LOOPLEVEL_H

#include <cstdint>
#include <string_view>

inline constexpr std::int64_t LoopProtectionBits = 1 | 2 | 8;

// The numbers are the positions of a slider.
enum class LoopLevel : std::int32_t { High = 0, Normal = 1, Custom = 2, None = 3 };

LoopLevel LoopLevelOf(std::int64_t bits) noexcept;
std::int64_t LoopBitsOf(LoopLevel level, std::int64_t bits) noexcept;  // bits: those now, which Custom leaves
const char* DescribeLoopLevel(LoopLevel level) noexcept;               // lines, LF between

// "high", "normal", "none", without regard to case.
bool ParseLoopLevel(std::string_view name, LoopLevel& level) noexcept;

#endif  // LISTHAVEN_ENGINE_LOOPLEVEL_H
