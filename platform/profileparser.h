// profileparser.h - the text of a profile file: finding keys and changing one
// line of it, without file access.  profilefile.h says how lines are read.

#ifndef LISTHAVEN_PLATFORM_PROFILEPARSER_H
#define LISTHAVEN_PLATFORM_PROFILEPARSER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

// Offsets are into the text.  A line goes from begin to end, its line end
// included.
struct ProfileLine {
    enum class Kind { Blank, Comment, Section, Key, Other };

    Kind kind = Kind::Other;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::size_t valueBegin = 0;  // Key: behind the "=" and the blanks that follow it
    std::string_view name;       // Section, Key
    std::string_view value;      // Key: without quotes
};

class CProfileText {
public:
    explicit CProfileText(std::string text);
    CProfileText(const CProfileText&) = delete;  // the lines point into the text
    CProfileText& operator=(const CProfileText&) = delete;

    const std::vector<ProfileLine>& GetLines() const noexcept { return m_lines; }

    // nullptr when there is none.  Only the first section of a name counts.
    const ProfileLine* Find(std::string_view section, std::string_view key) const;
    std::vector<std::string> Keys(std::string_view section) const;

    bool HoldsBinaryData() const;

    // The whole new text; every line but that of the key stays as it is.
    std::string WithKey(std::string_view section, std::string_view key, std::string_view value) const;
    std::string WithoutKey(std::string_view section, std::string_view key) const;

private:
    // Index of the section's line, or that of the end; last is the index
    // behind its last line.
    std::size_t FindSection(std::string_view section, std::size_t& last) const;
    std::string Insert(std::size_t offset, std::string_view newLines) const;

    std::string m_text;
    std::vector<ProfileLine> m_lines;
};

std::string_view TrimProfileText(std::string_view text) noexcept;

// What can be written so that it is found and read back unchanged.
bool IsProfileSection(std::string_view section) noexcept;
bool IsProfileKey(std::string_view key) noexcept;
bool IsProfileValue(std::string_view value) noexcept;

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_PROFILEPARSER_H
