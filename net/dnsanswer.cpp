#include "net/dnsanswer.h"

#include <ares.h>

#include <algorithm>
#include <array>
#include <boost/asio/ip/address.hpp>
#include <cctype>
#include <cstring>
#include <memory>
#include <random>
#include <utility>

#include "utility/text.h"

namespace Net {

namespace {

namespace Ip = boost::asio::ip;

constexpr int MaxAddresses = 32;  // of one kind

struct CAresFree {
    void operator()(void* data) const noexcept { ares_free_data(data); }
};

bool IsLabel(std::string_view label) noexcept {
    const auto isGood = [](unsigned char c) { return c < 0x80 && (std::isalnum(c) || c == '-' || c == '_'); };
    return !label.empty() && label.size() <= 63 && std::all_of(label.begin(), label.end(), isGood);
}

DnsStatus ParseStatus(int status) noexcept {
    if (status == ARES_SUCCESS) return DnsStatus::Found;
    return status == ARES_ENODATA ? DnsStatus::NoRecords : DnsStatus::ServerFailed;
}

template <typename Address, typename Record>
std::string AddressText(const Record& record) {
    typename Address::bytes_type bytes;
    std::memcpy(bytes.data(), &record, bytes.size());  // the address stands first in it
    return Address(bytes).to_string();
}

template <typename Address, typename Record, typename Parse>
DnsStatus ReadAddresses(std::span<const unsigned char> answer, Parse parse, std::vector<std::string>& addresses) {
    std::array<Record, MaxAddresses> records{};
    int count = MaxAddresses;
    const int status = parse(answer.data(), static_cast<int>(answer.size()), nullptr, records.data(), &count);
    if (status != ARES_SUCCESS) return ParseStatus(status);
    for (int i = 0; i < count; ++i)
        addresses.push_back(AddressText<Address>(records[static_cast<std::size_t>(i)]));
    return count > 0 ? DnsStatus::Found : DnsStatus::NoRecords;
}

}  // namespace

bool IsHostName(std::string_view name) noexcept {
    if (name.empty() || name.size() > 253) return false;
    for (std::size_t start = 0; start <= name.size();) {
        const std::size_t end = std::min(name.find('.', start), name.size());
        if (!IsLabel(name.substr(start, end - start))) return false;
        start = end + 1;
    }
    return true;
}

bool ParseHostAddress(std::string_view text, std::string& address) {
    if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
        text = text.substr(1, text.size() - 2);
        if (StartsWithNoCase(text, "IPv6:")) text.remove_prefix(5);
    }
    boost::system::error_code fault;
    const Ip::address parsed = Ip::make_address(std::string(text), fault);
    if (fault || text.find('\0') != std::string_view::npos) return false;
    address = parsed.to_string();
    return true;
}

DnsStatus ReadExchangers(std::span<const unsigned char> answer, std::vector<MailExchanger>& exchangers) {
    ares_mx_reply* records = nullptr;
    const int status = ares_parse_mx_reply(answer.data(), static_cast<int>(answer.size()), &records);
    const std::unique_ptr<void, CAresFree> owner(records);
    if (status != ARES_SUCCESS) return ParseStatus(status);
    for (const ares_mx_reply* record = records; record; record = record->next) {
        std::string_view host = record->host;
        if (host.ends_with('.')) host.remove_suffix(1);
        exchangers.push_back({record->priority, std::string(host)});
    }
    return exchangers.empty() ? DnsStatus::NoRecords : DnsStatus::Found;
}

DnsStatus ReadIpv4Addresses(std::span<const unsigned char> answer, std::vector<std::string>& addresses) {
    return ReadAddresses<Ip::address_v4, ares_addrttl>(answer, ares_parse_a_reply, addresses);
}

DnsStatus ReadIpv6Addresses(std::span<const unsigned char> answer, std::vector<std::string>& addresses) {
    return ReadAddresses<Ip::address_v6, ares_addr6ttl>(answer, ares_parse_aaaa_reply, addresses);
}

DnsStatus ArrangeExchangers(std::vector<MailExchanger>& exchangers, std::uint32_t seed) {
    if (std::all_of(exchangers.begin(), exchangers.end(), [](const auto& one) { return one.host.empty(); }))
        return exchangers.empty() ? DnsStatus::NoRecords : DnsStatus::NullMx;
    std::minstd_rand random(seed);
    std::shuffle(exchangers.begin(), exchangers.end(), random);
    std::stable_sort(exchangers.begin(), exchangers.end(),
                     [](const auto& a, const auto& b) { return a.preference < b.preference; });
    std::vector<MailExchanger> kept;
    for (MailExchanger& one : exchangers) {
        const auto isSame = [&](const MailExchanger& other) { return EqualNoCase(one.host, other.host); };
        if (IsHostName(one.host) && std::none_of(kept.begin(), kept.end(), isSame)) kept.push_back(std::move(one));
    }
    exchangers = std::move(kept);
    return exchangers.empty() ? DnsStatus::ServerFailed : DnsStatus::Found;
}

}  // namespace Net
