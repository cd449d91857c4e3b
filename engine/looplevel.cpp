#include "engine/looplevel.h"

#include "utility/text.h"

namespace {

constexpr std::int64_t HighBits = 1 | 2 | 8;
constexpr std::int64_t NormalBits = 1 | 2;

}  // namespace

LoopLevel LoopLevelOf(std::int64_t bits) noexcept {
    switch (bits & LoopProtectionBits) {
        case HighBits:
            return LoopLevel::High;
        case NormalBits:
            return LoopLevel::Normal;
        case 0:
            return LoopLevel::None;
        default:
            return LoopLevel::Custom;
    }
}

std::int64_t LoopBitsOf(LoopLevel level, std::int64_t bits) noexcept {
    switch (level) {
        case LoopLevel::High:
            return HighBits;
        case LoopLevel::Normal:
            return NormalBits;
        case LoopLevel::None:
            return 0;
        case LoopLevel::Custom:
            break;
    }
    return bits;
}

const char* DescribeLoopLevel(LoopLevel level) noexcept {
    switch (level) {
        case LoopLevel::High:
            return "High protection level:\n- Messages which contain X-Loop header field are ignored.\n"
                   "- A custom header field is used.\n- Subject is modified to include a unique ID.";
        case LoopLevel::Normal:
            return "Normal protection level:\n- Messages which contain X-Loop header field are ignored.\n"
                   "- A custom header field is used.";
        case LoopLevel::Custom:
            return "Custom settings.";
        case LoopLevel::None:
            break;
    }
    return "No protection.";
}

bool ParseLoopLevel(std::string_view name, LoopLevel& level) noexcept {
    const struct {
        std::string_view name;
        LoopLevel level;
    } names[] = {{"high", LoopLevel::High}, {"normal", LoopLevel::Normal}, {"none", LoopLevel::None}};
    for (const auto& each : names) {
        if (!EqualNoCase(each.name, name)) continue;
        level = each.level;
        return true;
    }
    return false;
}
