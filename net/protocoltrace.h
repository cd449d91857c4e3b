// protocoltrace.h - appends what two hosts say to each other to a file.
//
// A line is "2026-03-01 12:00:00.123 [17] C: EHLO host": UTC, the number of the
// conversation in this process, and who speaks (C this side, S the server, -
// what happened).  Several conversations may write to one file; lines stay
// whole.  What may not be known is masked by the caller.
//
// Errors   None: a trace that cannot be written is not written.
// Threads  One at a time.
// Crash    Not flushed.

#ifndef LISTHAVEN_NET_PROTOCOLTRACE_H
#define LISTHAVEN_NET_PROTOCOLTRACE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/file.h"

namespace Net {

class CProtocolTrace {
public:
    void Open(std::string_view path);  // "": none.  Readable by the owner only
    void Close() noexcept;
    bool IsOn() const noexcept { return m_file.IsOpen(); }

    void Sent(std::string_view lines) { Add("C: ", lines); }  // several lines become several entries
    void Received(std::string_view line) { Add("S: ", line); }
    void Happened(std::string_view text) { Add("- ", text); }

private:
    void Add(std::string_view mark, std::string_view lines);

    Platform::CFile m_file;
    std::uint32_t m_conversation = 0;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_PROTOCOLTRACE_H
