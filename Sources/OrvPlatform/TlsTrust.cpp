#include "OrvPlatform/TlsTrust.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>

#include <fmt/format.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace orv {

namespace {

bool isAddress(const std::string& host) {
    in6_addr parsed{};
    return inet_pton(AF_INET, host.c_str(), &parsed) == 1 ||
           inet_pton(AF_INET6, host.c_str(), &parsed) == 1;
}

bool demandAddress(SSL* connection, const std::string& host) {
    return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(connection), host.c_str()) == 1;
}

bool demandName(SSL* connection, const std::string& host) {
    SSL_set_hostflags(connection, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return SSL_set1_host(connection, host.c_str()) == 1 &&
           SSL_set_tlsext_host_name(connection, host.c_str()) == 1;
}

}  // namespace

void TlsTrust::applyTo(SSL_CTX* context) const {
    setJudge(context);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    if (SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1) {
        throw std::runtime_error("TLS 1.2 is not available");
    }
}

void TlsTrust::requireHost(SSL* connection, const std::string& host) {
    // OpenSSL takes an empty name for "any host will do", and stops reading at a zero byte.
    const bool possible = !host.empty() && host.find('\0') == std::string::npos;
    if (!possible ||
        !(isAddress(host) ? demandAddress(connection, host) : demandName(connection, host))) {
        throw std::runtime_error(fmt::format("\"{}\" is not a host", host));
    }
    SSL_set_verify(connection, SSL_VERIFY_PEER, nullptr);
}

std::string certificateRejection(long verifyResult) {
    switch (verifyResult) {
        case X509_V_ERR_CERT_HAS_EXPIRED: return "The certificate has expired";
        case X509_V_ERR_CERT_NOT_YET_VALID: return "The certificate is not valid yet";
        case X509_V_ERR_CERT_REVOKED: return "The certificate has been revoked";
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH: return "The certificate is for another host";
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_CERT_UNTRUSTED:
            return "The certificate was issued by an authority that is not trusted";
        default:
            return fmt::format("The certificate was not accepted: {}",
                               X509_verify_cert_error_string(verifyResult));
    }
}

}  // namespace orv
