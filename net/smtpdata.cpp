#include "net/smtpdata.h"

#include <algorithm>

namespace Net {

void CSmtpDataEncoder::EndLine(std::string& wire) {
    wire.append("\r\n", 2);
    m_carriageReturns = 0;
    m_isAtLineStart = true;
}

void CSmtpDataEncoder::EndBareLines(std::string& wire) {
    for (unsigned left = m_carriageReturns; left > 0; --left)
        EndLine(wire);
}

void CSmtpDataEncoder::AddLineText(std::string_view text, std::string& wire) {
    if (text.empty()) return;
    if (m_isAtLineStart && text.front() == '.') wire += '.';
    m_isAtLineStart = false;
    wire.append(text);
}

void CSmtpDataEncoder::Add(std::string_view block, std::string& wire) {
    wire.reserve(wire.size() + block.size() + block.size() / 16 + 8);
    std::size_t lineFeed = 0;
    for (std::size_t at = 0; at < block.size();) {
        if (block[at] == '\n') {
            EndLine(wire);
            ++at;
            continue;
        }
        if (block[at] == '\r') {
            if (m_carriageReturns == 2) {
                EndLine(wire);
                m_carriageReturns = 1;
            }
            ++m_carriageReturns;
            ++at;
            continue;
        }
        EndBareLines(wire);
        if (lineFeed <= at) lineFeed = std::min(block.find('\n', at), block.size());
        const std::size_t length = std::min(block.substr(at, lineFeed - at).find('\r'), lineFeed - at);
        AddLineText(block.substr(at, length), wire);
        at += length;
    }
}

void CSmtpDataEncoder::Finish(std::string& wire) {
    EndBareLines(wire);
    if (!m_isAtLineStart) EndLine(wire);
    wire.append(".\r\n", 3);
}

}  // namespace Net
