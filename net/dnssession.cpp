#include "net/dnssession.h"

#include <ares.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/ip/tcp.hpp>  // on Windows its initialiser starts the sockets, which c-ares does not
#include <span>
#include <utility>

#include "net/dnsanswer.h"
#include "net/protocoltrace.h"
#include "platform/guid.h"
#include "platform/socketwait.h"
#include "utility/text.h"

namespace Net {

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr int ClassInternet = 1;
constexpr int TypeA = 1;
constexpr int TypeMx = 15;
constexpr int TypeAaaa = 28;
constexpr std::uint16_t UsualPort = 53;
constexpr int MaxTries = 10;
constexpr Milliseconds ShortestTry{100};
constexpr Milliseconds LongestTimeout{3600000};
constexpr Milliseconds CancelDelay{20};  // how late Cancel() is noticed

bool IsLibraryReady() {
    static const int status = ares_library_init(ARES_LIB_INIT_ALL);
    return status == ARES_SUCCESS;
}

struct CAnswer {
    bool isPending = true;
    int status = ARES_ECANCELLED;
    std::vector<unsigned char> bytes;
};

extern "C" void StoreAnswer(void* to, int status, int /*timeouts*/, unsigned char* bytes, int length) {
    CAnswer& answer = *static_cast<CAnswer*>(to);
    answer.isPending = false;
    answer.status = status;
    if (bytes && length > 0) answer.bytes.assign(bytes, bytes + length);
}

DnsStatus ToStatus(int status) noexcept {
    switch (status) {
        case ARES_SUCCESS:
            return DnsStatus::Found;
        case ARES_ENODATA:
            return DnsStatus::NoRecords;
        case ARES_ENOTFOUND:
            return DnsStatus::NoName;
        case ARES_ETIMEOUT:
            return DnsStatus::TimedOut;
        case ARES_EBADNAME:
            return DnsStatus::Invalid;
        case ARES_ECANCELLED:
            return DnsStatus::Cancelled;
        default:
            return DnsStatus::ServerFailed;
    }
}

// Of two answers: what was found counts; else what does not yet say no.
DnsStatus Combine(DnsStatus first, DnsStatus second) noexcept {
    if (first == DnsStatus::Found || second == DnsStatus::Found) return DnsStatus::Found;
    if (IsTemporary(first)) return first;
    return IsTemporary(second) || first == DnsStatus::NoRecords ? second : first;
}

std::string DescribeExchangers(const std::vector<MailExchanger>& exchangers) {
    std::vector<std::string> texts;
    for (const MailExchanger& one : exchangers)
        texts.push_back(std::to_string(one.preference) + ' ' + one.host);
    return Join(texts, ", ");
}

// A question as the texts and the trace speak of it.
struct CQuestion {
    std::string kind;  // "MX"
    std::string name;
    std::string what;  // "mail exchangers"
    Clock::time_point start = Clock::now();
    int fault = ARES_SUCCESS;  // c-ares' word for what failed
};

}  // namespace

bool IsTemporary(DnsStatus status) noexcept {
    return status == DnsStatus::TimedOut || status == DnsStatus::ServerFailed || status == DnsStatus::Cancelled;
}

struct CDnsSession::CState {
    DnsOptions options;
    ares_channel channel = nullptr;
    std::string servers;  // for texts
    std::string text;
    CProtocolTrace trace;
    std::atomic<bool> ownFlag = false;
    std::atomic<bool>* isCancelled = &ownFlag;

    ~CState() { Close(); }
    void Close() noexcept;
    bool Fail(std::string reason);
    bool Open(const DnsOptions& wanted);
    bool MakeChannel();
    bool FindServer(std::vector<std::string>& addresses);
    bool ChooseServer();

    DnsStatus Prepare(std::string_view name, CQuestion& question);
    DnsStatus Ask(const CQuestion& question, int type, CAnswer& answer);
    void Wait(Clock::time_point end);
    DnsStatus AskForAddresses(CQuestion& question, std::vector<std::string>& addresses);
    bool ReadHostsFile(const std::string& host, std::vector<std::string>& addresses) const;
    DnsStatus FindAddresses(std::string_view host, std::vector<std::string>& addresses);
    DnsStatus Conclude(DnsStatus status, const CQuestion& question, const std::string& found);
    std::string Explain(DnsStatus status, const CQuestion& question) const;
};

void CDnsSession::CState::Close() noexcept {
    if (channel) ares_destroy(std::exchange(channel, nullptr));
    trace.Close();
}

bool CDnsSession::CState::Fail(std::string reason) {
    text = std::move(reason);
    Close();
    return false;
}

bool CDnsSession::CState::Open(const DnsOptions& wanted) {
    Close();
    options = wanted;
    options.timeout = std::clamp(options.timeout, Milliseconds(1), LongestTimeout);
    text.clear();
    if (!IsLibraryReady() || !MakeChannel()) return Fail("The DNS library cannot be used");
    if (!options.server.empty() && !ChooseServer()) return false;
    if (options.server.empty()) servers = "the system's name server";
    trace.Open(options.traceFile);
    return true;
}

// c-ares waits twice as long with each try; all of them are to fit the limit.
bool CDnsSession::CState::MakeChannel() {
    const int tries = std::clamp(options.tries, 1, MaxTries);
    const Milliseconds first = std::max(options.timeout / ((1 << tries) - 1), ShortestTry);
    ares_options settings{};
    // The word of the one server is wanted: c-ares takes SERVFAIL and REFUSED
    // for a lost server.  Of several the next one may know.
    settings.flags = ARES_FLAG_NOSEARCH | ARES_FLAG_NOALIASES | (options.server.empty() ? 0 : ARES_FLAG_NOCHECKRESP);
    settings.timeout = static_cast<int>(first.count());
    settings.tries = tries;
    return ares_init_options(&channel, &settings, ARES_OPT_FLAGS | ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES) == ARES_SUCCESS;
}

bool CDnsSession::CState::FindServer(std::vector<std::string>& addresses) {
    std::string address;
    if (ParseHostAddress(options.server, address)) {
        addresses.push_back(address);
        return true;
    }
    CState system;
    system.isCancelled = isCancelled;
    if (system.Open({.server = {}, .port = 0, .timeout = options.timeout, .tries = options.tries, .traceFile = {}}) &&
        system.FindAddresses(options.server, addresses) == DnsStatus::Found)
        return true;
    return Fail(system.text);
}

bool CDnsSession::CState::ChooseServer() {
    std::vector<std::string> addresses;
    if (!FindServer(addresses)) return false;
    const std::string port = std::to_string(options.port ? options.port : UsualPort);
    for (std::string& one : addresses)
        one = (one.find(':') == std::string::npos ? one : '[' + one + ']') + ':' + port;
    servers = Join(addresses, ",");
    if (ares_set_servers_ports_csv(channel, servers.c_str()) == ARES_SUCCESS) return true;
    return Fail("\"" + OneLine(servers) + "\" cannot be used as name server");
}

DnsStatus CDnsSession::CState::Prepare(std::string_view name, CQuestion& question) {
    if (name.ends_with('.')) name.remove_suffix(1);
    question.name = OneLine(name);
    if (!IsHostName(name)) return DnsStatus::Invalid;
    return channel ? DnsStatus::Found : DnsStatus::ServerFailed;
}

// One round: as long as something can be read or written, or a try is over.
void CDnsSession::CState::Wait(Clock::time_point end) {
    std::array<ares_socket_t, ARES_GETSOCK_MAXNUM> sockets{};
    const auto bits = static_cast<unsigned>(ares_getsock(channel, sockets.data(), ARES_GETSOCK_MAXNUM));
    std::vector<Platform::SocketWatch> watches;
    for (unsigned i = 0; i < ARES_GETSOCK_MAXNUM; ++i) {
        const bool wantsRead = ARES_GETSOCK_READABLE(bits, i) != 0;
        const bool wantsWrite = (bits >> (i + ARES_GETSOCK_MAXNUM) & 1u) != 0;
        if (!wantsRead && !wantsWrite) continue;
        Platform::SocketWatch watch;
        watch.socket = static_cast<Platform::SocketHandle>(sockets[i]);
        watch.wantsRead = wantsRead;
        watch.wantsWrite = wantsWrite;
        watches.push_back(watch);
    }
    const auto left = std::chrono::ceil<Milliseconds>(end - Clock::now());
    Platform::WaitForSockets(watches, std::clamp(left, Milliseconds(0), CancelDelay));
    for (const Platform::SocketWatch& watch : watches) {
        const auto socket = static_cast<ares_socket_t>(watch.socket);
        if (watch.canRead || watch.canWrite)
            ares_process_fd(channel, watch.canRead ? socket : ARES_SOCKET_BAD,
                            watch.canWrite ? socket : ARES_SOCKET_BAD);
    }
    ares_process_fd(channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);  // tries that are over
}

DnsStatus CDnsSession::CState::Ask(const CQuestion& question, int type, CAnswer& answer) {
    const Clock::time_point end = question.start + options.timeout;
    ares_query(channel, question.name.c_str(), ClassInternet, type, StoreAnswer, &answer);
    while (answer.isPending) {
        const bool isLate = Clock::now() >= end;
        if (!isLate && !*isCancelled) {
            Wait(end);
            continue;
        }
        ares_cancel(channel);
        answer.status = isLate ? ARES_ETIMEOUT : ARES_ECANCELLED;
        answer.isPending = false;
    }
    return isCancelled->exchange(false) ? DnsStatus::Cancelled : ToStatus(answer.status);
}

DnsStatus CDnsSession::CState::AskForAddresses(CQuestion& question, std::vector<std::string>& addresses) {
    CAnswer answer;
    DnsStatus first = Ask(question, TypeA, answer);
    if (first == DnsStatus::Found) first = ReadIpv4Addresses(answer.bytes, addresses);
    question.fault = answer.status;
    // What a name has of one kind does not matter when it does not exist, or
    // when nobody answers.
    if (first != DnsStatus::Found && first != DnsStatus::NoRecords) return first;
    CAnswer further;
    DnsStatus second = Ask(question, TypeAaaa, further);
    if (second == DnsStatus::Found) second = ReadIpv6Addresses(further.bytes, addresses);
    if (first != DnsStatus::Found) question.fault = further.status;
    return second == DnsStatus::Cancelled ? second : Combine(first, second);
}

bool CDnsSession::CState::ReadHostsFile(const std::string& host, std::vector<std::string>& addresses) const {
    using Tcp = boost::asio::ip::tcp;
    for (const int family : {Tcp::v4().family(), Tcp::v6().family()}) {
        hostent* found = nullptr;
        if (ares_gethostbyname_file(channel, host.c_str(), family, &found) != ARES_SUCCESS) continue;
        for (char** one = found->h_addr_list; one && *one; ++one) {
            std::array<char, 64> address{};
            if (ares_inet_ntop(family, *one, address.data(), address.size())) addresses.emplace_back(address.data());
        }
        ares_free_hostent(found);
    }
    return !addresses.empty();
}

// Name servers need not know it (RFC 6761, 6.3), and Windows has no line for it
// in its hosts file.
bool IsThisHost(std::string_view host, std::vector<std::string>& addresses) {
    if (!EqualNoCase(host, "localhost")) return false;
    addresses = {"127.0.0.1", "::1"};
    return true;
}

DnsStatus CDnsSession::CState::FindAddresses(std::string_view host, std::vector<std::string>& addresses) {
    addresses.clear();
    std::string address;
    if (ParseHostAddress(host, address)) {
        addresses.push_back(address);
        return DnsStatus::Found;
    }
    CQuestion question{.kind = "A", .name = {}, .what = "addresses"};
    DnsStatus status = Prepare(host, question);
    const auto isKnownHere = [&] {
        return options.server.empty() &&
               (ReadHostsFile(question.name, addresses) || IsThisHost(question.name, addresses));
    };
    if (status == DnsStatus::Found && !isKnownHere()) status = AskForAddresses(question, addresses);
    if (status != DnsStatus::Found) addresses.clear();
    return Conclude(status, question, Join(addresses, ", "));
}

std::string CDnsSession::CState::Explain(DnsStatus status, const CQuestion& question) const {
    switch (status) {
        case DnsStatus::Found:
            return {};
        case DnsStatus::NoName:
            return "There is no domain \"" + question.name + "\"";
        case DnsStatus::NoRecords:
            return "\"" + question.name + "\" has no " + question.what;
        case DnsStatus::NullMx:
            return "The domain \"" + question.name + "\" takes no mail (null MX)";
        case DnsStatus::TimedOut:
            return servers + " does not answer";
        case DnsStatus::Invalid:
            return "\"" + question.name + "\" is not a domain name";
        case DnsStatus::Cancelled:
            return "Cancelled";
        case DnsStatus::ServerFailed:
            break;
    }
    if (!channel) return "No name server has been chosen";
    if (question.fault == ARES_SUCCESS) return servers + " gave an answer for \"" + question.name + "\" without sense";
    return servers + ": " + ares_strerror(question.fault);
}

DnsStatus CDnsSession::CState::Conclude(DnsStatus status, const CQuestion& question, const std::string& found) {
    text = Explain(status, question);
    if (trace.IsOn()) {
        const auto time = std::chrono::duration_cast<Milliseconds>(Clock::now() - question.start);
        trace.Happened(question.kind + ' ' + question.name + " @" + servers + ": " +
                       (status == DnsStatus::Found ? found : text) + " (" + std::to_string(time.count()) + " ms)");
    }
    return status;
}

CDnsSession::CDnsSession() : m_state(std::make_unique<CState>()) {}
CDnsSession::~CDnsSession() = default;

bool CDnsSession::Open(const DnsOptions& options) {
    return m_state->Open(options);
}

DnsStatus CDnsSession::FindMailExchangers(std::string_view domain, std::vector<MailExchanger>& exchangers) {
    exchangers.clear();
    CQuestion question{.kind = "MX", .name = {}, .what = "mail exchangers"};
    DnsStatus status = m_state->Prepare(domain, question);
    CAnswer answer;
    if (status == DnsStatus::Found) {
        status = m_state->Ask(question, TypeMx, answer);
        question.fault = answer.status;
    }
    if (status == DnsStatus::Found) status = ReadExchangers(answer.bytes, exchangers);
    if (status == DnsStatus::Found) status = ArrangeExchangers(exchangers, Platform::RandomNumber());
    if (status != DnsStatus::Found) exchangers.clear();
    return m_state->Conclude(status, question, DescribeExchangers(exchangers));
}

DnsStatus CDnsSession::FindAddresses(std::string_view host, std::vector<std::string>& addresses) {
    return m_state->FindAddresses(host, addresses);
}

void CDnsSession::Close() noexcept {
    m_state->Close();
}

void CDnsSession::Cancel() noexcept {
    *m_state->isCancelled = true;
}

std::string CDnsSession::GetText() const {
    return m_state->text;
}

}  // namespace Net
