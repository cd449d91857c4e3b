#include "engine/blockedset.h"

#include "mime/mailbox.h"
#include "utility/text.h"

namespace {

constexpr std::string_view AnyAt = "*@";
constexpr std::string_view AnySubdomainOf = "*@*.";
constexpr std::size_t LongestPattern = 256;

// "name@host." is "name@host".
std::string_view WithoutFinalDot(std::string_view address) {
    if (address.ends_with('.')) address.remove_suffix(1);
    return address;
}

bool Refuse(std::string* reason, std::string_view text) {
    if (reason) *reason = text;
    return false;
}

}  // namespace

bool CBlockedSet::Normalize(std::string_view text, std::string& pattern, std::string* reason) {
    pattern = LowerAscii(WithoutFinalDot(Trim(text)));
    if (pattern.empty()) return Refuse(reason, "The pattern is empty.");
    if (pattern.size() > LongestPattern) return Refuse(reason, "The pattern is longer than 256 characters.");
    std::string_view domain;
    if (pattern.starts_with(AnySubdomainOf)) {
        domain = std::string_view(pattern).substr(AnySubdomainOf.size());
    } else if (pattern.starts_with(AnyAt)) {
        domain = std::string_view(pattern).substr(AnyAt.size());
    } else {
        if (pattern.find('*') != std::string::npos) {
            return Refuse(reason, "An asterisk may only stand for the whole name, as in *@domain or *@*.domain.");
        }
        return IsPlausibleAddress(pattern, reason);
    }
    if (domain.find('*') != std::string_view::npos) {
        return Refuse(reason, "An asterisk in the domain may only stand at its start, as in *@*.domain.");
    }
    return IsPlausibleAddress("x@" + std::string(domain), reason);
}

void CBlockedSet::Clear() {
    m_addresses.clear();
    m_domains.clear();
    m_subdomains.clear();
}

void CBlockedSet::Insert(std::string_view pattern) {
    if (pattern.starts_with(AnySubdomainOf)) {
        m_subdomains.emplace(pattern.substr(AnySubdomainOf.size()));
    } else if (pattern.starts_with(AnyAt)) {
        m_domains.emplace(pattern.substr(AnyAt.size()));
    } else if (!pattern.empty()) {
        m_addresses.emplace(pattern);
    }
}

bool CBlockedSet::Matches(std::string_view address) const {
    const std::string lower = LowerAscii(WithoutFinalDot(Trim(address)));
    if (m_addresses.contains(lower)) return true;
    const std::size_t at = lower.rfind('@');
    if (at == std::string::npos) return false;
    std::string_view domain = std::string_view(lower).substr(at + 1);
    if (m_domains.contains(domain)) return true;
    if (m_subdomains.empty()) return false;
    for (std::size_t dot = domain.find('.'); dot != std::string_view::npos; dot = domain.find('.')) {
        domain.remove_prefix(dot + 1);
        if (m_subdomains.contains(domain)) return true;
    }
    return false;
}
