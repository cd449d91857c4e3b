#include "net/tlscontext.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <boost/asio/ip/address.hpp>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "net/smtpgrammar.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/text.h"

namespace Net {
namespace {

template <auto Free>
struct CFree {
    template <class T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};
using ContextPointer = std::unique_ptr<SSL_CTX, CFree<SSL_CTX_free>>;
using CertificatePointer = std::unique_ptr<X509, CFree<X509_free>>;
using NamesPointer = std::unique_ptr<GENERAL_NAMES, CFree<GENERAL_NAMES_free>>;

struct CTrusted {
    ContextPointer context;
    std::uint64_t size = 0;
    std::int64_t modified = 0;
};

std::string LastTlsError() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (ERR_SYSTEM_ERROR(code))
        return Platform::SystemErrorText(static_cast<Platform::SystemError>(ERR_GET_REASON(code)));
    const char* reason = code ? ERR_reason_error_string(code) : nullptr;
    return reason ? reason : "unknown error";
}

ContextPointer MakeContext(const std::string& caFile, std::string& error) {
    ERR_clear_error();
    ContextPointer context(SSL_CTX_new(TLS_client_method()));
    if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1) {
        error = "TLS cannot be used: " + LastTlsError();
        return nullptr;
    }
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    const int loaded = caFile.empty() ? SSL_CTX_set_default_verify_paths(context.get())
                                      : SSL_CTX_load_verify_file(context.get(), caFile.c_str());
    if (loaded == 1) return context;
    error = "The certificates to be trusted cannot be read from " +
            (caFile.empty() ? std::string("where the system keeps them") : caFile) + ": " + LastTlsError();
    return nullptr;
}

// nullptr: see error.  The reference is the caller's.
ContextPointer FindContext(const std::string& caFile, std::string& error) {
    static std::mutex mutex;
    static std::map<std::string, CTrusted> all;

    Platform::FileStatus status;
    if (!caFile.empty()) Platform::GetFileStatus(caFile, status);
    const std::lock_guard guard(mutex);
    CTrusted& trusted = all[caFile];
    if (!trusted.context || trusted.size != status.size || trusted.modified != status.times.modified) {
        ContextPointer fresh = MakeContext(caFile, error);
        if (!fresh) return nullptr;
        trusted = {std::move(fresh), status.size, status.times.modified};
    }
    SSL_CTX_up_ref(trusted.context.get());
    return ContextPointer(trusted.context.get());
}

bool IsAddress(const std::string& host) {
    boost::system::error_code error;
    boost::asio::ip::make_address(host, error);
    return !error;
}

std::string TextOf(const X509_NAME* name) {
    const std::unique_ptr<BIO, CFree<BIO_free_all>> memory(BIO_new(BIO_s_mem()));
    if (!memory || X509_NAME_print_ex(memory.get(), name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB) < 0) return {};
    char* bytes = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &bytes);
    return CleanReplyText(std::string_view(bytes, size > 0 ? static_cast<std::size_t>(size) : 0), 256);
}

std::string TimeOf(const ASN1_TIME* time) {
    std::tm utc{};
    if (ASN1_TIME_to_tm(time, &utc) != 1) return "an unknown time";
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &utc));
}

void AddName(const GENERAL_NAME* name, std::vector<std::string>& names) {
    if (name->type == GEN_DNS)
        names.push_back(
            CleanReplyText(std::string_view(reinterpret_cast<const char*>(ASN1_STRING_get0_data(name->d.dNSName)),
                                            static_cast<std::size_t>(ASN1_STRING_length(name->d.dNSName))),
                           128));
    if (name->type != GEN_IPADD) return;
    const unsigned char* bytes = ASN1_STRING_get0_data(name->d.iPAddress);
    boost::asio::ip::address_v4::bytes_type v4;
    boost::asio::ip::address_v6::bytes_type v6;
    const auto size = static_cast<std::size_t>(ASN1_STRING_length(name->d.iPAddress));
    if (size == v4.size()) {
        std::copy_n(bytes, size, v4.begin());
        names.push_back(boost::asio::ip::address_v4(v4).to_string());
    } else if (size == v6.size()) {
        std::copy_n(bytes, size, v6.begin());
        names.push_back(boost::asio::ip::address_v6(v6).to_string());
    }
}

// Of whom it is; at most three names.
std::string NamesOf(const X509* certificate) {
    std::vector<std::string> names;
    const NamesPointer others(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; others && i < sk_GENERAL_NAME_num(others.get()) && names.size() < 4; ++i)
        AddName(sk_GENERAL_NAME_value(others.get(), i), names);
    if (names.empty()) return TextOf(X509_get_subject_name(certificate));
    if (names.size() > 3) names[3] = "others";
    return Join(names, ", ");
}

std::string Explain(long verdict, const X509* certificate, const std::string& host) {
    switch (verdict) {
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return "the certificate is for " + NamesOf(certificate) + ", not for " + host;
        case X509_V_ERR_CERT_HAS_EXPIRED: {
            // The one that has expired may be an authority's.
            const ASN1_TIME* until = X509_get0_notAfter(certificate);
            return X509_cmp_current_time(until) < 0 ? "the certificate has expired on " + TimeOf(until)
                                                    : std::string("the certificate of its issuer has expired");
        }
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return "the certificate is valid only from " + TimeOf(X509_get0_notBefore(certificate)) + " on";
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
            return "the certificate is signed by itself and not trusted here (" + NamesOf(certificate) + ")";
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
            return "the issuer of the certificate is not trusted here (" + TextOf(X509_get_issuer_name(certificate)) +
                   ")";
        default:
            return std::string("the certificate does not pass: ") + X509_verify_cert_error_string(verdict);
    }
}

}  // namespace

SSL* MakeTls(const std::string& caFile, const std::string& host, std::string& error) {
    const ContextPointer context = FindContext(caFile, error);
    if (!context) return nullptr;
    ERR_clear_error();
    std::unique_ptr<SSL, CFree<SSL_free>> ssl(SSL_new(context.get()));
    bool isGood = ssl != nullptr;
    if (isGood && IsAddress(host)) {
        isGood = X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), host.c_str()) == 1;
    } else if (isGood) {
        SSL_set_hostflags(ssl.get(), X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
        isGood = SSL_set1_host(ssl.get(), host.c_str()) == 1 && SSL_set_tlsext_host_name(ssl.get(), host.c_str()) == 1;
    }
    if (!isGood) {
        error = "TLS cannot be used with " + host + ": " + LastTlsError();
        return nullptr;
    }
    SSL_set_verify(ssl.get(), SSL_VERIFY_NONE, nullptr);
    return ssl.release();
}

std::string DescribeHandshakeFailure(unsigned long code) {
    // What a server that talks in the clear says is taken for a TLS record of some unheard-of version.
    if (ERR_GET_REASON(code) == SSL_R_WRONG_VERSION_NUMBER) return "the server does not speak TLS on this port";
    const char* reason = ERR_reason_error_string(code);
    return reason ? reason : "unknown error";
}

bool CheckCertificate(SSL* ssl, const std::string& host, std::string& text) {
    const CertificatePointer certificate(SSL_get1_peer_certificate(ssl));
    if (!certificate) {
        text = "the server has shown no certificate";
        return false;
    }
    const long verdict = SSL_get_verify_result(ssl);
    text = verdict == X509_V_OK ? TextOf(X509_get_subject_name(certificate.get()))
                                : Explain(verdict, certificate.get(), host);
    return verdict == X509_V_OK;
}

}  // namespace Net
