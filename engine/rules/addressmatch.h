// addressmatch.h - the addresses of a rule.
//
// An entry is one or more addresses, "*@domain" for every address of a domain,
// "*@*.domain" for those of its subdomains, or a regular expression for the
// whole of an address; case of A-Z does not count.  Data fields in entries are
// expanded, in expressions to what matches their value literally.
//
// Errors   CLhvException from the view.
// Threads  One at a time in the process: data fields are shared.

#ifndef LISTHAVEN_ENGINE_RULES_ADDRESSMATCH_H
#define LISTHAVEN_ENGINE_RULES_ADDRESSMATCH_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/member.h"
#include "engine/rules/messagerule.h"
#include "mime/mailbox.h"

class IListView;
struct BroadcastList;

// List, command and posting address: mail from these is the list's own.
std::vector<std::string> OwnAddresses(const BroadcastList& list);
bool IsOneOf(const std::vector<std::string>& addresses, std::string_view address);

bool AdmitsMode(const RuleMembers& members, DeliveryMode mode) noexcept;

// The entry that the address is listed by; "" when it is not listed.
std::string FindListedAddress(const std::vector<std::string>& entries, bool isRegex, std::string_view address);

enum class AllowedSenders : std::uint8_t { NoMembers, CountAsMembers };  // those whom the access list allows

// One of the addresses is listed, or a member's whom the options admit.  why:
// one sentence for people, in either case.
bool MatchAddresses(const std::vector<std::string>& entries, const RuleAddressOptions& options,
                    std::span<const CMailbox> addresses, AllowedSenders allowed, IListView& list, std::string& why);

#endif  // LISTHAVEN_ENGINE_RULES_ADDRESSMATCH_H
