#include "utility/formattext.h"

#include <cstdio>

std::string FormatTextV(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    char buffer[512];
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    std::string result;
    if (length > 0 && static_cast<std::size_t>(length) < sizeof buffer) {
        result.assign(buffer, static_cast<std::size_t>(length));
    } else if (length > 0) {
        result.resize(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(result.data(), result.size(), format, again);
        result.pop_back();
    }
    va_end(again);
    return result;
}

std::string FormatText(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::string result = FormatTextV(format, arguments);
    va_end(arguments);
    return result;
}
