#include "mime/textlayout.h"

#include <algorithm>
#include <utility>

#include "mime/charactertext.h"

namespace {

constexpr std::size_t NarrowestColumn = 20;

std::string_view WithoutTrailingBlanks(std::string_view line) {
    const std::size_t last = line.find_last_not_of(std::string_view(" \t\x1F", 3));
    return line.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

}  // namespace

void CTextLayout::AddText(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find_first_of(" \t\r\n\f", at), text.size());
        if (end > at) {
            const bool atLineStart = m_paragraph.empty() || m_paragraph.back() == '\n';
            if (m_blankPending && !atLineStart) m_paragraph += ' ';
            m_blankPending = false;
            m_paragraph += text.substr(at, end - at);
        }
        if (end == text.size()) break;
        m_blankPending = true;
        at = end + 1;
    }
}

void CTextLayout::AddPreformatted(std::string_view text) {
    m_blankPending = false;
    for (const char c : text) {
        if (c != '\r') m_paragraph += c;
    }
}

void CTextLayout::AddMark(std::string_view text) {
    m_blankPending = false;
    m_paragraph += text;
}

void CTextLayout::BreakLine() {
    m_blankPending = false;
    m_paragraph += '\n';
}

void CTextLayout::EndParagraph(Style style) {
    m_blankPending = false;
    if (m_paragraph.empty()) return;
    const std::string paragraph = std::exchange(m_paragraph, std::string());
    std::string_view rest = paragraph;
    if (rest.back() == '\n') rest.remove_suffix(1);
    const std::size_t prefixWidth = PrefixWidth();
    const std::size_t width = std::max(NarrowestColumn, Width > prefixWidth ? Width - prefixWidth : 0);
    for (bool more = true; more;) {
        const std::size_t end = rest.find('\n');
        more = end != std::string_view::npos;
        const std::string_view line = rest.substr(0, end);
        const bool keepsLine = style == Style::Preformatted || (style == Style::Row && line.size() <= WidestRow);
        if (keepsLine) {
            WriteLine(line);
        } else {
            WrapLine(line, width);
        }
        if (more) rest.remove_prefix(end + 1);
    }
}

void CTextLayout::WantBlankLine() {
    m_blankLineFrames = m_blankLineWanted ? std::min(m_blankLineFrames, m_frames.size()) : m_frames.size();
    m_blankLineWanted = true;
}

void CTextLayout::OpenFrame(std::string_view firstPrefix, std::string_view prefix) {
    if (m_frames.size() >= DeepestFrame) {
        ++m_flatFrames;
        return;
    }
    m_frames.push_back({std::string(firstPrefix), std::string(prefix), true});
}

void CTextLayout::CloseFrame() {
    if (m_flatFrames > 0) {
        --m_flatFrames;
    } else if (!m_frames.empty()) {
        m_frames.pop_back();
    }
    m_blankLineFrames = std::min(m_blankLineFrames, m_frames.size());
}

std::string CTextLayout::TakeText() {
    std::replace(m_text.begin(), m_text.end(), HardBlank, ' ');
    return std::exchange(m_text, std::string());
}

std::size_t CTextLayout::PrefixWidth() const {
    std::size_t width = 0;
    for (const CFrame& frame : m_frames)
        width += frame.prefix.size();
    return width;
}

void CTextLayout::WrapLine(std::string_view line, std::size_t width) {
    std::size_t start = 0;
    std::size_t end = 0;  // of the words taken
    std::size_t taken = 0;
    for (std::size_t at = 0; at < line.size();) {
        const std::size_t wordEnd = std::min(line.find(' ', at), line.size());
        const std::size_t wordWidth = CountCharacters(line.substr(at, wordEnd - at));
        if (taken > 0 && taken + 1 + wordWidth > width) {
            WriteLine(line.substr(start, end - start));
            start = at;
            taken = 0;
        }
        taken += (taken > 0 ? 1 : 0) + wordWidth;
        end = wordEnd;
        at = std::min(wordEnd + 1, line.size());
    }
    WriteLine(line.substr(start, end - start));
}

void CTextLayout::WriteLine(std::string_view line) {
    if (m_blankLineWanted && !m_text.empty()) WriteBlankLine(m_blankLineFrames);
    m_blankLineWanted = false;
    const std::string_view visible = WithoutTrailingBlanks(line);
    if (visible.empty()) {
        WriteBlankLine(m_frames.size());
        return;
    }
    for (CFrame& frame : m_frames) {
        m_text += frame.isFirstLine ? frame.firstPrefix : frame.prefix;
        frame.isFirstLine = false;
    }
    m_text += visible;
    m_text += '\n';
    m_lastLineWidth = CountCharacters(visible);
}

void CTextLayout::WriteBlankLine(std::size_t frames) {
    if (m_text.empty()) return;
    const std::size_t start = m_text.size();
    for (std::size_t i = 0; i < frames; ++i)
        m_text += m_frames[i].prefix;
    while (m_text.size() > start && m_text.back() == ' ')
        m_text.pop_back();
    m_text += '\n';
}
