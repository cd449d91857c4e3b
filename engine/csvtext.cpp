#include "engine/csvtext.h"

namespace {

bool NeedsQuotes(std::string_view cell, char separator) {
    if (cell.empty()) return false;
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    if (isBlank(cell.front()) || isBlank(cell.back())) return true;
    return cell.find_first_of("\"\r\n") != std::string_view::npos || cell.find(separator) != std::string_view::npos;
}

}  // namespace

void AppendCsvCell(std::string& text, std::string_view cell, char separator) {
    if (!NeedsQuotes(cell, separator)) {
        text += cell;
        return;
    }
    text += '"';
    for (const char c : cell) {
        if (c == '"') text += '"';
        text += c;
    }
    text += '"';
}
