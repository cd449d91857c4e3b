#include "platform/dnsquery.h"

#include <winsock2.h>
//
#include <windns.h>
#include <windows.h>
#include <ws2tcpip.h>

#include "platform/systemerror.h"

namespace Platform {

namespace {

// Loaded when first needed; never given back.
struct Library {
    using FreeCall = void(WINAPI*)(PDNS_RECORD, DNS_FREE_TYPE);

    decltype(&::DnsQuery_A) query = nullptr;
    FreeCall free = nullptr;
    SystemError fault = 0;

    Library() {
        const HMODULE module = LoadLibraryExW(L"dnsapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        if (module) {
            query = reinterpret_cast<decltype(query)>(reinterpret_cast<void*>(GetProcAddress(module, "DnsQuery_A")));
            free = reinterpret_cast<FreeCall>(reinterpret_cast<void*>(GetProcAddress(module, "DnsRecordListFree")));
        }
        if (!query || !free) fault = LastSystemError();
    }
};

const Library& TheLibrary() {
    static const Library* const library = new Library;
    return *library;
}

struct CRecords {
    PDNS_RECORD list = nullptr;

    CRecords() = default;
    CRecords(const CRecords&) = delete;
    CRecords& operator=(const CRecords&) = delete;
    ~CRecords() {
        if (list) TheLibrary().free(list, DnsFreeRecordList);
    }
};

// The same question gets the same answer later.
bool IsFinal(DNS_STATUS status) {
    return status == DNS_ERROR_RCODE_NAME_ERROR || status == DNS_ERROR_INVALID_NAME_CHAR ||
           status == DNS_ERROR_INVALID_NAME || status == ERROR_INVALID_NAME;
}

std::string Describe(DNS_STATUS status) {
    if (status == DNS_ERROR_RCODE_NAME_ERROR) return "The domain name does not exist";  // said more clearly
    return SystemErrorText(static_cast<SystemError>(status));
}

}  // namespace

bool QueryMailExchangers(const std::string& domain, std::vector<std::string>& hosts, MailExchangerFailure& failure,
                         const NameServerChoice& server) {
    hosts.clear();
    failure = {};
    const Library& library = TheLibrary();
    if (library.fault != 0) {
        failure = {SystemErrorText(library.fault), true};
        return false;
    }
    IP4_ARRAY servers{1, {0}};
    DWORD options = DNS_QUERY_STANDARD;
    if (!server.address.empty()) {
        constexpr std::uint16_t OnlyPort = 53;
        if (server.port != OnlyPort || InetPtonA(AF_INET, server.address.c_str(), servers.AddrArray) != 1) {
            failure = {"The system's resolver cannot ask " + server.address + ':' + std::to_string(server.port), true};
            return false;
        }
        options = DNS_QUERY_BYPASS_CACHE;
    }
    CRecords records;
    const DNS_STATUS status = library.query(domain.c_str(), DNS_TYPE_MX, options,
                                            server.address.empty() ? nullptr : &servers, &records.list, nullptr);
    if (status == DNS_INFO_NO_RECORDS) return true;
    if (status != 0) {
        failure = {Describe(status), !IsFinal(status)};
        return false;
    }
    for (const DNS_RECORDA* record = reinterpret_cast<DNS_RECORDA*>(records.list); record; record = record->pNext) {
        if (record->wType != DNS_TYPE_MX || record->Flags.S.Section != DnsSectionAnswer) continue;
        std::string host = record->Data.MX.pNameExchange ? record->Data.MX.pNameExchange : "";
        if (host.ends_with('.')) host.pop_back();
        hosts.push_back(std::move(host));
    }
    return true;
}

// Wine's resolver refuses every answer that holds an MX record (DNS_ERROR_BAD_PACKET).
bool PrefersSystemMailExchangerQuery() noexcept {
    static const bool isWine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    return !isWine;
}

}  // namespace Platform
