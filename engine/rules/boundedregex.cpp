#include "engine/rules/boundedregex.h"

// The library applies this bound as it stands only to iterators without random
// access; CTextIterator adds one on the steps within a state.
#define BOOST_REGEX_MAX_STATE_COUNT 4000000

#include <boost/regex.hpp>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "engine/eventlog.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MaxSteps = 24'000'000;  // of one search: more than 20 for each byte of 1 MiB
constexpr std::size_t MaxCachedPatterns = 1000;

struct CRunawayPattern {};

struct CStepBudget {
    std::size_t left = MaxSteps;

    void Take() {
        if (left-- != 0) return;
        left = static_cast<std::size_t>(-1);  // once: the matcher takes back its states on the way out
        throw CRunawayPattern();
    }
};

class CTextIterator {
public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CTextIterator() = default;
    CTextIterator(const char* at, CStepBudget* budget) : m_at(at), m_budget(budget) {}

    const char* Get() const noexcept { return m_at; }
    reference operator*() const {
        m_budget->Take();
        return *m_at;
    }
    CTextIterator& operator++() {
        m_budget->Take();
        ++m_at;
        return *this;
    }
    CTextIterator operator++(int) {
        const CTextIterator old = *this;
        ++*this;
        return old;
    }
    CTextIterator& operator--() {
        m_budget->Take();
        --m_at;
        return *this;
    }
    CTextIterator operator--(int) {
        const CTextIterator old = *this;
        --*this;
        return old;
    }
    bool operator==(const CTextIterator& other) const noexcept { return m_at == other.m_at; }
    bool operator!=(const CTextIterator& other) const noexcept { return m_at != other.m_at; }

private:
    const char* m_at = nullptr;
    CStepBudget* m_budget = nullptr;
};

// The same letters on every system, whatever its language is.
using Regex = boost::basic_regex<char, boost::regex_traits<char, boost::cpp_regex_traits<char>>>;
using Match = boost::match_results<CTextIterator>;

struct CCompiled {
    Regex regex;
    std::string fault;  // "" when it is a pattern
};

void Compile(std::string_view pattern, PatternCase letterCase, CCompiled& compiled) {
    if (pattern.empty()) {
        compiled.fault = "The regular expression is empty.";
    } else if (pattern.size() > MaxPatternSize) {
        compiled.fault = "The regular expression is longer than 4096 bytes.";
    } else {
        try {
            Regex::flag_type flags = Regex::perl;
            if (letterCase == PatternCase::Ignored) flags |= Regex::icase;
            compiled.regex.assign(pattern.data(), pattern.data() + pattern.size(), flags);
        } catch (const std::exception& fault) {
            compiled.fault = OneLine(std::string("The regular expression is not valid: ") + fault.what());
        }
    }
}

// Rules apply the same few patterns to thousands of messages.
std::shared_ptr<const CCompiled> GetCompiled(std::string_view pattern, PatternCase letterCase) {
    static std::mutex mutex;
    static std::map<std::pair<std::string, PatternCase>, std::shared_ptr<const CCompiled>> cache;
    const std::pair<std::string, PatternCase> key(pattern.substr(0, MaxPatternSize + 1), letterCase);
    const std::lock_guard guard(mutex);
    const auto found = cache.find(key);
    if (found != cache.end()) return found->second;
    if (cache.size() >= MaxCachedPatterns) cache.clear();
    auto compiled = std::make_shared<CCompiled>();
    Compile(pattern, letterCase, *compiled);
    return cache[key] = std::move(compiled);
}

std::string Shown(std::string_view pattern) {
    return OneLine(pattern.substr(0, 200));
}

// Output that may not grow beyond its limit.
class CBoundedOutput {
public:
    using iterator_category = std::output_iterator_tag;
    using value_type = void;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = void;

    explicit CBoundedOutput(std::string& text) : m_text(&text) {}
    CBoundedOutput& operator=(char c) {
        if (m_text->size() >= MaxFormattedSize) throw CRunawayPattern();
        m_text->push_back(c);
        return *this;
    }
    CBoundedOutput& operator*() noexcept { return *this; }
    CBoundedOutput& operator++() noexcept { return *this; }
    CBoundedOutput operator++(int) noexcept { return *this; }

private:
    std::string* m_text;
};

// One attempt at a match; what goes wrong in it is logged and no match.
template <class Attempt>
bool TryPattern(std::string_view pattern, PatternCase letterCase, const Attempt& attempt) {
    const auto compiled = GetCompiled(pattern, letterCase);
    if (!compiled->fault.empty()) {
        Log(LogWarning, "\"%s\" matches nothing: %s", Shown(pattern).c_str(), compiled->fault.c_str());
        return false;
    }
    try {
        CStepBudget budget;
        return attempt(compiled->regex, budget);
    } catch (const CRunawayPattern&) {
        Log(LogWarning, "Matching the regular expression \"%s\" takes too long. It counts as not matching.",
            Shown(pattern).c_str());
    } catch (const std::runtime_error&) {  // of the library: too many states
        Log(LogWarning, "The regular expression \"%s\" is too complex for the text. It counts as not matching.",
            Shown(pattern).c_str());
    }
    return false;
}

const boost::match_flag_type Flags = boost::match_default | boost::match_not_dot_newline;

bool Search(const Regex& regex, std::string_view text, std::size_t from, CStepBudget& budget, Match& match,
            boost::match_flag_type extra = boost::match_default) {
    const CTextIterator begin(text.data(), &budget);
    const CTextIterator start(text.data() + from, &budget);
    const CTextIterator end(text.data() + text.size(), &budget);
    return boost::regex_search(start, end, match, regex, Flags | extra, begin);
}

}  // namespace

bool CheckPattern(std::string_view pattern, std::string& reason) {
    const auto compiled = GetCompiled(pattern, PatternCase::Exact);
    if (!compiled->fault.empty()) reason = compiled->fault;
    return compiled->fault.empty();
}

bool SearchPattern(std::string_view text, std::string_view pattern, PatternCase letterCase) {
    return TryPattern(pattern, letterCase, [&](const Regex& regex, CStepBudget& budget) {
        Match match;
        return Search(regex, text, 0, budget, match, boost::match_any);
    });
}

bool MatchWholeText(std::string_view text, std::string_view pattern, PatternCase letterCase) {
    return TryPattern(pattern, letterCase, [&](const Regex& regex, CStepBudget& budget) {
        Match match;
        return boost::regex_match(CTextIterator(text.data(), &budget),
                                  CTextIterator(text.data() + text.size(), &budget), match, regex, Flags);
    });
}

bool ForEachMatch(std::string_view text, std::string_view pattern, PatternCase letterCase,
                  const std::function<void(std::size_t start, std::size_t end)>& visit) {
    return TryPattern(pattern, letterCase, [&](const Regex& regex, CStepBudget& budget) {
        Match match;
        std::size_t from = 0;
        while (from < text.size() && Search(regex, text, from, budget, match, boost::match_not_null)) {
            const auto end = static_cast<std::size_t>(match[0].second.Get() - text.data());
            visit(static_cast<std::size_t>(match[0].first.Get() - text.data()), end);
            from = end;
        }
        return true;
    });
}

bool ExtractPattern(std::string_view text, std::string_view pattern, std::string_view format, PatternCase letterCase,
                    std::string& value) {
    return TryPattern(pattern, letterCase, [&](const Regex& regex, CStepBudget& budget) {
        Match match;
        if (!Search(regex, text, 0, budget, match)) return false;
        budget.left = MaxSteps;
        std::string result;
        match.format(CBoundedOutput(result), std::string(format), boost::format_perl);
        value = std::move(result);
        return true;
    });
}
