#include "senddaemon/queuename.h"

#include <charconv>
#include <vector>

#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::size_t SecondsLength = 10;

template <class Number>
bool ParseField(std::string_view text, Number& value) {
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
    return parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() && value >= 0;
}

bool ParseTime(std::string_view text, std::optional<std::int64_t>& value) {
    std::int64_t seconds = 0;
    if (text.size() < SecondsLength || !ParseField(text, seconds)) return false;
    value = seconds;
    return true;
}

}  // namespace

bool ParseQueueName(std::string_view path, CQueueName& name) {
    const std::string file = LastPathComponent(path);
    const std::size_t dot = file.find('.');
    name = {};
    if (dot == std::string::npos || file.substr(dot) != ".eml") return false;
    const std::vector<std::string_view> fields = Split(std::string_view(file).substr(0, dot), '-');
    const std::string_view number = fields.front();
    CQueueName found;
    if (fields.size() > 4 || number.empty() || number.find_first_not_of("0123456789") != std::string_view::npos ||
        (fields.size() > 1 && !ParseTime(fields[1], found.queued)) ||
        (fields.size() > 2 && !ParseField(fields[2], found.attempts)) ||
        (fields.size() > 3 && !ParseTime(fields[3], found.due))) {
        return false;
    }
    found.number = number;
    name = std::move(found);
    return true;
}

std::string FormatQueueName(const CQueueName& name) {
    std::string text = name.number;
    if (name.queued) {
        text += '-' + std::to_string(*name.queued);
        if (name.attempts > 0 || name.due) text += '-' + std::to_string(name.attempts);
        if (name.due) text += '-' + std::to_string(*name.due);
    }
    return text + ".eml";
}

}  // namespace SendDaemon
