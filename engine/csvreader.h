// csvreader.h - the rows of a text file with separated values, one at a time.
//
// RFC 4180, read leniently: the separator is the comma, semicolon or TAB that is
// most frequent in the first row (or the one that a first row "sep=;" names);
// lines end in LF or CR LF, in CR when the start of the file holds no LF; blanks
// around a cell without quotes do not count; a quote within such a cell is a
// character.  Empty lines are passed over.  Lines count from 1.
//
// Each row is decoded by itself: as UTF-8 when it is valid UTF-8, else as
// Windows-1252.  So a file of either kind is read right without being read
// twice; of a Windows-1252 file only a row whose letters happen to be UTF-8
// would not be.
//
// A row that is none has a fault and no cells; reading goes on behind it.  When
// a closing quote is missing, the text up to the next quote looks like a cell:
// the row is given up as soon as that quote, the end of the file or the limit
// shows it, and reading goes on at the second line of the row, so that only the
// line with the fault is lost.
//
// Errors   Open() false, Next() Failed: with the reason in the last-error text.
// Threads  One thread at a time.
// Memory   Not more than the longest row allowed and one step of reading.

#ifndef LISTHAVEN_ENGINE_CSVREADER_H
#define LISTHAVEN_ENGINE_CSVREADER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"

struct CCsvRow {
    std::uint64_t line = 0;               // of its first byte
    std::string_view original;            // as in the file, without line end; of a too long row only the start
    std::vector<std::string_view> cells;  // UTF-8; like the original valid until the next row is read
    const char* fault = nullptr;          // one sentence
};

class CCsvReader {
public:
    static constexpr std::size_t RowLimit = std::size_t{1} << 20;

    enum class Step { Row, EndOfFile, Failed };

    bool Open(const std::string& path);  // fails also for UTF-16
    Step Next(CCsvRow& row);

    char GetSeparator() const noexcept { return m_separator; }
    bool HasByteOrderMark() const noexcept { return m_hasByteOrderMark; }
    std::uint64_t GetSize() const noexcept { return m_size; }
    std::uint64_t GetPosition() const noexcept { return m_readTo - (m_buffer.size() - m_at); }

private:
    enum class Scan { Whole, NeedsMore, Faulty };

    std::string_view Rest() const noexcept { return std::string_view(m_buffer).substr(m_at); }
    bool IsAtEnd() const noexcept { return m_readTo >= m_size; }
    bool ReadMore();
    bool FindLine(std::size_t& length);
    bool SkipLongLine();
    bool FindRow(std::size_t& length, const char*& fault);
    Scan ScanQuoted(std::string_view text, std::size_t& length) const;
    Scan ScanQuotedCell(std::string_view text, std::size_t& at) const;
    bool IsBlank(char c) const noexcept { return c == ' ' || (c == '\t' && m_separator != '\t'); }
    void DetectFormat();
    void Consume(std::size_t length);
    void SplitRow(std::string_view text, CCsvRow& row);
    std::size_t SplitQuotedCell(std::string_view text, std::size_t at, CCsvRow& row);
    std::string_view TrimCell(std::string_view cell) const noexcept;

    std::string m_path;
    Platform::CFile m_file;
    std::uint64_t m_size = 0;
    std::uint64_t m_readTo = 0;
    std::string m_buffer;
    std::size_t m_at = 0;  // in the buffer: where the next row begins
    std::uint64_t m_line = 1;
    bool m_skipsLine = false;  // the rest of a too long line comes next
    bool m_hasByteOrderMark = false;
    char m_separator = ',';
    char m_lineEnd = '\n';
    std::string m_converted;  // of a row in Windows-1252
    std::string m_unquoted;   // cells with doubled quotes
};

#endif  // LISTHAVEN_ENGINE_CSVREADER_H
