#include "Support/TestCertificates.h"

#include <arpa/inet.h>
#include <cstdio>
#include <netinet/in.h>
#include <stdexcept>
#include <stdlib.h>

#include <fmt/format.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "Support/ScopedEnvironment.h"

namespace orv::test {

namespace {

struct Deleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
    void operator()(std::FILE* file) const { std::fclose(file); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, Deleter>;

constexpr long day = 24L * 60 * 60;
constexpr long hour = 60L * 60;

void demand(bool succeeded, const char* what) {
    if (!succeeded) throw std::runtime_error(fmt::format("Test certificates: {} failed", what));
}

Owned<EVP_PKEY> newKey() {
    Owned<EVP_PKEY> key(EVP_EC_gen("P-256"));
    demand(key != nullptr, "making a key");
    return key;
}

void addExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    Owned<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    demand(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "an extension");
}

/// A certificate without its signature.
Owned<X509> newCertificate(const std::string& commonName, EVP_PKEY* key, long from, long to) {
    static long serial = 1;
    Owned<X509> certificate(X509_new());
    demand(certificate != nullptr, "making a certificate");
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), from);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), to);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                               0);
    return certificate;
}

void sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
    demand(X509_sign(certificate, issuerKey, EVP_sha256()) > 0, "signing");
}

Owned<std::FILE> create(const std::filesystem::path& path) {
    Owned<std::FILE> file(std::fopen(path.c_str(), "wx"));
    demand(file != nullptr, "creating a file");
    return file;
}

std::string alternativeNames(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        in6_addr parsed{};
        const bool isAddress = inet_pton(AF_INET, name.c_str(), &parsed) == 1 ||
                               inet_pton(AF_INET6, name.c_str(), &parsed) == 1;
        text += fmt::format("{}{}:{}", text.empty() ? "" : ",", isAddress ? "IP" : "DNS", name);
    }
    return text;
}

}  // namespace

struct TestCertificates::Authority {
    Owned<EVP_PKEY> key = newKey();
    Owned<X509> certificate = newCertificate("Test authority", key.get(), -day, day);

    Authority() {
        X509* self = certificate.get();
        addExtension(self, self, NID_basic_constraints, "critical,CA:TRUE");
        addExtension(self, self, NID_key_usage, "critical,keyCertSign,cRLSign");
        addExtension(self, self, NID_subject_key_identifier, "hash");
        sign(self, self, key.get());
    }
};

TestCertificates::TestCertificates() : authority(std::make_unique<Authority>()) {
    std::string pattern = std::filesystem::temp_directory_path() / "certificates.XXXXXX";
    demand(::mkdtemp(pattern.data()) != nullptr, "making a folder");
    folder = pattern;
    authorityPath = folder / "authority.pem";
    demand(PEM_write_X509(create(authorityPath).get(), authority->certificate.get()) == 1,
           "writing the authority");
}

TestCertificates::~TestCertificates() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

TestIdentity TestCertificates::leaf(const std::vector<std::string>& names) {
    return write(*authority, names, -day, day);
}

TestIdentity TestCertificates::expiredLeaf(const std::vector<std::string>& names) {
    return write(*authority, names, -day, -hour);
}

TestIdentity TestCertificates::unknownAuthorityLeaf(const std::vector<std::string>& names) {
    return write(Authority(), names, -day, day);
}

TestIdentity TestCertificates::write(const Authority& issuer, const std::vector<std::string>& names,
                                     long validFromSeconds, long validToSeconds) {
    const Owned<EVP_PKEY> key = newKey();
    const Owned<X509> certificate =
        newCertificate("Test server", key.get(), validFromSeconds, validToSeconds);
    X509* issuerCertificate = issuer.certificate.get();
    addExtension(certificate.get(), issuerCertificate, NID_subject_alt_name,
                 alternativeNames(names));
    addExtension(certificate.get(), issuerCertificate, NID_ext_key_usage, "serverAuth");
    addExtension(certificate.get(), issuerCertificate, NID_authority_key_identifier, "keyid");
    sign(certificate.get(), issuerCertificate, issuer.key.get());

    const std::string number = std::to_string(++written);
    const TestIdentity identity{folder / ("server" + number + ".pem"),
                                folder / ("server" + number + ".key")};
    demand(PEM_write_X509(create(identity.certificateFile).get(), certificate.get()) == 1,
           "writing a certificate");
    demand(PEM_write_PrivateKey(create(identity.keyFile).get(), key.get(), nullptr, nullptr, 0,
                                nullptr, nullptr) == 1,
           "writing a key");
    return identity;
}

std::unique_ptr<TlsTrust> TestCertificates::trust() const {
    const ScopedEnvironment file("SSL_CERT_FILE", authorityPath);
    const ScopedEnvironment hashedFolder("SSL_CERT_DIR", (folder / "none").string());
    return std::make_unique<TlsTrust>();
}

}  // namespace orv::test
