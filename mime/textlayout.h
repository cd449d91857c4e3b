// textlayout.h - lays out paragraphs as plain text: wrapping, blank lines,
// quotation marks and list markers in front of lines.
//
// Everything is UTF-8.  A HardBlank is a blank at which no line is broken.
//
// Threads  One thread at a time.

#ifndef LISTHAVEN_MIME_TEXTLAYOUT_H
#define LISTHAVEN_MIME_TEXTLAYOUT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class CTextLayout {
public:
    static constexpr std::size_t Width = 76;
    static constexpr std::size_t WidestRow = 300;    // a longer table row is wrapped
    static constexpr std::size_t DeepestFrame = 12;  // frames within that many have no prefix
    static constexpr char HardBlank = '\x1F';

    enum class Style { Flowing, Preformatted, Row };

    void AddText(std::string_view text);  // runs of white space count as one blank
    void AddPreformatted(std::string_view text);
    void AddMark(std::string_view text);  // as it is, without regard to white space before it
    void BreakLine();
    bool IsEmpty() const noexcept { return m_paragraph.empty(); }  // the paragraph
    std::size_t GetLastLineWidth() const noexcept { return m_lastLineWidth; }

    void EndParagraph(Style style = Style::Flowing);
    void WantBlankLine();  // before what comes next, if anything came before; the paragraph must have ended

    // firstPrefix goes before the first line of the frame, prefix before the others.
    void OpenFrame(std::string_view firstPrefix, std::string_view prefix);
    void CloseFrame();

    std::string TakeText();

private:
    struct CFrame {
        std::string firstPrefix;
        std::string prefix;
        bool isFirstLine = true;
    };

    std::size_t PrefixWidth() const;
    void WrapLine(std::string_view line, std::size_t width);
    void WriteLine(std::string_view line);
    void WriteBlankLine(std::size_t frames);

    std::string m_text;
    std::string m_paragraph;
    bool m_blankPending = false;
    bool m_blankLineWanted = false;
    std::size_t m_blankLineFrames = 0;
    std::size_t m_lastLineWidth = 0;
    std::size_t m_flatFrames = 0;
    std::vector<CFrame> m_frames;
};

#endif  // LISTHAVEN_MIME_TEXTLAYOUT_H
