#include <random>

#include "platform/guid.h"

namespace Platform {

std::uint32_t RandomNumber() {
    thread_local std::mt19937 generator = [] {
        std::array<std::uint32_t, 8> seed;
        FillRandom(seed.data(), sizeof seed);
        std::seed_seq sequence(seed.begin(), seed.end());
        return std::mt19937(sequence);
    }();
    return static_cast<std::uint32_t>(generator());
}

}  // namespace Platform
