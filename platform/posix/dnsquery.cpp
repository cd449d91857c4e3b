#include "platform/dnsquery.h"

#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <memory>

namespace Platform {

namespace {

class CResolver {
public:
    CResolver() : m_isReady(res_ninit(&m_state) == 0) {}
    CResolver(const CResolver&) = delete;
    CResolver& operator=(const CResolver&) = delete;
    ~CResolver() {
        if (m_isReady) res_nclose(&m_state);
    }

    bool Choose(const NameServerChoice& server) {
        if (!m_isReady) return false;
        if (server.address.empty()) return true;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(server.port);
        if (inet_pton(AF_INET, server.address.c_str(), &address.sin_addr) != 1) return false;
        m_state.nsaddr_list[0] = address;
        m_state.nscount = 1;
        return true;
    }
    int Query(const std::string& domain, std::vector<unsigned char>& answer) {
        return res_nquery(&m_state, domain.c_str(), ns_c_in, ns_t_mx, answer.data(), static_cast<int>(answer.size()));
    }
    int GetFault() const { return m_state.res_h_errno; }

private:
    struct __res_state m_state {};
    bool m_isReady;
};

bool ReadExchangers(const std::vector<unsigned char>& answer, int length, std::vector<std::string>& hosts) {
    constexpr std::size_t PreferenceSize = 2;
    ns_msg message;
    if (ns_initparse(answer.data(), length, &message) != 0) return false;
    for (int i = 0; i < ns_msg_count(message, ns_s_an); ++i) {
        ns_rr record;
        if (ns_parserr(&message, ns_s_an, i, &record) != 0) return false;
        if (ns_rr_type(record) != ns_t_mx || ns_rr_rdlen(record) <= PreferenceSize) continue;
        char name[NS_MAXDNAME];
        if (ns_name_uncompress(ns_msg_base(message), ns_msg_end(message), ns_rr_rdata(record) + PreferenceSize, name,
                               sizeof(name)) < 0)
            return false;
        const std::string_view host = name;
        hosts.emplace_back(host == "." ? "" : host);
    }
    return true;
}

}  // namespace

bool QueryMailExchangers(const std::string& domain, std::vector<std::string>& hosts, MailExchangerFailure& failure,
                         const NameServerChoice& server) {
    hosts.clear();
    failure = {};
    const auto resolver = std::make_unique<CResolver>();
    if (!resolver->Choose(server)) {
        failure = {"The system's resolver cannot be used", true};
        return false;
    }
    std::vector<unsigned char> answer(65535);
    const int length = resolver->Query(domain, answer);
    if (length < 0) {
        const int fault = resolver->GetFault();
        if (fault == NO_DATA) return true;
        failure = {hstrerror(fault), fault != HOST_NOT_FOUND};
        return false;
    }
    if (ReadExchangers(answer, length, hosts)) return true;
    hosts.clear();
    failure = {"The answer of the name server cannot be read", true};
    return false;
}

bool PrefersSystemMailExchangerQuery() noexcept {
    return false;
}

}  // namespace Platform
