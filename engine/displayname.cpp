#include "engine/displayname.h"

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "utility/text.h"

namespace {

constexpr std::array<std::string_view, 21> Honorifics = {"dr",   "mr",   "mrs",  "ms",   "miss", "prof", "professor",
                                                         "sir",  "dame", "lady", "lord", "rev",  "fr",   "hon",
                                                         "capt", "herr", "frau", "mme",  "mlle", "ing",  "dipl.-ing"};
constexpr std::array<std::string_view, 12> Suffixes = {"jr", "sr",  "ii", "iii", "iv",  "v",
                                                       "vi", "phd", "md", "esq", "mba", "ph.d"};
constexpr std::array<std::string_view, 29> Particles = {
    "van", "von", "vom", "de",  "der", "den", "del", "della", "di", "da", "dos", "das", "du",  "des", "do",
    "la",  "le",  "ten", "ter", "te",  "zu",  "zum", "zur",   "af", "av", "el",  "al",  "bin", "'t"};

template <std::size_t N>
bool IsOneOf(const std::array<std::string_view, N>& words, std::string_view word) {
    while (!word.empty() && (word.back() == '.' || word.back() == ','))
        word.remove_suffix(1);
    return std::any_of(words.begin(), words.end(), [&](std::string_view w) { return EqualNoCase(w, word); });
}

// A particle is written in lower case; "De" begins many a name that is one word of several.
bool IsParticle(std::string_view word) {
    return IsOneOf(Particles, word) && word == LowerAscii(word);
}

// A single letter is an initial ("V") as long as a name can follow it.
bool IsSuffix(std::string_view word) {
    return word.size() > 1 && IsOneOf(Suffixes, word);
}

std::vector<std::string_view> WordsOf(std::string_view text) {
    std::vector<std::string_view> words;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = text.find_first_not_of(" \t\r\n", at);
        if (start == std::string_view::npos) break;
        const std::size_t end = std::min(text.find_first_of(" \t\r\n", start), text.size());
        words.push_back(text.substr(start, end - start));
        at = end;
    }
    return words;
}

std::string Joined(std::span<const std::string_view> words) {
    std::string result;
    for (const std::string_view word : words) {
        if (!result.empty()) result += ' ';
        result += word;
    }
    return result;
}

std::size_t CountHonorifics(std::span<const std::string_view> words) {
    const auto end =
        std::find_if_not(words.begin(), words.end(), [](std::string_view w) { return IsOneOf(Honorifics, w); });
    return static_cast<std::size_t>(end - words.begin());
}

// How many words at the start are the first name with its honorifics.
std::size_t FirstNameLength(std::span<const std::string_view> words) {
    return std::min(CountHonorifics(words) + 1, words.size());
}

std::string_view WithoutQuotes(std::string_view name) {
    name = Trim(name);
    if (name.size() >= 2 && (name.front() == '"' || name.front() == '\'') && name.back() == name.front()) {
        return Trim(name.substr(1, name.size() - 2));
    }
    return name;
}

// "Last, First Middle", where what is behind the comma is not a suffix alone.
CDisplayName SplitLastFirst(std::string_view lastPart, std::span<const std::string_view> rest) {
    CDisplayName parts;
    std::size_t end = rest.size();
    while (end > 1 && IsSuffix(rest[end - 1]))
        --end;
    const std::size_t first = std::min(FirstNameLength(rest), end);
    parts.first = Joined(rest.subspan(0, first));
    parts.middle = Joined(rest.subspan(first, end - first));
    parts.last = Joined(WordsOf(lastPart));
    if (end < rest.size()) parts.last += " " + Joined(rest.subspan(end));
    return parts;
}

CDisplayName SplitWords(std::span<const std::string_view> words) {
    CDisplayName parts;
    std::size_t last = words.size();
    while (last > 0 && IsSuffix(words[last - 1]))
        --last;
    if (last > 0) --last;  // the last name itself, without its particles
    std::size_t first = CountHonorifics(words);
    const auto isParticle = [](std::string_view word) { return IsParticle(word); };
    const bool isLastNameOnly = first < last || (first == last && first > 0);
    if (words.size() == 1 || !isLastNameOnly ||
        !std::all_of(words.begin() + static_cast<std::ptrdiff_t>(first),
                     words.begin() + static_cast<std::ptrdiff_t>(last), isParticle)) {
        first = FirstNameLength(words);
    }
    last = std::max(last, first);
    while (last > first && IsParticle(words[last - 1]))
        --last;
    parts.first = Joined(words.subspan(0, first));
    parts.middle = Joined(words.subspan(first, last - first));
    parts.last = Joined(words.subspan(last));
    return parts;
}

bool IsUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool IsLower(char c) {
    return c >= 'a' && c <= 'z';
}
char Raised(char c) {
    return IsLower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}

bool IsRomanNumber(std::string_view word) {
    constexpr std::array<std::string_view, 4> Numbers = {"II", "III", "IV", "VI"};
    return IsOneOf(Numbers, word);
}

// A name without blanks, hyphens and dots.  "Mac" is not looked at: MacDonald
// and Mackenzie cannot be told apart.
std::string CapitalizeName(std::string_view name) {
    const bool hasUpper = std::any_of(name.begin(), name.end(), IsUpper);
    const bool hasLower = std::any_of(name.begin(), name.end(), IsLower);
    std::string result(name);
    if (name.empty() || (hasUpper && hasLower)) return result;
    const bool isAscii =
        std::all_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 128; });
    if (!isAscii) {  // the other letters would keep their case
        result.front() = Raised(result.front());
        return result;
    }
    for (char& c : result)
        c = IsRomanNumber(name) ? Raised(c) : ToLowerAscii(c);
    if (name.front() != 'd' || name.size() < 3 || name[1] != '\'') result.front() = Raised(result.front());
    if (result.size() > 2 && result[1] == '\'') result[2] = Raised(result[2]);
    if (result.size() > 3 && result.starts_with("Mc")) result[2] = Raised(result[2]);
    return result;
}

}  // namespace

CDisplayName SplitDisplayName(std::string_view name) {
    name = WithoutQuotes(name);
    const std::size_t comma = name.find(',');
    if (comma != std::string_view::npos) {
        std::string behind(name.substr(comma + 1));
        std::replace(behind.begin(), behind.end(), ',', ' ');
        const std::vector<std::string_view> rest = WordsOf(behind);
        const std::string_view before = Trim(name.substr(0, comma));
        if (!before.empty() && !rest.empty() && !IsSuffix(rest.front())) return SplitLastFirst(before, rest);
    }
    std::vector<std::string_view> words = WordsOf(name);
    std::erase(words, ",");
    if (words.empty()) return {};
    return SplitWords(words);
}

std::string JoinDisplayName(const CDisplayName& parts) {
    std::string result;
    for (const std::string* part : {&parts.first, &parts.middle, &parts.last}) {
        if (part->empty()) continue;
        if (!result.empty()) result += ' ';
        result += *part;
    }
    return result;
}

std::string CapitalizeNamePart(std::string_view part) {
    std::string result;
    for (std::size_t at = 0; at < part.size();) {
        const std::size_t end = std::min(part.find_first_of(" \t-.", at), part.size());
        const std::string_view name = part.substr(at, end - at);
        const bool isFollowed =
            end < part.size() && part[end] == ' ' && part.find_first_not_of(' ', end) != std::string_view::npos;
        if (isFollowed && IsOneOf(Particles, name)) {
            const bool isShouted = std::none_of(name.begin(), name.end(), IsLower);
            result += isShouted ? LowerAscii(name) : std::string(name);
        } else {
            result += CapitalizeName(name);
        }
        if (end < part.size()) result += part[end];
        at = end + 1;
    }
    return result;
}

void CapitalizeParts(CDisplayName& name) {
    for (std::string* part : {&name.first, &name.middle, &name.last})
        *part = CapitalizeNamePart(*part);
}
