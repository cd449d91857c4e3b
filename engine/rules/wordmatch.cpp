#include "engine/rules/wordmatch.h"

#include <algorithm>

#include "engine/datafields.h"
#include "engine/rules/boundedregex.h"
#include "engine/rules/parsefield.h"
#include "utility/text.h"

namespace {

bool IsWordByte(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte >= 128;
}

bool IsWhite(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Lower case, one blank for each run of white space, none at the ends.
std::string Normalized(std::string_view text) {
    std::string result;
    for (const char c : Trim(text)) {
        if (!IsWhite(c))
            result.push_back(ToLowerAscii(c));
        else if (result.back() != ' ')
            result.push_back(' ');
    }
    return result;
}

std::string Shown(std::string_view text) {
    std::string shown = OneLine(text.substr(0, 100));
    if (text.size() > 100) shown += "...";
    return "\"" + shown + "\"";
}

std::string ExpandWord(const std::string& word) {
    std::string expanded = word;
    ExpandDataFields(&expanded, false);
    return Normalized(expanded);
}

// The text, and which of its bytes some word accounts for.
class CCoveredText {
public:
    CCoveredText(std::string_view text, bool isRegex)
        : m_text(isRegex ? std::string(text) : Normalized(text)), m_isRegex(isRegex) {}

    // Whether it holds the word; all its places count as covered.
    bool Cover(const std::string& word) {
        m_covered.resize(m_text.size());
        return m_isRegex ? CoverExpression(word) : CoverWord(word);
    }

    bool Holds(const std::string& word) const {
        if (m_isRegex) return SearchPattern(m_text, word, PatternCase::Ignored);
        return FindWord(word, 0) != std::string::npos;
    }

    // The first text that no word accounts for; "" when there is none.
    std::string FindRest() const {
        for (std::size_t i = 0; i < m_text.size(); ++i) {
            if (IsWhite(m_text[i]) || m_covered[i]) continue;
            std::size_t end = i;
            while (end < m_text.size() && !m_covered[end])
                ++end;
            return std::string(Trim(std::string_view(m_text).substr(i, end - i)));
        }
        return "";
    }

private:
    std::size_t FindWord(const std::string& word, std::size_t from) const {
        for (std::size_t at = m_text.find(word, from); at != std::string::npos; at = m_text.find(word, at + 1)) {
            const std::size_t end = at + word.size();
            const bool startsWhole = at == 0 || !IsWordByte(word.front()) || !IsWordByte(m_text[at - 1]);
            const bool endsWhole = end == m_text.size() || !IsWordByte(word.back()) || !IsWordByte(m_text[end]);
            if (startsWhole && endsWhole) return at;
        }
        return std::string::npos;
    }

    void Mark(std::size_t start, std::size_t end) {
        std::fill(m_covered.begin() + static_cast<std::ptrdiff_t>(start),
                  m_covered.begin() + static_cast<std::ptrdiff_t>(end), true);
    }

    bool CoverWord(const std::string& word) {
        std::size_t marked = 0;
        for (std::size_t at = FindWord(word, 0); at != std::string::npos; at = FindWord(word, at + 1)) {
            Mark(std::max(marked, at), at + word.size());
            marked = at + word.size();
        }
        return marked > 0;
    }

    bool CoverExpression(const std::string& expression) {
        bool found = false;
        const bool isWhole =
            ForEachMatch(m_text, expression, PatternCase::Ignored, [&](std::size_t start, std::size_t end) {
                Mark(start, end);
                found = true;
            });
        return isWhole && found;
    }

    std::string m_text;
    std::vector<bool> m_covered;
    bool m_isRegex;
};

std::vector<std::string> ExpandWords(const std::vector<std::string>& words, bool isRegex) {
    std::vector<std::string> expanded;
    for (const std::string& word : words) {
        std::string text = isRegex ? ExpandExpression(word) : ExpandWord(word);
        if (!text.empty()) expanded.push_back(std::move(text));
    }
    return expanded;
}

bool MatchAny(const std::vector<std::string>& words, const CCoveredText& text, std::string& why) {
    for (const std::string& word : words) {
        if (!text.Holds(word)) continue;
        why = "it holds " + Shown(word);
        return true;
    }
    why = words.size() == 1 ? "it does not hold " + Shown(words.front()) : "it holds none of the words";
    return false;
}

bool MatchAll(const std::vector<std::string>& words, bool only, CCoveredText& text, std::string& why) {
    for (const std::string& word : words) {
        if (only ? text.Cover(word) : text.Holds(word)) continue;
        why = "it does not hold " + Shown(word);
        return false;
    }
    const std::string rest = only ? text.FindRest() : std::string();
    if (!rest.empty())
        why = "it holds other text: " + Shown(rest);
    else
        why = (only ? "it consists of " : "it holds ") + (words.size() == 1 ? Shown(words.front()) : "all the words");
    return rest.empty();
}

}  // namespace

// A reference that has no value is left alone: "$(" can be meant as part of an expression.
std::string ExpandExpression(const std::string& expression) {
    const CDataFieldText parsed(Trim(expression));
    CDataFieldExpansion expansion(false);
    std::string expanded;
    for (const CDataFieldText::Piece& piece : parsed.GetPieces()) {
        const std::string_view value = piece.field ? expansion.GetValue(*piece.field) : std::string_view();
        if (!piece.field)
            expanded += piece.text;
        else if (value.empty())
            expanded.append("$(").append(piece.text).append(")");
        else
            expanded += EscapePattern(value);
    }
    return expanded;
}

bool MatchWords(const std::vector<std::string>& words, const RuleWordOptions& options, std::string_view text,
                std::string& why) {
    const std::vector<std::string> expanded = ExpandWords(words, options.regex);
    if (expanded.empty()) {
        why = "the rule has no words for it";
        return false;
    }
    CCoveredText covered(text, options.regex);
    return options.all ? MatchAll(expanded, options.only, covered, why) : MatchAny(expanded, covered, why);
}
