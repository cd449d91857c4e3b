// namepattern.h - the patterns of directorysearch.h.

#ifndef LISTHAVEN_PLATFORM_NAMEPATTERN_H
#define LISTHAVEN_PLATFORM_NAMEPATTERN_H

#include <string>
#include <string_view>

namespace Platform {

class CNamePattern {
public:
    // False, with LastSystemError(), for what is no such pattern.
    bool Set(std::string_view pattern);
    bool Matches(std::string_view name) const;

private:
    std::string m_extension;  // with the dot; "" for every name
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_NAMEPATTERN_H
