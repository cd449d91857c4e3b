// terminaltext.h - texts of strangers, as they may be shown on a terminal.
//
// Harmful is what a terminal takes for more than a character to show: control
// characters (C0, DEL, C1 in UTF-8), the line and paragraph separators, and the
// marks that turn the direction of what stands behind them.

#ifndef LISTHAVEN_UTILITY_TERMINALTEXT_H
#define LISTHAVEN_UTILITY_TERMINALTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

// Bytes that the harmful character takes which UTF-8 text begins with; 0 when there is none.
std::size_t HarmfulLength(std::string_view text) noexcept;

// What is harmful becomes "?", a TAB a blank.  Bytes that are not UTF-8 are taken as Latin-1.
std::string Printable(std::string_view text);

#endif  // LISTHAVEN_UTILITY_TERMINALTEXT_H
