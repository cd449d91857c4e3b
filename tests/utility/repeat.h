// repeat.h - a text many times over.

#ifndef LISTHAVEN_TESTS_UTILITY_REPEAT_H
#define LISTHAVEN_TESTS_UTILITY_REPEAT_H

#include <cstddef>
#include <string>
#include <string_view>

inline std::string Repeat(std::string_view text, std::size_t times) {
    std::string all;
    for (; times > 0; --times)
        all += text;
    return all;
}

#endif  // LISTHAVEN_TESTS_UTILITY_REPEAT_H
