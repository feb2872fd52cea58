#pragma once

#include <memory>
#include <string>

using SSL_CTX = struct ssl_ctx_st;
using SSL = struct ssl_st;

namespace orv {

/// Who is trusted, for every TLS connection of the process: one set of trusted certificates,
/// loaded once and shared by HTTP and WebSocket. Linux: OpenSSL's default verify paths, honouring
/// SSL_CERT_FILE and SSL_CERT_DIR. macOS: the system judges the chain (Security framework), so
/// that roots which the company installed in the keychain count. Nothing turns verification off.
class TlsTrust {
public:
    /// Throws std::runtime_error when the trusted certificates cannot be set up. None being there
    /// is no error: then nobody is trusted.
    TlsTrust();
    ~TlsTrust();
    TlsTrust(const TlsTrust&) = delete;
    TlsTrust& operator=(const TlsTrust&) = delete;

    /// Makes a client context verify its peers against this trust, with TLS 1.2 or newer. The
    /// context may outlive this object. Throws std::runtime_error.
    void applyTo(SSL_CTX* context) const;

    /// Makes one connection accept only a certificate for this host (a name, or an address without
    /// brackets), and sends a name, never an address, in the handshake. Not needed where the HTTP
    /// library does it. Throws std::runtime_error for what cannot be a host.
    static void requireHost(SSL* connection, const std::string& host);

private:
    /// Who decides, system by system.
    void setJudge(SSL_CTX* context) const;

    struct State;
    std::unique_ptr<State> state;
};

/// Why a certificate was not accepted, as people write it ("The certificate has expired"), from
/// SSL_get_verify_result (an X509_V_ERR_ number other than X509_V_OK).
std::string certificateRejection(long verifyResult);

}  // namespace orv
