#include "engine/csvreader.h"

#include <algorithm>
#include <array>

#include "platform/systemerror.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

constexpr std::size_t ReadStep = std::size_t{256} << 10;
constexpr std::size_t KeptOfLongRow = 1000;
constexpr std::string_view Separators = ",;\t";

constexpr const char* TooLong = "The row is longer than 1 MiB.";
constexpr const char* WrongQuote = "A quote is missing or stands in the wrong place.";
constexpr const char* NulInRow = "There is a NUL character in the row.";

}  // namespace

bool CCsvReader::Open(const std::string& path) {
    *this = CCsvReader();
    m_path = path;
    if (!m_file.Open(path, Platform::FileMode::Read) || !m_file.GetSize(m_size)) {
        SetLastErrorText(path + ": " + Platform::SystemErrorText(Platform::LastSystemError()));
        return false;
    }
    if (!ReadMore()) return false;
    if (Rest().starts_with("\xFF\xFE") || Rest().starts_with("\xFE\xFF")) {
        SetLastErrorText(path + ": The file is UTF-16 text; it has to be saved as UTF-8 first.");
        return false;
    }
    m_hasByteOrderMark = Rest().starts_with("\xEF\xBB\xBF");
    if (m_hasByteOrderMark) m_at = 3;
    DetectFormat();
    return true;
}

void CCsvReader::DetectFormat() {
    if (Rest().find('\n') == std::string_view::npos && Rest().find('\r') != std::string_view::npos) m_lineEnd = '\r';
    std::string_view line = Rest();
    line.remove_prefix(std::min(line.find_first_not_of("\r\n"), line.size()));
    line = TrimRight(line.substr(0, line.find(m_lineEnd)));
    if (line.size() == 5 && StartsWithNoCase(line, "sep=") && Separators.find(line[4]) != std::string_view::npos) {
        m_separator = line[4];
        std::size_t length = 0;
        if (FindLine(length)) Consume(length);
        return;
    }
    std::array<std::size_t, 3> counts{};
    bool isQuoted = false;
    for (const char c : line) {
        if (c == '"') isQuoted = !isQuoted;
        const std::size_t which = Separators.find(c);
        if (!isQuoted && which != std::string_view::npos) ++counts[which];
    }
    m_separator = Separators[static_cast<std::size_t>(std::max_element(counts.begin(), counts.end()) - counts.begin())];
}

// Moves what is not yet used to the front.
bool CCsvReader::ReadMore() {
    m_buffer.erase(0, m_at);
    m_at = 0;
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(ReadStep, m_size - m_readTo));
    const std::size_t before = m_buffer.size();
    m_buffer.resize(before + wanted);
    std::size_t got = 0;
    const bool isRead = m_file.ReadAt(m_readTo, m_buffer.data() + before, wanted, &got);
    m_buffer.resize(before + got);
    m_readTo += got;
    if (isRead) return true;
    if (Platform::LastSystemError() == 0) {  // it became shorter meanwhile
        m_size = m_readTo;
        return true;
    }
    SetLastErrorText(m_path + ": " + Platform::SystemErrorText(Platform::LastSystemError()));
    return false;
}

// The length of the line with its end; npos when it is too long.
bool CCsvReader::FindLine(std::size_t& length) {
    std::size_t searched = 0;
    for (;;) {
        const std::size_t end = Rest().find(m_lineEnd, searched);
        length = end == std::string_view::npos ? Rest().size() : end + 1;
        if (length > RowLimit) {
            length = std::string_view::npos;
            return true;
        }
        if (end != std::string_view::npos || IsAtEnd()) return true;
        searched = Rest().size();
        if (!ReadMore()) return false;
    }
}

bool CCsvReader::SkipLongLine() {
    for (;;) {
        const std::size_t end = Rest().find(m_lineEnd);
        Consume(end == std::string_view::npos ? Rest().size() : end + 1);
        if (end != std::string_view::npos || IsAtEnd()) break;
        if (!ReadMore()) return false;
    }
    m_skipsLine = false;
    return true;
}

void CCsvReader::Consume(std::size_t length) {
    m_line += static_cast<std::uint64_t>(std::count(m_buffer.begin() + static_cast<std::ptrdiff_t>(m_at),
                                                    m_buffer.begin() + static_cast<std::ptrdiff_t>(m_at + length),
                                                    m_lineEnd));
    m_at += length;
}

// Behind the opening quote at "at"; "at" is then behind the closing one and the blanks after it.
CCsvReader::Scan CCsvReader::ScanQuotedCell(std::string_view text, std::size_t& at) const {
    for (;;) {
        const std::size_t quote = text.find('"', at);
        if (quote == std::string_view::npos || quote + 1 == text.size()) {
            if (quote == std::string_view::npos || !IsAtEnd()) return Scan::NeedsMore;
            at = quote + 1;
            return Scan::Whole;
        }
        at = quote + 1;
        if (text[at] != '"') break;
        ++at;
    }
    while (at < text.size() && IsBlank(text[at]))
        ++at;
    return Scan::Whole;
}

// The length of a row whose first line holds quotes, without its line end.
CCsvReader::Scan CCsvReader::ScanQuoted(std::string_view text, std::size_t& length) const {
    const Scan atTextEnd = IsAtEnd() ? Scan::Whole : Scan::NeedsMore;
    for (std::size_t at = 0;; ++at) {
        while (at < text.size() && IsBlank(text[at]))
            ++at;
        if (at < text.size() && text[at] == '"') {
            const Scan cell = ScanQuotedCell(text, ++at);
            if (cell != Scan::Whole) return IsAtEnd() ? Scan::Faulty : cell;
            if (at < text.size() && text[at] == '\r' && m_lineEnd == '\n') ++at;
        } else {
            while (at < text.size() && text[at] != m_separator && text[at] != m_lineEnd)
                ++at;
        }
        length = at;
        if (at >= text.size()) return atTextEnd;
        if (text[at] == m_lineEnd) return Scan::Whole;
        if (text[at] != m_separator) return Scan::Faulty;
    }
}

// The length of what is to be consumed for the next row.
bool CCsvReader::FindRow(std::size_t& length, const char*& fault) {
    fault = nullptr;
    if (!FindLine(length)) return false;
    if (length == std::string_view::npos) {
        fault = TooLong;
        length = KeptOfLongRow;
        m_skipsLine = true;
        return true;
    }
    if (Rest().substr(0, length).find('"') == std::string_view::npos) return true;
    std::size_t rowLength = 0;
    Scan scan = ScanQuoted(Rest(), rowLength);
    while (scan == Scan::NeedsMore && Rest().size() <= RowLimit) {
        if (!ReadMore()) return false;
        scan = ScanQuoted(Rest(), rowLength);
    }
    if (scan != Scan::Whole || rowLength > RowLimit) {
        fault = WrongQuote;
        return true;
    }
    length = std::min(rowLength + 1, Rest().size());
    return true;
}

CCsvReader::Step CCsvReader::Next(CCsvRow& row) {
    if (m_skipsLine && !SkipLongLine()) return Step::Failed;
    for (;;) {
        if (Rest().empty() && IsAtEnd()) return Step::EndOfFile;
        std::size_t length = 0;
        row.cells.clear();
        if (!FindRow(length, row.fault)) return Step::Failed;
        const std::string_view text = Rest().substr(0, length);
        std::size_t end = text.size();
        while (end > 0 && (text[end - 1] == m_lineEnd || text[end - 1] == '\r'))
            --end;
        row.original = text.substr(0, end);
        row.line = m_line;
        Consume(length);
        if (Trim(row.original).empty() && row.fault == nullptr) continue;
        if (row.fault == nullptr && row.original.find('\0') != std::string_view::npos) row.fault = NulInRow;
        if (row.fault != nullptr) return Step::Row;
        if (IsValidUtf8(row.original)) {
            SplitRow(row.original, row);
        } else {
            m_converted = Windows1252ToUtf8(row.original);
            SplitRow(m_converted, row);
        }
        return Step::Row;
    }
}

std::string_view CCsvReader::TrimCell(std::string_view cell) const noexcept {
    while (!cell.empty() && IsBlank(cell.front()))
        cell.remove_prefix(1);
    while (!cell.empty() && IsBlank(cell.back()))
        cell.remove_suffix(1);
    return cell;
}

// Behind the opening quote of a cell that ScanQuoted() has seen; gives the end of the cell.
std::size_t CCsvReader::SplitQuotedCell(std::string_view text, std::size_t at, CCsvRow& row) {
    const std::size_t start = at;
    const std::size_t unquoted = m_unquoted.size();
    bool isDoubled = false;
    for (;; at += 2) {
        const std::size_t quote = std::min(text.find('"', at), text.size());
        if (quote + 1 >= text.size() || text[quote + 1] != '"') {
            if (isDoubled) m_unquoted += text.substr(at, quote - at);
            row.cells.push_back(isDoubled ? std::string_view(m_unquoted).substr(unquoted)
                                          : text.substr(start, quote - start));
            return std::min(text.find(m_separator, quote), text.size());
        }
        m_unquoted += text.substr(at, quote + 1 - at);
        at = quote;
        isDoubled = true;
    }
}

void CCsvReader::SplitRow(std::string_view text, CCsvRow& row) {
    m_unquoted.clear();
    m_unquoted.reserve(text.size());  // cells point into it
    for (std::size_t at = 0;; ++at) {
        std::size_t start = at;
        while (start < text.size() && IsBlank(text[start]))
            ++start;
        if (start < text.size() && text[start] == '"') {
            at = SplitQuotedCell(text, start + 1, row);
        } else {
            at = std::min(text.find(m_separator, at), text.size());
            row.cells.push_back(TrimCell(text.substr(start, at > start ? at - start : 0)));
        }
        if (at >= text.size()) return;
    }
}
