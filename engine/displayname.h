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

// Word by word, also after a hyphen or a dot: a word that is all in lower or all
// in upper case becomes "Smith", "McDonald", "O'Neill", "III", one that begins
// with "d'" becomes "d'Arc"; particles before another word ("van der") are in
// lower case unless written otherwise; mixed case stays.  Only a-z and A-Z are
// changed: of a word with other letters at most the first.
std::string CapitalizeNamePart(std::string_view part);
void CapitalizeParts(CDisplayName& name);

#endif  // LISTHAVEN_ENGINE_DISPLAYNAME_H
