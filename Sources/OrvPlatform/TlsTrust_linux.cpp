#include <stdexcept>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include "OrvPlatform/TlsTrust.h"

namespace orv {

namespace {

struct StoreDeleter {
    void operator()(X509_STORE* store) const { X509_STORE_free(store); }
};

}  // namespace

/// A file of certificates is read here, once; of a hashed folder only the certificates that a
/// server's chain asks for are ever read, and kept.
struct TlsTrust::State {
    std::unique_ptr<X509_STORE, StoreDeleter> store;
};

TlsTrust::TlsTrust() : state(std::make_unique<State>()) {
    state->store.reset(X509_STORE_new());
    if (!state->store || X509_STORE_set_default_paths(state->store.get()) != 1) {
        throw std::runtime_error("The trusted certificates cannot be set up");
    }
    // A default file that is not there leaves its error behind for whoever looks next.
    ERR_clear_error();
}

TlsTrust::~TlsTrust() = default;

void TlsTrust::setJudge(SSL_CTX* context) const {
    SSL_CTX_set1_cert_store(context, state->store.get());
}

}  // namespace orv
