// progressbar.h - how far long work has come, on a terminal; nothing in a pipe.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_PROGRESSBAR_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_PROGRESSBAR_H

#include <cstdint>
#include <functional>
#include <string>

class CProgressBar {
public:
    // total 0: unknown; then only the count is shown.
    explicit CProgressBar(std::string caption, std::uint64_t total = 0);
    CProgressBar(const CProgressBar&) = delete;
    CProgressBar& operator=(const CProgressBar&) = delete;
    ~CProgressBar();  // clears the line

    void Show(std::uint64_t done);  // redraws at most ten times a second
    void Show(std::uint64_t done, std::uint64_t total);
    // A line made by "text", which is asked for only when it is drawn.  What is
    // longer than "columns" wraps, and is not cleaned.
    void Show(const std::function<std::string(std::size_t columns)>& text);

private:
    bool IsDue();

    std::string m_caption;
    std::uint64_t m_total;
    std::uint32_t m_lastDrawn = 0;
    bool m_onTerminal;
    bool m_drawn = false;
};

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_PROGRESSBAR_H
