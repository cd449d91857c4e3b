#include "senddaemon/dnsclient.h"

#include <algorithm>
#include <utility>

#include "app/datafolder.h"
#include "app/settings.h"
#include "net/dnsanswer.h"
#include "senddaemon/configuration.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::size_t MaxExchangers = 20;  // whoever names more keeps a sender busy for hours

// RFC 5321, 4.1.3: mail for an address literal goes to that host.
bool IsAddressLiteral(std::string_view domain) {
    return domain.size() > 2 && domain.front() == '[' && domain.back() == ']';
}

void Shorten(std::vector<std::string>& hosts) {
    hosts.resize(std::min(hosts.size(), MaxExchangers));
}

std::string TraceFile() {
    if (ReadSetting("Execution", "DebugMode", 0) == 0) return {};
    return JoinPath(GetLogFolder(), "DnsTrace.txt");
}

}  // namespace

bool CDnsSettings::Read(const CConfiguration& config) {
    *this = {};
    std::int32_t number = port;
    if (!config.GetValue("DnsHostAddress", server) || !config.GetNumberWithin("DnsPort", 0, 65535, number) ||
        !config.GetNumberWithin("DnsTimeout", 1, 86400, timeout) ||
        !config.GetNumberWithin("DnsRetries", 0, 100, retries))
        return false;
    server = Trim(server);
    port = static_cast<std::uint16_t>(number);
    return true;
}

bool CDnsClient::Fail(bool isTemporary, const std::string& text) {
    m_isTemporary = isTemporary;
    SetLastErrorText(text);
    return false;
}

Net::Resolver CDnsClient::MakeResolver() {
    return [this](const std::string& host, std::vector<std::string>& addresses, Net::Failure& failure) {
        if (GetAddresses(host, addresses)) return true;
        failure = {IsTemporary() ? Net::FailureKind::NameUnknown : Net::FailureKind::NameNotFound, GetLastErrorText()};
        return false;
    };
}

CatalystDnsClient::CatalystDnsClient(CDnsSettings settings) : m_settings(std::move(settings)) {}

void CatalystDnsClient::Cancel() noexcept {
    m_isCancelled = true;
    m_session.Cancel();
}

bool CatalystDnsClient::FailToConnect() {
    std::string reason = m_session.GetText();
    if (reason.empty()) reason = "Error while enumerating mail exchanges";
    return Fail(true, "Error while connecting to DNS server: " + reason);
}

bool CatalystDnsClient::Connect() {
    if (m_isCancelled) return Fail(true, "User cancel");
    if (m_isOpen) return true;
    Net::DnsOptions options;
    options.server = m_settings.server;
    options.port = m_settings.port;
    options.timeout = std::chrono::seconds(m_settings.timeout);
    options.tries = m_settings.retries + 1;
    options.traceFile = TraceFile();
    m_isOpen = m_session.Open(options);
    return m_isOpen || FailToConnect();
}

// A cancellation that came when nothing ran is not for this question.
template <typename Question>
Net::DnsStatus CatalystDnsClient::Ask(const Question& question) {
    Net::DnsStatus status = question();
    if (status == Net::DnsStatus::Cancelled && !m_isCancelled) status = question();
    return status;
}

bool CatalystDnsClient::FailAs(Net::DnsStatus status) {
    if (status == Net::DnsStatus::Cancelled) return Fail(true, "User cancel");
    if (Net::IsTemporary(status)) return FailToConnect();
    return Fail(false, m_session.GetText());
}

bool CatalystDnsClient::GetMailExchangers(const std::string& domain, std::vector<std::string>& hosts) {
    hosts.clear();
    if (!Connect()) return false;
    if (IsAddressLiteral(domain)) {
        hosts.push_back(domain);
        return true;
    }
    std::vector<Net::MailExchanger> exchangers;
    const auto status = Ask([&] { return m_session.FindMailExchangers(domain, exchangers); });
    if (status == Net::DnsStatus::NoRecords) {
        std::vector<std::string> addresses;
        const auto further = Ask([&] { return m_session.FindAddresses(domain, addresses); });
        if (further == Net::DnsStatus::NoRecords) return Fail(false, "No MX records found");
        if (further != Net::DnsStatus::Found) return FailAs(further);
        hosts.push_back(domain);
        return true;
    }
    if (status != Net::DnsStatus::Found) return FailAs(status);
    for (Net::MailExchanger& one : exchangers)
        hosts.push_back(std::move(one.host));
    Shorten(hosts);
    return true;
}

bool CatalystDnsClient::GetAddresses(const std::string& host, std::vector<std::string>& addresses) {
    addresses.clear();
    if (!Connect()) return false;
    const auto status = Ask([&] { return m_session.FindAddresses(host, addresses); });
    return status == Net::DnsStatus::Found || FailAs(status);
}

DnsQueryDnsClient::DnsQueryDnsClient(Platform::NameServerChoice server)
    : m_server(std::move(server)), m_addresses([this] {
          CDnsSettings settings;
          settings.server = m_server.address;
          settings.port = m_server.address.empty() ? std::uint16_t{0} : m_server.port;
          return settings;
      }()) {}

bool DnsQueryDnsClient::GetMailExchangers(const std::string& domain, std::vector<std::string>& hosts) {
    hosts.clear();
    if (m_isCancelled) return Fail(true, "User cancel");
    if (IsAddressLiteral(domain)) {
        hosts.push_back(domain);
        return true;
    }
    const std::string_view name = std::string_view(domain).substr(0, domain.size() - (domain.ends_with('.') ? 1 : 0));
    if (!Net::IsHostName(name)) return Fail(false, '"' + OneLine(domain) + "\" is not a domain name");
    std::vector<std::string> found;
    Platform::MailExchangerFailure failure;
    if (!Platform::QueryMailExchangers(domain, found, failure, m_server))
        return Fail(failure.isTemporary, failure.text);
    if (found.size() == 1 && found.front().empty())
        return Fail(false, "The domain \"" + domain + "\" takes no mail (null MX)");
    std::erase_if(found, [](const std::string& host) { return !Net::IsHostName(host); });
    if (found.empty()) return Fail(false, "No MX records found");
    hosts = std::move(found);
    Shorten(hosts);
    return true;
}

bool DnsQueryDnsClient::GetAddresses(const std::string& host, std::vector<std::string>& addresses) {
    return m_addresses.GetAddresses(host, addresses) || Fail(m_addresses.IsTemporary(), GetLastErrorText());
}

void DnsQueryDnsClient::Cancel() noexcept {
    m_isCancelled = true;
    m_addresses.Cancel();
}

void DnsQueryDnsClient::AllowAgain() noexcept {
    m_isCancelled = false;
    m_addresses.AllowAgain();
}

}  // namespace SendDaemon
