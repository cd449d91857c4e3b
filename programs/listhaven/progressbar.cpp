#include "programs/listhaven/progressbar.h"

#include <algorithm>
#include <cstdio>

#include "platform/clock.h"
#include "platform/process.h"

CProgressBar::CProgressBar(std::string caption, std::uint64_t total)
    : m_caption(std::move(caption)), m_total(total), m_onTerminal(Platform::ErrorOutputIsTerminal()) {}

CProgressBar::~CProgressBar() {
    if (m_drawn) std::fprintf(stderr, "\r\033[K");
}

void CProgressBar::Show(std::uint64_t done, std::uint64_t total) {
    m_total = total;
    Show(done);
}

bool CProgressBar::IsDue() {
    if (!m_onTerminal) return false;
    const std::uint32_t now = Platform::ClockMilliseconds();
    if (m_drawn && now - m_lastDrawn < 100) return false;
    m_lastDrawn = now;
    m_drawn = true;
    return true;
}

void CProgressBar::Show(const std::function<std::string(std::size_t columns)>& text) {
    if (!IsDue()) return;
    const std::size_t taken = m_caption.size() + 2;  // the last column stays free: some terminals wrap there
    const std::size_t columns = std::max(Platform::ErrorOutputColumns(), taken) - taken;
    std::fprintf(stderr, "\r\033[K%s %s", m_caption.c_str(), text(columns).c_str());
}

void CProgressBar::Show(std::uint64_t done) {
    if (!IsDue()) return;
    if (m_total == 0) {
        std::fprintf(stderr, "\r\033[K%s %llu", m_caption.c_str(), static_cast<unsigned long long>(done));
        return;
    }
    constexpr std::uint64_t Cells = 40;
    const std::uint64_t filled = std::min(Cells, done * Cells / m_total);
    const std::string bar = std::string(filled, '#') + std::string(Cells - filled, '.');
    std::fprintf(stderr, "\r\033[K%s [%s] %llu of %llu", m_caption.c_str(), bar.c_str(),
                 static_cast<unsigned long long>(done), static_cast<unsigned long long>(m_total));
}
