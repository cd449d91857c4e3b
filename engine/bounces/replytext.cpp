#include "engine/bounces/replytext.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>

#include "engine/bounces/replyphrases.h"
#include "utility/text.h"

namespace {

constexpr std::size_t ShortPhrase = 4;  // up to here it must be a whole word

bool IsWordCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || static_cast<unsigned char>(c) >= 0x80;
}

// The phrases by their first two characters; all that is no letter is one.
constexpr std::size_t Letters = 26;
using CPhraseIndex = std::array<std::span<const CReplyPhrase>, Letters*(Letters + 1)>;

std::size_t IndexOf(char first, char second) noexcept {
    const bool isLetter = second >= 'a' && second <= 'z';
    return static_cast<std::size_t>(first - 'a') * (Letters + 1) +
           (isLetter ? static_cast<std::size_t>(second - 'a') : Letters);
}

const CPhraseIndex& PhraseIndex() {
    static const CPhraseIndex Index = [] {
        CPhraseIndex index;
        const auto phrases = ReplyPhrases();
        for (std::size_t first = 0; first < phrases.size();) {
            const std::size_t key = IndexOf(phrases[first].words[0], phrases[first].words[1]);
            std::size_t end = first;
            while (end < phrases.size() && IndexOf(phrases[end].words[0], phrases[end].words[1]) == key)
                ++end;
            index[key] = phrases.subspan(first, end - first);
            first = end;
        }
        return index;
    }();
    return Index;
}

bool IsPhraseAt(std::string_view rest, std::string_view words) noexcept {
    if (!rest.starts_with(words)) return false;
    return words.size() > ShortPhrase || rest.size() == words.size() || !IsWordCharacter(rest[words.size()]);
}

}  // namespace

std::string NormalizeReply(std::string_view text) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
    const auto isBlank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    constexpr std::string_view CurlyApostrophe = "\xE2\x80\x99";
    std::string result;
    result.reserve(text.size());
    for (auto at = std::find_if_not(text.begin(), text.end(), isBlank); at != text.end();) {
        const auto end = std::find_if(at, text.end(), isBlank);
        if (std::find(at, end, '@') == end) {
            if (!result.empty()) result += ' ';
            std::transform(at, end, std::back_inserter(result), lower);
        }
        at = std::find_if_not(end, text.end(), isBlank);
    }
    ReplaceAll(result, CurlyApostrophe, "'");
    return result;
}

CReplyMeaning MeaningOfReply(std::string_view normalized) {
    CReplyMeaning meaning;
    const CPhraseIndex& index = PhraseIndex();
    for (std::size_t at = 0; at + 1 < normalized.size() && meaning.weight != ReplyWeight::Clear; ++at) {
        const char c = normalized[at];
        if (c < 'a' || c > 'z' || (at != 0 && IsWordCharacter(normalized[at - 1]))) continue;
        const std::string_view rest = normalized.substr(at);
        const CReplyPhrase* longest = nullptr;
        for (const CReplyPhrase& phrase : index[IndexOf(c, normalized[at + 1])])
            if (IsPhraseAt(rest, phrase.words) && (!longest || phrase.words.size() > longest->words.size()))
                longest = &phrase;
        if (longest && longest->weight > meaning.weight) meaning = {longest->bounceClass, longest->weight, at};
    }
    return meaning;
}
