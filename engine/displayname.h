// displayname.h - a display name and its parts.
//
// Errors   Nothing fails.
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_DISPLAYNAME_H
#define LISTHAVEN_ENGINE_DISPLAYNAME_H

#include <string>
#include <string_view>

struct CDisplayName {
    std::string first;   // with an honorific before it: "Dr. Anna"
    std::string middle;  // every name between first and last
    std::string last;    // with its particles and what follows it: "van der Berg", "King Jr."

    bool operator==(const CDisplayName&) const = default;
};

// "First Middle Last" or "Last, First Middle".  One word is a first name, one
// word with an honorific a last name ("Mr. Smith").  A pair of quotes around
// the name does not count, runs of white space are one blank.
CDisplayName SplitDisplayName(std::string_view name);

// The parts that are not empty, with one blank between them.
std::string JoinDisplayName(const CDisplayName& parts);

// Word by word, also after a hyphen: all in lower or all in upper case becomes
// "Smith", "McDonald", "O'Neill", "d'Arc", "III"; particles ("van der") and
// words in mixed case stay.  Only A-Z are changed, so a word with other letters
// gets at most its first letter raised.
std::string CapitalizeNamePart(std::string_view part);

#endif  // LISTHAVEN_ENGINE_DISPLAYNAME_H
