#include <algorithm>
#include <vector>

#include "mime/mailbox.h"
#include "utility/text.h"

namespace {

constexpr std::size_t LongestAddress = 128;
constexpr std::size_t LongestLocalPart = 64;
constexpr std::size_t LongestLabel = 63;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsHexDigit(char c) {
    return IsDigit(c) || (ToLowerAscii(c) >= 'a' && ToLowerAscii(c) <= 'f');
}
bool IsLetterOrDigit(char c) {
    return IsDigit(c) || (ToLowerAscii(c) >= 'a' && ToLowerAscii(c) <= 'z');
}
bool IsNonAscii(char c) {
    return static_cast<unsigned char>(c) > 127;
}

bool IsAtomCharacter(char c) {
    return IsLetterOrDigit(c) || IsNonAscii(c) ||
           std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
}

const char* FaultOfLocalPart(std::string_view local) {
    if (local.empty()) return "There is nothing before the \"@\".";
    if (local.size() > LongestLocalPart) return "There are more than 64 characters before the \"@\".";
    if (local.front() == '"') {  // anything may stand in the quotes, but a backslash only before ASCII
        for (std::size_t i = local.find('\\'); i != std::string_view::npos; i = local.find('\\', i + 2)) {
            if (IsNonAscii(local[i + 1])) return "A backslash before the \"@\" stands in the wrong place.";
        }
        return nullptr;
    }
    if (local.front() == '.' || local.back() == '.' || local.find("..") != std::string_view::npos) {
        return "There is a dot in the wrong place before the \"@\".";
    }
    const bool isAtom = std::all_of(local.begin(), local.end(), [](char c) { return c == '.' || IsAtomCharacter(c); });
    return isAtom ? nullptr : "There is a character before the \"@\" that cannot stand there.";
}

bool IsIpv4(std::string_view text) {
    const std::vector<std::string_view> parts = Split(text, '.');
    return parts.size() == 4 && std::all_of(parts.begin(), parts.end(), [](std::string_view part) {
               return !part.empty() && part.size() <= 3 && std::all_of(part.begin(), part.end(), IsDigit) &&
                      *ParseNumber(part) <= 255;
           });
}

bool IsIpv6(std::string_view text) {
    const std::size_t gap = text.find("::");
    if (gap != std::string_view::npos && text.find("::", gap + 1) != std::string_view::npos) return false;
    if (text.starts_with(':') && gap != 0) return false;
    if (text.ends_with(':') && gap != text.size() - 2) return false;
    std::size_t groups = 0;
    const std::vector<std::string_view> parts = Split(text, ':');
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].empty()) continue;
        const bool isAddressTail = i + 1 == parts.size() && IsIpv4(parts[i]);
        groups += isAddressTail ? 2 : 1;
        if (!isAddressTail && (parts[i].size() > 4 || !std::all_of(parts[i].begin(), parts[i].end(), IsHexDigit))) {
            return false;
        }
    }
    return gap == std::string_view::npos ? groups == 8 : groups <= 6;
}

bool IsAddressLiteral(std::string_view literal) {
    if (StartsWithNoCase(literal, "IPv6:")) return IsIpv6(literal.substr(5));
    return IsIpv4(literal);
}

const char* FaultOfDomain(std::string_view domain) {
    if (domain.empty()) return "There is nothing after the \"@\".";
    if (domain.front() == '[') {
        const bool isClosed = domain.size() > 2 && domain.back() == ']';
        return isClosed && IsAddressLiteral(domain.substr(1, domain.size() - 2))
                   ? nullptr
                   : "What is in square brackets after the \"@\" is no IP address.";
    }
    for (const std::string_view label : Split(domain, '.')) {
        if (label.empty()) return "There is a dot in the wrong place after the \"@\".";
        if (label.size() > LongestLabel) return "A part of the domain is longer than 63 characters.";
        if (label.front() == '-' || label.back() == '-') return "There is a hyphen in the wrong place after the \"@\".";
        if (!std::all_of(label.begin(), label.end(),
                         [](char c) { return c == '-' || c == '_' || IsLetterOrDigit(c) || IsNonAscii(c); })) {
            return "There is a character after the \"@\" that cannot stand in a domain.";
        }
    }
    return nullptr;
}

const char* FaultOf(std::string_view address) {
    if (address.empty()) return "The address is empty.";
    if (address.size() > LongestAddress) return "The address is longer than 128 characters.";
    if (std::any_of(address.begin(), address.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; })) {
        return "There is a control character in the address.";
    }
    if (!IsValidUtf8(address)) return "The address is not valid UTF-8.";
    std::size_t at = address.find('@');
    if (address.front() == '"') {  // an "@" within the quotes is a character of it
        std::size_t end = 1;
        while (end < address.size() && address[end] != '"')
            end += address[end] == '\\' ? 2 : 1;
        if (end >= address.size()) return "The quotes before the \"@\" do not end.";
        at = address.find('@', end);
        if (at != std::string_view::npos && at != end + 1) return "Something stands between the quotes and the \"@\".";
    }
    if (at == std::string_view::npos) return "There is no \"@\" in the address.";
    if (address.find('@', at + 1) != std::string_view::npos) return "There is more than one \"@\" in the address.";
    if (const char* fault = FaultOfLocalPart(address.substr(0, at))) return fault;
    return FaultOfDomain(address.substr(at + 1));
}

}  // namespace

bool IsPlausibleAddress(std::string_view address, std::string* reason) {
    const char* fault = FaultOf(address);
    if (fault != nullptr && reason != nullptr) *reason = fault;
    return fault == nullptr;
}
