// bounceaddress.h - whom a notice is about, where it says so in free form.

#ifndef LISTHAVEN_ENGINE_BOUNCES_BOUNCEADDRESS_H
#define LISTHAVEN_ENGINE_BOUNCES_BOUNCEADDRESS_H

#include <string>
#include <string_view>
#include <vector>

#include "engine/bounces/noticeparts.h"

struct CFailedAddress {
    std::string address;
    std::size_t position = std::string::npos;  // in the text; npos: it stands elsewhere
};

// Without doubles, at most 100.  What is the sender's own, or a postmaster's, is
// not taken.
std::vector<CFailedAddress> FindFailedAddresses(const CNoticeParts& parts,
                                                const std::vector<std::string>& ownAddresses);

// The addresses of the field in the returned message that are not the list's own.
std::vector<std::string> ReturnedRecipients(const CNoticeParts& parts, const std::vector<std::string>& ownAddresses);

bool IsSystemAddress(std::string_view address) noexcept;  // of a mail system: mailer-daemon, postmaster ...
bool ContainsAddress(const std::vector<std::string>& addresses, std::string_view address) noexcept;

#endif  // LISTHAVEN_ENGINE_BOUNCES_BOUNCEADDRESS_H
