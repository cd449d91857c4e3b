#include "platform/namepattern.h"

#include <algorithm>

#include "platform/errorcodes.h"
#include "platform/systemerror.h"

namespace Platform {

namespace {

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool CNamePattern::Set(std::string_view pattern) {
    m_extension.clear();
    if (pattern == "*" || pattern == "*.*") return true;
    if (pattern.size() > 2 && pattern.starts_with("*.") && pattern.find_first_of("*?", 1) == pattern.npos) {
        m_extension = pattern.substr(1);
        return true;
    }
    SetLastSystemError(InvalidArgumentError());
    return false;
}

bool CNamePattern::Matches(std::string_view name) const {
    return name.size() >= m_extension.size() && std::equal(m_extension.rbegin(), m_extension.rend(), name.rbegin(),
                                                           [](char a, char b) { return Lower(a) == Lower(b); });
}

}  // namespace Platform
