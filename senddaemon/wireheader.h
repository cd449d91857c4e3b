// wireheader.h - header fields in the form in which they go to a server.
//
// ASCII, but for addresses beyond it under SMTPUTF8; lines end with CR LF, are
// at most 998 octets long, and 78 where there is a blank to break at.  No CR,
// LF or NUL gets through from a value.  What is right already stays as it is.
//
// Threads  Any.
// Source   RFC 5322 (2.1.1, 2.2.3), 2047, 6532.

#ifndef LISTHAVEN_SENDDAEMON_WIREHEADER_H
#define LISTHAVEN_SENDDAEMON_WIREHEADER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace SendDaemon {

inline constexpr std::size_t LongestWireLine = 998;  // without its end

struct CWireField {
    std::string_view name;  // "" for lines before the first field
    std::string_view raw;   // behind the colon, folds and all; without the last line end
};

// The fields of a header; a line without name belongs to the field before it.
std::vector<CWireField> SplitWireFields(std::string_view header);

std::string UnfoldWireValue(std::string_view raw);  // one line, trimmed

struct CWireHeaderRules {
    bool hasSmtpUtf8 = false;
    bool needsSmtpUtf8 = false;  // set when an address beyond ASCII was met
};

void AppendWireField(std::string_view name, std::string_view raw, CWireHeaderRules& rules, std::string& out);

// The parts of it.  Values are one line; column is where the value begins.
bool IsWireAddressField(std::string_view name) noexcept;
std::string WireAddresses(std::string_view value, std::size_t column, CWireHeaderRules& rules);
std::string WireText(std::string_view value, std::size_t column);
std::string WireParameters(std::string_view value);  // of Content-Type and the like

bool HasHighBytes(std::string_view text) noexcept;
std::string AsciiOnly(std::string_view text);  // '?' for each other byte

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_WIREHEADER_H
