// sevenbittext.h - East Asian text of seven bits, brought to eight.
//
// Source   RFC 1468 and 1554 (ISO-2022-JP), 1557 (ISO-2022-KR), 1843 (HZ).
// Threads  Any.

#ifndef LISTHAVEN_PLATFORM_SEVENBITTEXT_H
#define LISTHAVEN_PLATFORM_SEVENBITTEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace Platform {

enum class SevenBitSet : std::uint8_t { Iso2022Jp, Iso2022Kr, Hz };

// The same text in EUC-JP, EUC-KR or GB 2312.  What a line switched to ends
// with it, whatever its writer forgot.
std::string WithEighthBit(SevenBitSet set, std::string_view text);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_SEVENBITTEXT_H
