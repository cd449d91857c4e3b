#include "net/systemnames.h"

#include <mutex>

#include "net/dnssession.h"

namespace Net {
namespace {

Failure Explain(DnsStatus status, const std::string& host, const std::string& reason) {
    const std::string end = reason.empty() ? "" : ": " + reason;
    switch (status) {
        case DnsStatus::Cancelled:
            return {FailureKind::Cancelled, "Cancelled"};
        case DnsStatus::NoName:
        case DnsStatus::NoRecords:
            return {FailureKind::NameNotFound, "There is no host \"" + host + "\"" + end};
        case DnsStatus::Invalid:
            return {FailureKind::NameNotFound, "\"" + host + "\" is not the name of a host" + end};
        default:
            return {FailureKind::NameUnknown, "The address of \"" + host + "\" could not be found out" + end};
    }
}

}  // namespace

struct CSystemNames::CState {
    std::mutex mutex;
    CDnsSession* running = nullptr;
};

CSystemNames::CSystemNames() : m_state(std::make_unique<CState>()) {}
CSystemNames::~CSystemNames() = default;

bool CSystemNames::Find(const std::string& host, std::chrono::milliseconds limit, const std::atomic<bool>& isCancelled,
                        std::vector<std::string>& addresses, Failure& failure) {
    CDnsSession session;
    DnsOptions options;
    options.timeout = limit;
    if (!session.Open(options)) {
        failure = Explain(DnsStatus::ServerFailed, host, session.GetText());
        return false;
    }
    {
        const std::lock_guard guard(m_state->mutex);
        m_state->running = &session;
    }
    const DnsStatus status = isCancelled ? DnsStatus::Cancelled : session.FindAddresses(host, addresses);
    {
        const std::lock_guard guard(m_state->mutex);
        m_state->running = nullptr;
    }
    if (status == DnsStatus::Found && !addresses.empty()) return true;
    failure = Explain(status == DnsStatus::Found ? DnsStatus::NoRecords : status, host, session.GetText());
    return false;
}

void CSystemNames::Cancel() noexcept {
    const std::lock_guard guard(m_state->mutex);
    if (m_state->running) m_state->running->Cancel();
}

}  // namespace Net
