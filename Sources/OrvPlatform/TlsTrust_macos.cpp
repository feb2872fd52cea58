#include <exception>
#include <string>
#include <vector>

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include "OrvPlatform/CoreFoundationSupport_macos.h"
#include "OrvPlatform/TlsTrust.h"

namespace orv {

namespace {

// The codes with which the Security framework refuses a chain (SecBase.h).
constexpr CFIndex hostNameMismatch = -67602;
constexpr CFIndex certificateExpired = -67818;
constexpr CFIndex certificateNotValidYet = -67819;
constexpr CFIndex certificateRevoked = -67820;
constexpr CFIndex notTrusted = -67843;
constexpr CFIndex createChainFailed = -25318;

int verifyResultOf(CFErrorRef refusal) {
    switch (refusal == nullptr ? 0 : CFErrorGetCode(refusal)) {
        case hostNameMismatch: return X509_V_ERR_HOSTNAME_MISMATCH;
        case certificateExpired: return X509_V_ERR_CERT_HAS_EXPIRED;
        case certificateNotValidYet: return X509_V_ERR_CERT_NOT_YET_VALID;
        case certificateRevoked: return X509_V_ERR_CERT_REVOKED;
        case notTrusted:
        case createChainFailed: return X509_V_ERR_CERT_UNTRUSTED;
        default: return X509_V_ERR_APPLICATION_VERIFICATION;
    }
}

/// False for what the system cannot read as a certificate.
bool append(CFMutableArrayRef chain, X509* certificate) {
    const int length = i2d_X509(certificate, nullptr);
    if (length <= 0) return false;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(length));
    unsigned char* end = bytes.data();
    i2d_X509(certificate, &end);
    const CfOwned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, bytes.data(), length));
    if (!data) return false;
    const CfOwned<SecCertificateRef> read(
        SecCertificateCreateWithData(kCFAllocatorDefault, data.get()));
    if (!read) return false;
    CFArrayAppendValue(chain, read.get());
    return true;
}

/// What the server sent, its own certificate first; none when that one cannot be read.
CfOwned<CFMutableArrayRef> chainOf(X509_STORE_CTX* context) {
    X509* own = X509_STORE_CTX_get0_cert(context);
    CfOwned<CFMutableArrayRef> chain(
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    if (!chain || own == nullptr || !append(chain.get(), own)) return {};
    const STACK_OF(X509)* sent = X509_STORE_CTX_get0_untrusted(context);
    for (int i = 0; i < sk_X509_num(sent); ++i) {
        X509* certificate = sk_X509_value(sent, i);
        if (X509_cmp(certificate, own) != 0) append(chain.get(), certificate);
    }
    return chain;
}

/// The host that the certificate must be for. Empty for an address that the HTTP library connects
/// to: it sends no name then, and compares the address itself.
std::string hostOf(const X509_STORE_CTX* context) {
    auto* connection = static_cast<SSL*>(
        X509_STORE_CTX_get_ex_data(context, SSL_get_ex_data_X509_STORE_CTX_idx()));
    if (connection == nullptr) return {};
    X509_VERIFY_PARAM* demanded = SSL_get0_param(connection);
    if (const char* name = X509_VERIFY_PARAM_get0_host(demanded, 0)) return name;
    if (char* address = X509_VERIFY_PARAM_get1_ip_asc(demanded)) {
        const std::string copy(address);
        OPENSSL_free(address);
        return copy;
    }
    const char* sent = SSL_get_servername(connection, TLSEXT_NAMETYPE_host_name);
    return sent == nullptr ? std::string() : std::string(sent);
}

/// The system's verdict as OpenSSL's number. The system may ask the network (for a certificate
/// that a server left out, or about revocation) if it thinks fit.
int judge(X509_STORE_CTX* context) {
    const CfOwned<CFMutableArrayRef> chain = chainOf(context);
    if (!chain) return X509_V_ERR_CERT_UNTRUSTED;
    const std::string host = hostOf(context);
    CfOwned<CFStringRef> name;
    if (!host.empty()) {
        name = cfString(host);
        if (!name) return X509_V_ERR_HOSTNAME_MISMATCH;
    }
    const CfOwned<SecPolicyRef> policy(SecPolicyCreateSSL(true, name.get()));
    SecTrustRef created = nullptr;
    if (!policy ||
        SecTrustCreateWithCertificates(chain.get(), policy.get(), &created) != errSecSuccess) {
        return X509_V_ERR_APPLICATION_VERIFICATION;
    }
    const CfOwned<SecTrustRef> trust(created);
    CFErrorRef refusal = nullptr;
    const bool isTrusted = SecTrustEvaluateWithError(trust.get(), &refusal);
    const CfOwned<CFErrorRef> ownedRefusal(refusal);
    return isTrusted ? X509_V_OK : verifyResultOf(refusal);
}

/// Instead of OpenSSL's own verification. 1: accepted.
int verifyChain(X509_STORE_CTX* context, void*) {
    int result = X509_V_ERR_APPLICATION_VERIFICATION;
    try {
        result = judge(context);
    } catch (const std::exception&) {
        result = X509_V_ERR_OUT_OF_MEM;
    }
    X509_STORE_CTX_set_error(context, result);
    return result == X509_V_OK ? 1 : 0;
}

}  // namespace

/// Nothing is kept: the system knows.
struct TlsTrust::State {};

TlsTrust::TlsTrust() = default;
TlsTrust::~TlsTrust() = default;

void TlsTrust::setJudge(SSL_CTX* context) const {
    SSL_CTX_set_cert_verify_callback(context, &verifyChain, nullptr);
}

}  // namespace orv
