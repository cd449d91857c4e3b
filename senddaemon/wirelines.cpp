#include "senddaemon/wirelines.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "senddaemon/wireheader.h"
#include "utility/lasterror.h"

namespace SendDaemon {

namespace {

struct CHeaderEnd {
    std::size_t header = std::string_view::npos;  // behind its last line
    std::size_t body = 0;
};

// The first empty line from "from", which is the start of a line.
CHeaderEnd FindHeaderEnd(std::string_view text, std::size_t from) {
    while (from < text.size()) {
        const std::size_t next = std::min(text.find_first_not_of('\r', from), text.size());
        if (next < text.size() && text[next] == '\n') return {from, next + 1};
        const std::size_t lf = text.find('\n', next);
        if (lf == std::string_view::npos) break;
        from = lf + 1;
    }
    return {};
}

bool Contains(std::string_view text, char c) {
    return !text.empty() && std::memchr(text.data(), c, text.size()) != nullptr;
}

}  // namespace

bool CMessageReader::Open(std::string_view path) {
    if (!m_file.Open(path, Platform::FileMode::Read) || !m_file.GetSize(m_size)) {
        SetLastErrorFromSystem();
        return false;
    }
    CHeaderEnd end;
    while (end.header == std::string_view::npos) {
        const std::size_t had = m_start.size();
        const auto more = static_cast<std::size_t>(std::min<std::uint64_t>(m_size - had, BlockSize));
        if (more == 0) {
            end = {had, had};  // a header alone
            break;
        }
        if (had > LargestHeader) {
            SetLastErrorText("The header of the message is too large.");
            return false;
        }
        m_start.resize(had + more);
        if (!m_file.ReadAt(had, m_start.data() + had, more)) {
            SetLastErrorFromSystem();
            return false;
        }
        const std::size_t lf = had == 0 ? std::string::npos : m_start.rfind('\n', had - 1);
        end = FindHeaderEnd(m_start, lf == std::string::npos ? 0 : lf + 1);
    }
    m_headerEnd = end.header;
    m_bodyStart = end.body;
    const std::vector<CWireField> fields = SplitWireFields(GetHeader());
    if (fields.size() == 1 && fields.front().name.empty()) m_headerEnd = m_bodyStart = 0;
    Rewind();
    return true;
}

std::string_view CMessageReader::GetHeader() const noexcept {
    return std::string_view(m_start).substr(0, m_headerEnd);
}

bool CMessageReader::ReadBlock(std::string_view& block) {
    if (m_at < m_start.size()) {
        block = std::string_view(m_start).substr(static_cast<std::size_t>(m_at));
        m_at = m_start.size();
        return true;
    }
    const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(m_size - m_at, BlockSize));
    if (length > m_block.size()) m_block.resize(length);
    if (length > 0 && !m_file.ReadAt(m_at, m_block.data(), length)) {
        SetLastErrorFromSystem();
        return false;
    }
    block = std::string_view(m_block).substr(0, length);
    m_at += length;
    return true;
}

void CBodyScan::Add(std::string_view block) {
    if (block.empty()) return;
    m_hasHigh = m_hasHigh || SendDaemon::HasHighBytes(block);
    m_hasNul = m_hasNul || Contains(block, '\0');
    if (m_hasOpenCr && block.front() != '\n') m_hasOddLineEnds = true;
    const bool hadOpenCr = m_hasOpenCr;
    m_endsWithLine = block.ends_with("\r\n") || (block == "\n" && hadOpenCr);
    m_hasOpenCr = block.back() == '\r';
    bool isFirst = true;
    while (!block.empty()) {
        const void* const found = std::memchr(block.data(), '\n', block.size());
        const bool hasEnd = found != nullptr;
        const std::size_t lf =
            hasEnd ? static_cast<std::size_t>(static_cast<const char*>(found) - block.data()) : block.size();
        std::string_view line = block.substr(0, lf);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        else if (hasEnd && !(isFirst && lf == 0 && hadOpenCr))
            m_hasOddLineEnds = true;
        if (Contains(line, '\r')) m_hasOddLineEnds = true;
        m_column += line.size();
        if (m_column > LongestWireLine) m_hasLongLine = true;
        if (hasEnd) m_column = 0;
        isFirst = false;
        block.remove_prefix(std::min(lf + 1, block.size()));
    }
}

void CBodyScan::Finish() {
    if (m_hasOpenCr) m_hasOddLineEnds = true;
}

bool CWireLines::Refill() {
    std::string_view block;
    if (!m_reader.ReadBlock(block)) return false;
    m_buffer.erase(0, m_at);
    m_isLfKnown = false;
    m_at = 0;
    m_buffer += block;
    m_hasEnded = block.empty();
    return true;
}

// npos when there is none in the buffer.
std::size_t CWireLines::FindLineEnd() {
    if (!m_isLfKnown || m_nextLf < m_at) {
        m_nextLf = std::min(m_buffer.find('\n', m_at), m_buffer.size());
        m_isLfKnown = true;
    }
    const std::string_view line = std::string_view(m_buffer).substr(m_at, m_nextLf - m_at);
    const std::size_t cr = line.find('\r');
    if (cr != std::string_view::npos) return m_at + cr;
    return m_nextLf < m_buffer.size() ? m_nextLf : std::string::npos;
}

bool CWireLines::Next(CWireLine& line, bool& isAtEnd) {
    isAtEnd = false;
    line.isStart = !m_isInLine;
    for (;;) {
        const std::size_t end = FindLineEnd();
        if (end != std::string::npos) {
            std::size_t behind = end + 1;
            if (m_buffer[end] == '\r') {
                if (end + 2 >= m_buffer.size() && !m_hasEnded) {
                    if (!Refill()) return false;
                    continue;
                }
                const std::string_view ahead = std::string_view(m_buffer).substr(end, 3);
                if (ahead == "\r\r\n")
                    behind = end + 3;
                else if (ahead.starts_with("\r\n"))
                    behind = end + 2;
            }
            line.text = std::string_view(m_buffer).substr(m_at, end - m_at);
            line.isEnd = true;
            m_at = behind;
            m_isInLine = false;
            return true;
        }
        if (m_hasEnded || m_buffer.size() - m_at >= LongestPiece) {
            line.text = std::string_view(m_buffer).substr(m_at);
            line.isEnd = false;
            m_at = m_buffer.size();
            isAtEnd = m_hasEnded && line.text.empty();
            m_isInLine = true;
            return true;
        }
        if (!Refill()) return false;
    }
}

}  // namespace SendDaemon
