#include "engine/bounces/normalizedtext.h"

#include <algorithm>

#include "utility/text.h"

namespace {

unsigned ByteAt(std::string_view text, std::size_t at) noexcept {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

bool IsContinuation(unsigned byte) noexcept {
    return (byte & 0xC0U) == 0x80;
}

// U+00C0 to U+00FF and U+0100 to U+017F without their accents; "." stays as it is.
constexpr std::string_view Latin1Letters = "aaaaaa.ceeeeiiiidnooooo.ouuuuy..aaaaaa.ceeeeiiiidnooooo.ouuuuy.y";
constexpr std::string_view LatinExtendedLetters =
    "aaaaaaccccccccddddeeeeeeeeeegggggggghhhhiiiiiiiiiiiijjkkkllllllllllnnnnnnnnnoooooooorrrrrrssssssssttttttuuuuuuuuuu"
    "uu"
    "wwyyyzzzzzzs";
static_assert(Latin1Letters.size() == 64 && LatinExtendedLetters.size() == 128);

// Whether a letter of two bytes has been added without its accent.
bool AddLatin(std::string& to, unsigned first, unsigned second) {
    if (first == 0xC3) {
        const char plain = Latin1Letters[second & 0x3FU];
        if (plain != '.')
            to += plain;
        else if (second == 0x86 || second == 0xA6)
            to += "ae";
        else if (second == 0x9F)
            to += "ss";
        else
            return false;
        return true;
    }
    if (first != 0xC4 && first != 0xC5) return false;
    to += LatinExtendedLetters[(first - 0xC4U) * 64 + (second & 0x3FU)];
    return true;
}

// In lower case, the letter io as ie.
void AddCyrillic(std::string& to, unsigned first, unsigned second) {
    if (first == 0xD0 && second >= 0x90 && second <= 0x9F) {
        second += 0x20;
    } else if (first == 0xD0 && second >= 0xA0 && second <= 0xAF) {
        first = 0xD1;
        second -= 0x20;
    } else if ((first == 0xD0 && second == 0x81) || (first == 0xD1 && second == 0x91)) {
        first = 0xD0;
        second = 0xB5;
    } else if (first == 0xD0 && second >= 0x82 && second <= 0x8F) {
        first = 0xD1;
        second += 0x10;
    }
    to += static_cast<char>(first);
    to += static_cast<char>(second);
}

// A Greek letter in lower case, without accents, the final sigma as any other.
bool AddGreek(std::string& to, unsigned first, unsigned second) {
    if (first != 0xCE && first != 0xCF) return false;
    auto letter = static_cast<char16_t>(((first & 0x1FU) << 6U) | (second & 0x3FU));
    constexpr std::u16string_view Marked = u"ΆΈΉΊΌΎΏΐΪΫάέήίΰςϊϋόύώ";
    constexpr std::u16string_view Plain = u"αεηιουωιιυαεηιυσιυουω";
    static_assert(Marked.size() == Plain.size());
    const std::size_t marked = Marked.find(letter);
    if (marked != std::u16string_view::npos)
        letter = Plain[marked];
    else if (letter >= u'Α' && letter <= u'Ω')
        letter = static_cast<char16_t>(letter + 0x20);
    to += static_cast<char>(0xC0U | (letter >> 6U));
    to += static_cast<char>(0x80U | (letter & 0x3FU));
    return true;
}

// Letters of Romanian and Vietnamese that are not among those of Latin
// Extended-A, and marks that stand behind their letter.  Returns the bytes read.
std::size_t AddRareLatin(std::string& to, std::string_view text) {
    const unsigned first = ByteAt(text, 0);
    const unsigned second = ByteAt(text, 1);
    if (first == 0xCC || (first == 0xCD && second < 0xB0)) return 2;
    char plain = '\0';
    if (first == 0xC6 && (second == 0xA0 || second == 0xA1)) plain = 'o';
    if (first == 0xC6 && (second == 0xAF || second == 0xB0)) plain = 'u';
    if (first == 0xC8 && second >= 0x98 && second <= 0x9B) plain = second < 0x9A ? 's' : 't';
    if (plain != '\0') {
        to += plain;
        return 2;
    }
    if (first != 0xE1 || (second != 0xBA && second != 0xBB) || !IsContinuation(ByteAt(text, 2))) return 0;
    // U+1EA0 to U+1EF9, each letter large and small.
    constexpr std::string_view Letters = "aaaaaaaaaaaaeeeeeeeeiioooooooooooouuuuuuuyyyy";
    const unsigned index = ((second - 0xBAU) << 6U) + (ByteAt(text, 2) & 0x3FU);
    if (index < 0x20 || (index - 0x20) / 2 >= Letters.size()) return 0;
    to += Letters[(index - 0x20) / 2];
    return 3;
}

void AddFolded(std::string& to, std::string_view word) {
    for (std::size_t at = 0; at < word.size(); ++at) {
        const unsigned first = ByteAt(word, at);
        const unsigned second = ByteAt(word, at + 1);
        if (first < 0x80 || !IsContinuation(second)) {
            to += ToLowerAscii(word[at]);
        } else if (first == 0xE2 && second == 0x80 && ByteAt(word, at + 2) == 0x99) {
            to += '\'';
            at += 2;
        } else if (first == 0xD0 || first == 0xD1) {
            AddCyrillic(to, first, second);
            ++at;
        } else if (AddLatin(to, first, second) || AddGreek(to, first, second)) {
            ++at;
        } else if (const std::size_t read = AddRareLatin(to, word.substr(at)); read != 0) {
            at += read - 1;
        } else {
            to += word[at];
        }
    }
}

// A Chinese or Japanese character, U+3000 to U+9FFF: three bytes.
bool StartsIdeograph(std::string_view text) noexcept {
    return ByteAt(text, 0) >= 0xE3 && ByteAt(text, 0) <= 0xE9 && IsContinuation(ByteAt(text, 1));
}

bool EndsInIdeograph(std::string_view text) noexcept {
    return text.size() >= 3 && StartsIdeograph(text.substr(text.size() - 3));
}

bool IsAscii(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x80;
}

// What of a word follows the address in it: "<a@b>:blocked" says something.
std::string_view BehindAddress(std::string_view word) noexcept {
    constexpr std::size_t MinWord = 4;
    const auto isLetter = [](char c) { return ToLowerAscii(c) >= 'a' && ToLowerAscii(c) <= 'z'; };
    const auto isDomain = [&](char c) { return isLetter(c) || (c >= '0' && c <= '9') || c == '.' || c == '-'; };
    const auto end =
        std::find_if_not(word.begin() + static_cast<std::ptrdiff_t>(word.rfind('@')) + 1, word.end(), isDomain);
    const std::string_view rest(std::find_if(end, word.end(), isLetter), word.end());
    return rest.size() < MinWord ? std::string_view() : rest;
}

// What of a word with an "@" is no part of the address: languages that write
// without blanks put it in the middle.
std::string WithoutAddress(std::string_view word) {
    if (std::all_of(word.begin(), word.end(), IsAscii)) return std::string(BehindAddress(word));
    std::string rest;
    for (std::size_t at = 0; at < word.size();) {
        const auto begin = word.begin() + static_cast<std::ptrdiff_t>(at);
        const bool isPlain = IsAscii(*begin);
        const auto end = std::find_if(begin, word.end(), [&](char c) { return IsAscii(c) != isPlain; });
        if (!isPlain || std::find(begin, end, '@') == end) rest.append(begin, end);
        at = static_cast<std::size_t>(end - word.begin());
    }
    return rest;
}

}  // namespace

std::string NormalizeReply(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    std::string spaced;
    constexpr std::string_view NoBreakSpace = "\xC2\xA0";
    if (text.find(NoBreakSpace) != std::string_view::npos) {
        spaced = text;
        ReplaceAll(spaced, NoBreakSpace, " ");
        text = spaced;
    }
    std::string result;
    result.reserve(text.size());
    for (auto at = std::find_if_not(text.begin(), text.end(), isBlank); at != text.end();) {
        const auto end = std::find_if(at, text.end(), isBlank);
        std::string_view word(at, end);
        std::string rest;
        if (word.find('@') != std::string_view::npos) {
            rest = WithoutAddress(word);
            word = rest;
        }
        if (!word.empty()) {
            if (!result.empty() && !(StartsIdeograph(word) && EndsInIdeograph(result))) result += ' ';
            AddFolded(result, word);
        }
        at = std::find_if_not(end, text.end(), isBlank);
    }
    return result;
}
