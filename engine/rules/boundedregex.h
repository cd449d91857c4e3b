// boundedregex.h - regular expressions whose work has a bound.
//
// Perl syntax; "^" and "$" match at line ends, "." does not match one.  Bytes
// are compared, so a letter beyond ASCII counts as several.
//
// Errors   A pattern that is none, that would run away or that needs too much
//          memory does not match, with one line in the log.
// Threads  Any.
// Cost     At most some tens of milliseconds, whatever pattern and text are.
//          Patterns stay compiled for the next use.

#ifndef LISTHAVEN_ENGINE_RULES_BOUNDEDREGEX_H
#define LISTHAVEN_ENGINE_RULES_BOUNDEDREGEX_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

inline constexpr std::size_t MaxPatternSize = 4096;         // bytes
inline constexpr std::size_t MaxFormattedSize = 64 * 1024;  // bytes; a longer result is a failed match

enum class PatternCase { Exact, Ignored };  // of A-Z

bool CheckPattern(std::string_view pattern, std::string& reason);  // false with one sentence when it is none

bool SearchPattern(std::string_view text, std::string_view pattern, PatternCase letterCase);   // somewhere in it
bool MatchWholeText(std::string_view text, std::string_view pattern, PatternCase letterCase);  // all of it

// Every match, one behind the other; empty ones do not count.  False when the search had to be given up.
bool ForEachMatch(std::string_view text, std::string_view pattern, PatternCase letterCase,
                  const std::function<void(std::size_t start, std::size_t end)>& visit);

// What format ("$1", "$2 $1", "$&") makes of the first match; value is not touched without one.
bool ExtractPattern(std::string_view text, std::string_view pattern, std::string_view format, PatternCase letterCase,
                    std::string& value);

#endif  // LISTHAVEN_ENGINE_RULES_BOUNDEDREGEX_H
