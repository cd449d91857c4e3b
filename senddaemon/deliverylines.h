// deliverylines.h - the lines of one file of a ledger; for the ledger itself.
//
// Errors   false, with the reason in the last-error text.  What is no line of a
//          ledger is skipped and counted.
// Threads  One at a time.
// Cost     Memory for two lines of the greatest length, whatever the file holds.

#ifndef LISTHAVEN_SENDDAEMON_DELIVERYLINES_H
#define LISTHAVEN_SENDDAEMON_DELIVERYLINES_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "senddaemon/deliverylog.h"

namespace SendDaemon {

class CDeliveryLineReader {
public:
    using Visit = std::function<bool(const CDeliveryLine&)>;    // false stops
    enum class LastLine : std::uint8_t { Take, LeaveUnended };  // of a file, without LF

    explicit CDeliveryLineReader(const Visit& visit, LastLine lastLine = LastLine::Take)
        : m_visit(visit), m_lastLine(lastLine) {}

    // Of the bytes from "from" to "to"; a file that has become shorter ends earlier.
    bool Read(const Platform::CFile& file, const std::string& path, std::uint64_t from, std::uint64_t to);

    bool IsStopped() const noexcept { return m_isStopped; }
    std::uint64_t GetSkipped() const noexcept { return m_skipped; }  // of all reads
    std::uint64_t GetEnd() const noexcept { return m_end; }          // of the last read: behind what was dealt with

private:
    void TakeLines(bool isEnd);
    void TakeLine(std::string_view text);

    const Visit& m_visit;
    LastLine m_lastLine;
    CDeliveryLine m_line;
    std::string m_rest;
    std::uint64_t m_end = 0;
    std::uint64_t m_skipped = 0;
    bool m_isTooLong = false;  // the line that m_rest was the beginning of
    bool m_isStopped = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DELIVERYLINES_H
