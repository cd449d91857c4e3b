#include "programs/listhaven/tableprinter.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "engine/utf8text.h"
#include "platform/clock.h"
#include "utility/formattext.h"
#include "utility/text.h"

namespace {

// Characters as a terminal counts them, roughly: bytes that begin a UTF-8 character.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

bool IsNumber(const std::string& text) {
    return ParseNumber(text).has_value();
}

}  // namespace

CTablePrinter::CTablePrinter(std::vector<std::string> headings) : m_headings(std::move(headings)) {}

void CTablePrinter::AddRow(std::vector<std::string> cells) {
    for (std::string& cell : cells)
        cell = Printable(cell);
    cells.resize(m_headings.size());
    m_rows.push_back(std::move(cells));
}

void CTablePrinter::Print() const {
    std::vector<std::size_t> widths;
    std::vector<bool> numeric(m_headings.size(), !m_rows.empty());
    for (const std::string& heading : m_headings)
        widths.push_back(Width(heading));
    for (const auto& row : m_rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Width(row[i]));
            numeric[i] = numeric[i] && (row[i].empty() || IsNumber(row[i]));
        }
    }
    const auto printRow = [&](const std::vector<std::string>& row) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - Width(row[i]), ' ');
            if (i) line += "  ";
            line += numeric[i] ? padding + row[i] : row[i] + padding;
        }
        std::printf("%s\n", std::string(TrimRight(line)).c_str());
    };
    printRow(m_headings);
    for (const auto& row : m_rows)
        printRow(row);
}

std::string Shortened(std::string_view text, std::size_t most) {
    return text.size() <= most ? std::string(text) : std::string(CutUtf8(text, most)) + "...";
}

std::string PrintableTime(std::int64_t secondsSince1970) {
    if (secondsSince1970 == 0) return "-";
    const std::tm time = Platform::LocalTime(secondsSince1970);
    return FormatText("%04d-%02d-%02d %02d:%02d:%02d", time.tm_year + 1900, time.tm_mon + 1, time.tm_mday, time.tm_hour,
                      time.tm_min, time.tm_sec);
}
