// wirelines.h - a message file by blocks and by lines, with bounded memory.
//
// Line ends are CR LF; a bare LF, a bare CR and CR CR LF are one, too.
//
// Errors   false, with the reason in the last-error text.
// Threads  One at a time.

#ifndef LISTHAVEN_SENDDAEMON_WIRELINES_H
#define LISTHAVEN_SENDDAEMON_WIRELINES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace SendDaemon {

class CMessageReader {
public:
    static constexpr std::size_t BlockSize = 256 * 1024;
    static constexpr std::size_t LargestHeader = 1024 * 1024;

    // Reads the header; fails when it is too large.  Lines that are no field
    // at all are body.
    bool Open(std::string_view path);

    std::string_view GetHeader() const noexcept;  // with its last line end
    std::uint64_t GetBodySize() const noexcept { return m_size - m_bodyStart; }

    void Rewind() noexcept { m_at = m_bodyStart; }  // to the body
    // block is "" at the end, and valid until the next call.
    bool ReadBlock(std::string_view& block);

private:
    Platform::CFile m_file;
    std::uint64_t m_size = 0;
    std::uint64_t m_at = 0;
    std::string m_start;  // of the file
    std::string m_block;
    std::size_t m_headerEnd = 0;
    std::size_t m_bodyStart = 0;
};

// What is to be known of a body before it is written.
class CBodyScan {
public:
    void Add(std::string_view block);
    void Finish();

    bool HasHighBytes() const noexcept { return m_hasHigh; }
    bool HasNul() const noexcept { return m_hasNul; }
    bool HasLongLine() const noexcept { return m_hasLongLine; }
    bool HasOddLineEnds() const noexcept { return m_hasOddLineEnds; }
    bool EndsWithLine() const noexcept { return m_endsWithLine; }  // or is empty

private:
    bool m_hasHigh = false;
    bool m_hasNul = false;
    bool m_hasLongLine = false;
    bool m_hasOddLineEnds = false;
    bool m_endsWithLine = true;
    bool m_hasOpenCr = false;  // the last byte so far
    std::size_t m_column = 0;
};

struct CWireLine {
    std::string_view text;  // without its end; valid until the next call
    bool isStart = true;    // false: goes on with the line before
    bool isEnd = true;      // false: goes on, or ends with the body
};

class CWireLines {
public:
    explicit CWireLines(CMessageReader& reader) : m_reader(reader) { reader.Rewind(); }

    // Lines of 64 KiB and more come in pieces.
    bool Next(CWireLine& line, bool& isAtEnd);

private:
    static constexpr std::size_t LongestPiece = 64 * 1024;

    bool Refill();
    std::size_t FindLineEnd();

    CMessageReader& m_reader;
    std::string m_buffer;
    std::size_t m_at = 0;
    std::size_t m_nextLf = 0;  // the end of the buffer when there is none
    bool m_isLfKnown = false;
    bool m_hasEnded = false;  // nothing more to read
    bool m_isInLine = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_WIRELINES_H
