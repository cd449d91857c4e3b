#include "engine/bounces/replytext.h"

#include <array>
#include <vector>

#include "engine/bounces/clausewords.h"
#include "engine/bounces/replyphrases.h"

namespace {

constexpr std::size_t ShortPhrase = 4;  // up to here it must be a whole word

bool IsLetter(char c) noexcept {
    return c >= 'a' && c <= 'z';
}

// Whether a word ends in front of a place: at all that is neither a letter nor
// a digit, and at characters of languages that write without blanks.
bool EndsWord(std::string_view text, std::size_t at) noexcept {
    if (at == 0) return true;
    const char before = text[at - 1];
    if (IsLetter(before) || (before >= '0' && before <= '9')) return false;
    if (static_cast<unsigned char>(before) < 0x80) return true;
    return at >= 3 && static_cast<unsigned char>(text[at - 3]) >= 0xE2;
}

bool IsWordCharacter(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return IsLetter(c) || (c >= '0' && c <= '9') || (byte >= 0x80 && byte < 0xE2);
}

// The phrases by their first two characters.  Behind a letter all that is none
// is one; of characters beyond ASCII the second byte tells the most.
constexpr std::size_t Letters = 26;
constexpr std::size_t AsciiKeys = Letters * (Letters + 1);
constexpr std::size_t NoKey = AsciiKeys + 64;
using CPhraseIndex = std::array<std::vector<CReplyPhrase>, NoKey>;

std::size_t KeyOf(char first, char second) noexcept {
    if (IsLetter(first))
        return static_cast<std::size_t>(first - 'a') * (Letters + 1) +
               (IsLetter(second) ? static_cast<std::size_t>(second - 'a') : Letters);
    if (static_cast<unsigned char>(first) < 0xC2) return NoKey;
    return AsciiKeys + (static_cast<unsigned char>(second) & 0x3FU);
}

const CPhraseIndex& PhraseIndex() {
    static const CPhraseIndex Index = [] {
        CPhraseIndex index;
        for (const CReplyPhrase& phrase : ReplyPhrases())
            index[KeyOf(phrase.words[0], phrase.words[1])].push_back(phrase);
        return index;
    }();
    return Index;
}

bool IsPhraseAt(std::string_view rest, std::string_view words) noexcept {
    if (!rest.starts_with(words)) return false;
    return words.size() > ShortPhrase || rest.size() == words.size() || !IsWordCharacter(rest[words.size()]);
}

}  // namespace

CReplyMeaning MeaningOfReply(std::string_view normalized) {
    CReplyMeaning meaning;
    const CPhraseIndex& index = PhraseIndex();
    for (std::size_t at = 0; at + 1 < normalized.size() && meaning.weight != ReplyWeight::Clear; ++at) {
        const std::size_t key = KeyOf(normalized[at], normalized[at + 1]);
        if (key == NoKey || index[key].empty() || (IsLetter(normalized[at]) && !EndsWord(normalized, at))) continue;
        const std::string_view rest = normalized.substr(at);
        const CReplyPhrase* longest = nullptr;
        for (const CReplyPhrase& phrase : index[key])
            if (IsPhraseAt(rest, phrase.words) && (!longest || phrase.words.size() > longest->words.size()))
                longest = &phrase;
        if (longest && longest->weight > meaning.weight) meaning = {longest->bounceClass, longest->weight, at};
    }
    if (meaning.weight < ReplyWeight::Likely) {
        const CReplyMeaning byClauses = MeaningOfClauses(normalized);
        if (byClauses.weight > meaning.weight) meaning = byClauses;
    }
    return meaning;
}
