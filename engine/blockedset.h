// blockedset.h - the patterns of blocked addresses in memory.
//
// Threads  One at a time; Matches() from several while nothing changes.

#ifndef LISTHAVEN_ENGINE_BLOCKEDSET_H
#define LISTHAVEN_ENGINE_BLOCKEDSET_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

class CBlockedSet {
public:
    // The form in which patterns are stored and compared: lower case, without
    // surrounding blanks and without a dot at the end.  False, with the reason,
    // when the text is no pattern.
    static bool Normalize(std::string_view text, std::string& pattern, std::string* reason);

    void Clear();
    void Insert(std::string_view pattern);  // normalized
    bool Matches(std::string_view address) const;

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
    };
    using Set = std::unordered_set<std::string, Hash, std::equal_to<>>;

    Set m_addresses;
    Set m_domains;     // of "*@domain"
    Set m_subdomains;  // of "*@*.domain"
};

#endif  // LISTHAVEN_ENGINE_BLOCKEDSET_H
