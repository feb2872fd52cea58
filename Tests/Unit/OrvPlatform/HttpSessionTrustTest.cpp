#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include "OrvPlatform/HttpSession.h"
#include "Support/HttpSessionFixture.h"
#include "Support/ScopedEnvironment.h"

namespace orv {
namespace {

using test::certificates;
using test::credentials;
using test::httpAnswer;
using test::ScopedEnvironment;
using test::ScriptedAnswer;
using test::TestCertificates;
using test::TlsTestServer;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class HttpSessionTrustTest : public test::HttpSessionFixture {
protected:
    void expectRefused(const test::TestIdentity& identity, const std::string& what) {
        const TlsTestServer server(loop.context, identity, ScriptedAnswer{httpAnswer(200)});
        EXPECT_EQ(std::string(failure({.url = server.url(), .headers = credentials()}).what()),
                  what);
        loop.runReady();
        EXPECT_EQ(server.connections(), 1);
        EXPECT_THAT(server.requests(), IsEmpty());
    }
};

TEST_F(HttpSessionTrustTest, tellsNothingToAServerWithAnotherHostsCertificate) {
    expectRefused(certificates().leaf({"localhost", "127.0.0.2"}),
                  "The certificate is for another host (serverCertificateUntrusted)");
}

TEST_F(HttpSessionTrustTest, tellsNothingToAServerWithAnExpiredCertificate) {
    expectRefused(certificates().expiredLeaf({"127.0.0.1"}),
                  "The certificate has expired (serverCertificateUntrusted)");
}

TEST_F(HttpSessionTrustTest, tellsNothingToAServerOfAnUnknownAuthority) {
    expectRefused(certificates().unknownAuthorityLeaf({"127.0.0.1"}),
                  "The certificate was issued by an authority that is not trusted "
                  "(serverCertificateUntrusted)");
}

TEST_F(HttpSessionTrustTest, theEnvironmentOfTheMomentDoesNotAddToTheTrust) {
    TestCertificates others;
    const ScopedEnvironment file("SSL_CERT_FILE", others.authorityFile());
    const ScopedEnvironment bundle("CURL_CA_BUNDLE", others.authorityFile());
    expectRefused(others.leaf({"127.0.0.1"}),
                  "The certificate was issued by an authority that is not trusted "
                  "(serverCertificateUntrusted)");
}

TEST_F(HttpSessionTrustTest, refusesTlsBelow12) {
    auto server = serving({httpAnswer(200)});
    SSL_CTX_set_security_level(server.tls(), 0);
    SSL_CTX_set_min_proto_version(server.tls(), TLS1_VERSION);
    SSL_CTX_set_max_proto_version(server.tls(), TLS1_1_VERSION);
    const UrlError error = failure(server.url());
    EXPECT_EQ(error.code(), UrlErrorCode::secureConnectionFailed);
    EXPECT_THAT(error.what(), StartsWith("No secure connection could be made: "));
    EXPECT_EQ(server.handshakes(), 0);
}

TEST_F(HttpSessionTrustTest, speaksTls12) {
    auto server = serving({httpAnswer(200, "ok")});
    SSL_CTX_set_max_proto_version(server.tls(), TLS1_2_VERSION);
    EXPECT_EQ(get(server.url()).body, "ok");
}

}  // namespace
}  // namespace orv
