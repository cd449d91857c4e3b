#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "senddaemon/deliverylog.h"
#include "senddaemon/deliverylogfiles.h"

namespace SendDaemon {

namespace {

constexpr std::array<std::string_view, 7> StatusNames = {"accepted", "sent",   "deferred", "failed",
                                                         "expired",  "parked", "requeued"};
static_assert(StatusNames.size() == static_cast<std::size_t>(DeliveryStatus::Requeued) + 1);

constexpr std::size_t ColumnCount = 9;
constexpr int LargestCode = 999;

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

template <class N>
bool ParseWhole(std::string_view text, N& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// Exactly as many as there are columns.
bool SplitColumns(std::string_view text, std::array<std::string_view, ColumnCount>& columns) {
    for (std::size_t i = 0; i + 1 < ColumnCount; ++i) {
        const std::size_t tab = text.find('\t');
        if (tab == std::string_view::npos) return false;
        columns[i] = text.substr(0, tab);
        text.remove_prefix(tab + 1);
    }
    columns.back() = text;
    return std::none_of(columns.begin(), columns.end(),
                        [](std::string_view column) { return std::any_of(column.begin(), column.end(), IsControl); });
}

}  // namespace

std::string_view GetDeliveryStatusName(DeliveryStatus status) noexcept {
    return StatusNames.at(static_cast<std::size_t>(status));
}

bool ParseDeliveryStatus(std::string_view name, DeliveryStatus& status) {
    const auto found = std::find(StatusNames.begin(), StatusNames.end(), name);
    if (found == StatusNames.end()) return false;
    status = static_cast<DeliveryStatus>(found - StatusNames.begin());
    return true;
}

void AppendDeliveryValue(std::string& to, std::string_view value, std::size_t limit) {
    if (value.size() > limit) {
        // Not within a UTF-8 character, if it is one.
        std::size_t end = limit;
        while (end + 3 > limit && (static_cast<unsigned char>(value[end]) & 0xc0U) == 0x80U)
            --end;
        value = value.substr(0, end);
    }
    const std::size_t start = to.size();
    to += value;
    std::replace_if(to.begin() + static_cast<std::ptrdiff_t>(start), to.end(), IsControl, ' ');
}

std::string FormatDeliveryLine(const CDeliveryLine& line) {
    std::string text = std::to_string(line.time);
    text.reserve(128 + line.message.size() + line.recipient.size() + line.text.size());
    text += '\t';
    text += GetDeliveryStatusName(line.status);
    for (const std::string* value : {&line.broadcast, &line.message, &line.recipient, &line.host}) {
        text += '\t';
        AppendDeliveryValue(text, *value, DeliveryValueLimit);
    }
    text += '\t';
    text += std::to_string(std::clamp(line.code, 0, LargestCode));
    text += '\t';
    AppendDeliveryValue(text, line.enhanced, DeliveryValueLimit);
    text += '\t';
    AppendDeliveryValue(text, line.text, DeliveryTextLimit);
    text += '\n';
    return text;
}

bool ParseDeliveryLine(std::string_view text, CDeliveryLine& line) {
    std::array<std::string_view, ColumnCount> columns;
    if (!SplitColumns(text, columns)) return false;
    if (!ParseWhole(columns[0], line.time) || !ParseDeliveryStatus(columns[1], line.status)) return false;
    if (!ParseWhole(columns[6], line.code) || line.code < 0 || line.code > LargestCode) return false;
    line.broadcast = columns[2];
    line.message = columns[3];
    line.recipient = columns[4];
    line.host = columns[5];
    line.enhanced = columns[7];
    line.text = columns[8];
    return true;
}

}  // namespace SendDaemon
