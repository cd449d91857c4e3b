#include "net/protocoltrace.h"

#include <algorithm>
#include <atomic>

#include "platform/clock.h"
#include "platform/filestatus.h"
#include "utility/formattext.h"

namespace Net {
namespace {

std::string Stamp() {
    const std::int64_t now = Platform::NanosecondsSince1970();
    const std::tm utc = Platform::UtcTime(now / 1'000'000'000);
    return FormatText("%04d-%02d-%02d %02d:%02d:%02d.%03d", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                      utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(now / 1'000'000 % 1000));
}

}  // namespace

void CProtocolTrace::Open(std::string_view path) {
    static std::atomic<std::uint32_t> conversations{0};
    Close();
    if (path.empty() || !m_file.Open(path, Platform::FileMode::Append, Platform::FileAccess::Private)) return;
    m_conversation = ++conversations;
}

void CProtocolTrace::Close() noexcept {
    m_file.Close();
}

void CProtocolTrace::Add(std::string_view mark, std::string_view lines) {
    if (!IsOn()) return;
    const std::string start = Stamp() + FormatText(" [%u] ", m_conversation).append(mark);
    std::string entries;
    for (std::size_t begin = 0; begin < lines.size() || begin == 0;) {
        const std::size_t end = std::min(lines.find('\n', begin), lines.size());
        entries += start;
        for (const char c : lines.substr(begin, end - begin))
            if (c != '\r') entries += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
        entries += '\n';
        begin = end + 1;
    }
    m_file.Write(entries);
}

}  // namespace Net
