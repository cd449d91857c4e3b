// tableprinter.h - columns for people.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_TABLEPRINTER_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_TABLEPRINTER_H

#include <string>
#include <vector>

#include "utility/terminaltext.h"  // for those who print with it

// Rows are kept until Print(); for listings of bounded length.
class CTablePrinter {
public:
    explicit CTablePrinter(std::vector<std::string> headings);

    void AddRow(std::vector<std::string> cells);  // as many as headings
    void Print() const;                           // numbers to the right; what is harmful shown as "?"

private:
    std::vector<std::string> m_headings;
    std::vector<std::vector<std::string>> m_rows;
};

// At most that many bytes, and "..." for what was cut off.  UTF-8.
std::string Shortened(std::string_view text, std::size_t most);

// "2026-11-21 04:30:00" local time; "-" for 0.
std::string PrintableTime(std::int64_t secondsSince1970);

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_TABLEPRINTER_H
