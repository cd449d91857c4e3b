#include "senddaemon/mxrecords.h"

#include "platform/dnsquery.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

// Where the local part ends; a quoted one may hold an "@".
std::size_t FindAt(std::string_view address) {
    std::size_t start = address.starts_with('"') ? 1 : 0;
    while (start > 0 && start < address.size() && address[start] != '"')
        start += address[start] == '\\' ? 2 : 1;
    return address.find('@', start);
}

}  // namespace

std::unique_ptr<CDnsClient> CMxRecordEnumerator::CreateDnsClient(const CDnsSettings& settings) {
    if (Platform::PrefersSystemMailExchangerQuery()) return std::make_unique<DnsQueryDnsClient>();
    return std::make_unique<CatalystDnsClient>(settings);
}

bool CMxRecordEnumerator::GetRecipientDomain(std::string_view recipient, std::string& domain) {
    const std::size_t at = FindAt(recipient);
    if (at != std::string_view::npos) domain = Trim(recipient.substr(at + 1));
    if (at != std::string_view::npos && !domain.empty()) return true;
    SetLastErrorFormat("Invalid email address: %s", std::string(recipient).c_str());
    return false;
}

bool CMxRecordEnumerator::GetMailExchangers(CDnsClient& client, std::string_view recipient,
                                            std::vector<std::string>& hosts) {
    std::string domain;
    return GetRecipientDomain(recipient, domain) && client.GetMailExchangers(domain, hosts);
}

}  // namespace SendDaemon
