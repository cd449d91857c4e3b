#include "engine/rules/addressmatch.h"

#include <algorithm>

#include "engine/broadcast.h"
#include "engine/datafields.h"
#include "engine/rules/boundedregex.h"
#include "engine/rules/rulematch.h"
#include "engine/rules/wordmatch.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MostShown = 3;

std::string Expanded(std::string entry) {
    ExpandDataFields(&entry, false);
    return entry;
}

// "*@domain", "*@*.domain" for its subdomains, or the address itself.
bool IsListedBy(std::string_view pattern, std::string_view address) {
    if (!pattern.starts_with("*@")) return EqualNoCase(pattern, address);
    const std::size_t at = address.rfind('@');
    if (at == std::string_view::npos) return false;
    if (!pattern.starts_with("*@*.")) return EqualNoCase(pattern.substr(1), address.substr(at));
    const std::string_view domain = address.substr(at + 1);
    const std::string_view end = pattern.substr(3);  // with the dot
    return domain.size() > end.size() && EqualNoCase(domain.substr(domain.size() - end.size()), end);
}

// "a member (regular)", "" when there is no such member or the rule does not admit it.
std::string DescribeMember(const RuleMembers& members, std::string_view address, AllowedSenders allowed,
                           IListView& list) {
    if (!members.subscribers) return "";
    CMember member;
    if (list.FindMember(address, member) && AdmitsMode(members, member.mode))
        return "is a member (" + std::string(DeliveryModeName(member.mode)) + ")";
    if (allowed == AllowedSenders::CountAsMembers && list.CheckAccess(address) == Access::Allowed)
        return "is allowed by the access list";
    return "";
}

std::string DescribeMiss(const std::vector<std::string>& entries, const RuleAddressOptions& options,
                         std::span<const CMailbox> addresses) {
    if (addresses.empty()) return "the message names no address";
    std::string why;
    for (const CMailbox& mailbox : addresses.first(std::min(addresses.size(), MostShown)))
        why.append(why.empty() ? "" : ", ").append(OneLine(mailbox.address));
    if (addresses.size() > MostShown) why += " ...";
    why += addresses.size() == 1 ? " is " : ": ";
    if (options.members.subscribers)
        return why + (entries.empty() ? "no member whom the rule admits"
                                      : "neither listed nor a member whom the rule admits");
    if (entries.empty()) return why + "not listed, for the rule lists nobody";
    std::string listed;
    for (std::size_t i = 0; i < std::min(entries.size(), MostShown); ++i)
        listed.append(i == 0 ? "" : ", ").append(Expanded(entries[i]));
    return why + "not among " + OneLine(listed) + (entries.size() > MostShown ? " ..." : "");
}

}  // namespace

std::vector<std::string> OwnAddresses(const BroadcastList& list) {
    std::vector<std::string> addresses;
    for (const std::string& address : {list.address, list.commandAddress, list.postAddress}) {
        if (!address.empty() && !IsOneOf(addresses, address)) addresses.push_back(address);
    }
    return addresses;
}

bool IsOneOf(const std::vector<std::string>& addresses, std::string_view address) {
    return std::any_of(addresses.begin(), addresses.end(),
                       [&](const std::string& own) { return EqualNoCase(own, address); });
}

bool AdmitsMode(const RuleMembers& members, DeliveryMode mode) noexcept {
    return members.subscribers && (mode == DeliveryMode::Digest ? members.digestOnly : members.regular);
}

std::string FindListedAddress(const std::vector<std::string>& entries, bool isRegex, std::string_view address) {
    for (const std::string& entry : entries) {
        if (isRegex) {
            const std::string expression = ExpandExpression(entry);
            if (!expression.empty() && MatchWholeText(address, expression, PatternCase::Ignored)) return expression;
            continue;
        }
        for (const CMailbox& mailbox : ParseMailboxes(Expanded(entry))) {
            if (IsListedBy(mailbox.address, address)) return mailbox.address;
        }
    }
    return "";
}

bool MatchAddresses(const std::vector<std::string>& entries, const RuleAddressOptions& options,
                    std::span<const CMailbox> addresses, AllowedSenders allowed, IListView& list, std::string& why) {
    for (const CMailbox& mailbox : addresses) {
        const std::string listed = FindListedAddress(entries, options.regex, mailbox.address);
        const std::string member =
            listed.empty() ? DescribeMember(options.members, mailbox.address, allowed, list) : std::string();
        if (listed.empty() && member.empty()) continue;
        why = OneLine(mailbox.address) + " " + member;
        if (!listed.empty())
            why += EqualNoCase(listed, mailbox.address) ? "is listed" : "is listed by " + OneLine(listed);
        return true;
    }
    why = DescribeMiss(entries, options, addresses);
    return false;
}
