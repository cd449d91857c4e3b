#include "senddaemon/deliverylines.h"

#include <algorithm>

#include "platform/systemerror.h"
#include "senddaemon/deliverylogfiles.h"
#include "utility/lasterror.h"

namespace SendDaemon {

namespace {

constexpr std::size_t ReadSize = 1 << 18;
constexpr std::size_t LongestLine = 5 * DeliveryValueLimit + DeliveryTextLimit + 64;

}  // namespace

bool CDeliveryLineReader::Read(const Platform::CFile& file, const std::string& path, std::uint64_t from,
                               std::uint64_t to) {
    std::uint64_t offset = std::min(from, to);
    m_end = offset;
    m_rest.clear();
    m_isTooLong = false;
    for (bool isEnd = false; !isEnd && !m_isStopped;) {
        const std::size_t kept = m_rest.size();
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(ReadSize, to - offset));
        std::size_t got = 0;
        m_rest.resize(kept + size);
        isEnd = size < ReadSize;
        if (!file.ReadAt(offset, m_rest.data() + kept, size, &got)) {
            const Platform::SystemError code = Platform::LastSystemError();
            if (code != 0) {
                SetLastErrorText(path + ": " + Platform::SystemErrorText(code));
                Platform::SetLastSystemError(code);
                return false;
            }
            isEnd = true;
        }
        m_rest.resize(kept + got);
        offset += got;
        TakeLines(isEnd);
    }
    return true;
}

void CDeliveryLineReader::TakeLines(bool isEnd) {
    std::size_t start = 0;
    while (!m_isStopped) {
        const std::size_t end = m_rest.find('\n', start);
        if (end == std::string::npos) break;
        m_end += end + 1 - start;
        TakeLine(std::string_view(m_rest).substr(start, end - start));
        start = end + 1;
    }
    m_rest.erase(0, start);
    if (m_isStopped) return;
    if (isEnd && m_lastLine == LastLine::Take) {
        m_end += m_rest.size();
        TakeLine(m_rest);
    }
    if (m_rest.size() > LongestLine) {
        m_isTooLong = true;
        m_end += m_rest.size();
        m_rest.clear();
    }
}

void CDeliveryLineReader::TakeLine(std::string_view text) {
    if (m_isTooLong || (!text.empty() && !ParseDeliveryLine(text, m_line))) {
        ++m_skipped;
    } else if (!text.empty()) {
        m_isStopped = !m_visit(m_line);
    }
    m_isTooLong = false;
}

}  // namespace SendDaemon
