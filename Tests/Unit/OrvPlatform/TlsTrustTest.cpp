#include <filesystem>
#include <optional>
#include <stdexcept>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include "OrvPlatform/TlsTrust.h"
#include "Support/ScopedEnvironment.h"
#include "Support/TestCertificates.h"

namespace orv {
namespace {

using test::ScopedEnvironment;
using test::TestCertificates;
using test::TestIdentity;
using ::testing::HasSubstr;

struct Deleter {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(SSL* connection) const { SSL_free(connection); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};
using Context = std::unique_ptr<SSL_CTX, Deleter>;
using Connection = std::unique_ptr<SSL, Deleter>;

Context serverContext(const TestIdentity& identity) {
    Context context(SSL_CTX_new(TLS_server_method()));
    SSL_CTX_use_certificate_chain_file(context.get(), identity.certificateFile.c_str());
    SSL_CTX_use_PrivateKey_file(context.get(), identity.keyFile.c_str(), SSL_FILETYPE_PEM);
    return context;
}

struct Outcome {
    bool connected = false;
    long verifyResult = X509_V_OK;
    std::string serverName;  // as the server was asked for
};

/// A handshake within memory, turn by turn.
Outcome shakeHands(const Context& client, const Context& server, const std::string& host) {
    BIO* clientEnd = nullptr;
    BIO* serverEnd = nullptr;
    BIO_new_bio_pair(&clientEnd, 0, &serverEnd, 0);
    const Connection connecting(SSL_new(client.get()));
    const Connection accepting(SSL_new(server.get()));
    SSL_set_bio(connecting.get(), clientEnd, clientEnd);
    SSL_set_bio(accepting.get(), serverEnd, serverEnd);
    SSL_set_accept_state(accepting.get());
    SSL_set_connect_state(connecting.get());
    TlsTrust::requireHost(connecting.get(), host);

    Outcome outcome;
    for (int turn = 0; turn < 10; ++turn) {
        outcome.connected = SSL_do_handshake(connecting.get()) == 1;
        SSL_do_handshake(accepting.get());
    }
    ERR_clear_error();
    outcome.verifyResult = SSL_get_verify_result(connecting.get());
    const char* name = SSL_get_servername(accepting.get(), TLSEXT_NAMETYPE_host_name);
    outcome.serverName = name == nullptr ? "" : name;
    return outcome;
}

class TlsTrustTest : public ::testing::Test {
protected:
    Outcome connect(const TestIdentity& identity, const std::string& host) {
        const Context client(SSL_CTX_new(TLS_client_method()));
        trust->applyTo(client.get());
        return shakeHands(client, serverContext(identity), host);
    }

    void expectRejected(const TestIdentity& identity, const std::string& host,
                        const std::string& reason) {
        const Outcome outcome = connect(identity, host);
        EXPECT_FALSE(outcome.connected);
        EXPECT_EQ(certificateRejection(outcome.verifyResult), reason);
    }

    TestCertificates certificates;
    std::unique_ptr<TlsTrust> trust = certificates.trust();
};

TEST_F(TlsTrustTest, acceptsACertificateForTheHostAndAsksForItByName) {
    const Outcome outcome = connect(certificates.leaf({"desk.example"}), "desk.example");
    EXPECT_TRUE(outcome.connected);
    EXPECT_EQ(outcome.serverName, "desk.example");
}

TEST_F(TlsTrustTest, acceptsAnAddressInTheCertificateAndSendsNoName) {
    for (const std::string host : {"127.0.0.1", "::1"}) {
        const Outcome outcome = connect(certificates.leaf({host}), host);
        EXPECT_TRUE(outcome.connected) << host;
        EXPECT_EQ(outcome.serverName, "");
    }
}

TEST_F(TlsTrustTest, acceptsAWildcardForOneLabelOnly) {
    const TestIdentity identity = certificates.leaf({"*.example.test"});
    EXPECT_TRUE(connect(identity, "desk.example.test").connected);
    EXPECT_FALSE(connect(identity, "a.desk.example.test").connected);
    EXPECT_FALSE(connect(identity, "example.test").connected);
}

TEST_F(TlsTrustTest, rejectsACertificateForAnotherHost) {
    expectRejected(certificates.leaf({"other.example"}), "desk.example",
                   "The certificate is for another host");
    expectRejected(certificates.leaf({"127.0.0.2"}), "127.0.0.1",
                   "The certificate is for another host");
}

TEST_F(TlsTrustTest, rejectsAnExpiredCertificate) {
    expectRejected(certificates.expiredLeaf({"desk.example"}), "desk.example",
                   "The certificate has expired");
}

TEST_F(TlsTrustTest, rejectsAnAuthorityItDoesNotKnowEvenUnderAKnownName) {
    expectRejected(certificates.unknownAuthorityLeaf({"desk.example"}), "desk.example",
                   "The certificate was issued by an authority that is not trusted");
}

TEST_F(TlsTrustTest, refusesTlsBelow12) {
    const TestIdentity identity = certificates.leaf({"desk.example"});
    const Context client(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_set_min_proto_version(client.get(), TLS1_VERSION);
    trust->applyTo(client.get());
    const Context server = serverContext(identity);
    SSL_CTX_set_min_proto_version(server.get(), TLS1_VERSION);
    SSL_CTX_set_security_level(server.get(), 0);
    SSL_CTX_set_security_level(client.get(), 0);

    SSL_CTX_set_max_proto_version(server.get(), TLS1_1_VERSION);
    EXPECT_FALSE(shakeHands(client, server, "desk.example").connected);
    SSL_CTX_set_max_proto_version(server.get(), TLS1_2_VERSION);
    EXPECT_TRUE(shakeHands(client, server, "desk.example").connected);
}

TEST_F(TlsTrustTest, loadsTheCertificatesOnceForEveryContextAndOutlivesTheFile) {
    std::filesystem::remove(certificates.authorityFile());
    const Context client(SSL_CTX_new(TLS_client_method()));
    trust->applyTo(client.get());
    const Context another(SSL_CTX_new(TLS_client_method()));
    trust->applyTo(another.get());
    trust.reset();

    EXPECT_EQ(SSL_CTX_get_cert_store(client.get()), SSL_CTX_get_cert_store(another.get()));
    const Context server = serverContext(certificates.leaf({"desk.example"}));
    EXPECT_TRUE(shakeHands(client, server, "desk.example").connected);
}

TEST_F(TlsTrustTest, looksUpAHashedFolderWhenACertificateIsNeeded) {
    const std::filesystem::path folder =
        std::filesystem::path(certificates.authorityFile()).parent_path() / "hashed";
    std::filesystem::create_directory(folder);
    const ScopedEnvironment noFile("SSL_CERT_FILE", folder / "none.pem");
    const ScopedEnvironment directory("SSL_CERT_DIR", folder);
    trust = std::make_unique<TlsTrust>();
    const TestIdentity identity = certificates.leaf({"desk.example"});
    EXPECT_FALSE(connect(identity, "desk.example").connected);

    // A root that the company installs while the agent runs counts from then on.
    std::FILE* file = std::fopen(certificates.authorityFile().c_str(), "r");
    ASSERT_NE(file, nullptr);
    const std::unique_ptr<X509, Deleter> root(PEM_read_X509(file, nullptr, nullptr, nullptr));
    std::fclose(file);
    const std::string name = fmt::format("{:08x}.0", X509_subject_name_hash(root.get()));
    std::filesystem::copy(certificates.authorityFile(), folder / name);
    EXPECT_TRUE(connect(identity, "desk.example").connected);
}

TEST_F(TlsTrustTest, withoutAnyCertificateNobodyIsTrusted) {
    const ScopedEnvironment noFile("SSL_CERT_FILE", "/nonexistent/file.pem");
    const ScopedEnvironment noDirectory("SSL_CERT_DIR", "/nonexistent");
    trust = std::make_unique<TlsTrust>();
    EXPECT_FALSE(connect(certificates.leaf({"desk.example"}), "desk.example").connected);
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

TEST_F(TlsTrustTest, anEmptyOrCutHostIsAnErrorAndNotAnyHost) {
    const Context client(SSL_CTX_new(TLS_client_method()));
    trust->applyTo(client.get());
    const Connection connection(SSL_new(client.get()));
    EXPECT_THROW(TlsTrust::requireHost(connection.get(), ""), std::runtime_error);
    EXPECT_THROW(TlsTrust::requireHost(connection.get(), std::string("desk.example\0.x", 15)),
                 std::runtime_error);
}

TEST(CertificateRejectionTest, namesWhatItHasNoWordsForAsOpensslDoes) {
    EXPECT_THAT(certificateRejection(X509_V_ERR_INVALID_PURPOSE),
                HasSubstr(X509_verify_cert_error_string(X509_V_ERR_INVALID_PURPOSE)));
}

}  // namespace
}  // namespace orv
