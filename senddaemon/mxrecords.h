// mxrecords.h - from a recipient to the mail exchangers of his domain.
//
// Errors   false, with the reason in the last-error text.
// Threads  Any.

#ifndef LISTHAVEN_SENDDAEMON_MXRECORDS_H
#define LISTHAVEN_SENDDAEMON_MXRECORDS_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "senddaemon/dnsclient.h"

namespace SendDaemon {

class CMxRecordEnumerator {
public:
    // The system's own client where the system is known to have a good one
    // (Platform::PrefersSystemMailExchangerQuery()): it then asks the system's
    // servers, whatever the account says.
    static std::unique_ptr<CDnsClient> CreateDnsClient(const CDnsSettings& settings);

    // What follows the "@" of the bare address, without blanks around it.
    // Fails with "Invalid email address: ..." when there is none.
    static bool GetRecipientDomain(std::string_view recipient, std::string& domain);

    static bool GetMailExchangers(CDnsClient& client, std::string_view recipient, std::vector<std::string>& hosts);
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_MXRECORDS_H
