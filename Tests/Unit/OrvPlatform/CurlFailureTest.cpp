#include <cerrno>
#include <chrono>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

#include "OrvPlatform/CurlFailure.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

std::string describe(const CurlFailure& failure) {
    return urlErrorOf(failure).what();
}

TEST(CurlFailureTest, aHostThatIsNotFound) {
    EXPECT_EQ(describe({.result = CURLE_COULDNT_RESOLVE_HOST, .host = "desk.example"}),
              "Could not resolve host: desk.example (cannotFindHost)");
    EXPECT_EQ(describe({.result = CURLE_COULDNT_RESOLVE_PROXY,
                        .host = "desk.example",
                        .proxyHost = "proxy.example"}),
              "Could not resolve host: proxy.example (cannotFindHost)");
}

TEST(CurlFailureTest, aNameServerThatIsNotHeardTakesItsTime) {
    CurlFailure failure{.result = CURLE_COULDNT_RESOLVE_HOST, .host = "desk.example"};
    failure.elapsed = 1999ms;
    EXPECT_EQ(urlErrorOf(failure).code(), UrlErrorCode::cannotFindHost);
    failure.elapsed = 2s;
    EXPECT_EQ(describe(failure), "Could not resolve host: desk.example (dnsLookupFailed)");
    failure.isOffline = true;
    EXPECT_EQ(describe(failure), "There is no network connection (notConnectedToInternet)");
}

TEST(CurlFailureTest, aConnectionThatCannotBeMade) {
    const auto withErrno = [](int number, bool isOffline = false) {
        CurlFailure failure{.result = CURLE_COULDNT_CONNECT};
        failure.systemError = number;
        failure.isOffline = isOffline;
        return describe(failure);
    };
    EXPECT_EQ(withErrno(ECONNREFUSED), "Connection refused (cannotConnectToHost)");
    EXPECT_EQ(withErrno(ETIMEDOUT), "Connection timed out (timedOut)");
    EXPECT_EQ(withErrno(ENETUNREACH), "Network is unreachable (notConnectedToInternet)");
    EXPECT_EQ(withErrno(ENETDOWN), "Network is down (notConnectedToInternet)");
    EXPECT_EQ(withErrno(EHOSTUNREACH), "No route to host (cannotConnectToHost)");
    EXPECT_EQ(withErrno(EHOSTUNREACH, true), "No route to host (notConnectedToInternet)");
    EXPECT_EQ(withErrno(0), "The server could not be connected to (cannotConnectToHost)");
}

TEST(CurlFailureTest, theProxysAnswerCountsBeforeWhatFollowedFromIt) {
    EXPECT_EQ(describe({.result = CURLE_RECV_ERROR, .proxyStatus = 502}),
              "The proxy refused the connection with status 502 (cannotConnectToHost)");
    EXPECT_EQ(urlErrorOf({.result = CURLE_RECV_ERROR, .proxyStatus = 200}).code(),
              UrlErrorCode::networkConnectionLost);
}

TEST(CurlFailureTest, aCertificateThatIsNotAccepted) {
    const auto withResult = [](long verifyResult) {
        return describe({.result = CURLE_PEER_FAILED_VERIFICATION, .verifyResult = verifyResult});
    };
    EXPECT_EQ(withResult(X509_V_ERR_CERT_HAS_EXPIRED),
              "The certificate has expired (serverCertificateUntrusted)");
    for (const long unsaid : {X509_V_OK, X509_V_ERR_UNSPECIFIED}) {
        EXPECT_EQ(withResult(unsaid),
                  "The certificate is for another host (serverCertificateUntrusted)");
    }
}

TEST(CurlFailureTest, aHandshakeThatTheNetworkEndedIsNoMatterOfSecurity) {
    const auto withText = [](const char* text) {
        return describe({.result = CURLE_SSL_CONNECT_ERROR, .text = text});
    };
    EXPECT_EQ(withText("OpenSSL SSL_connect: Connection reset by peer in connection to x:443 "),
              "Connection reset by peer (networkConnectionLost)");
    for (const char* end : {"OpenSSL SSL_connect: SSL_ERROR_SYSCALL in connection to x:443 ",
                            "error:0A000126:SSL routines::unexpected eof while reading"}) {
        EXPECT_EQ(withText(end),
                  "The server closed the connection before the end of the answer "
                  "(networkConnectionLost)");
    }
    EXPECT_EQ(withText("error:0A000102:SSL routines::unsupported protocol"),
              "No secure connection could be made: error:0A000102:SSL routines::unsupported "
              "protocol (secureConnectionFailed)");
}

TEST(CurlFailureTest, everythingElseHasItsCode) {
    const std::vector<std::pair<CURLcode, UrlErrorCode>> expected = {
        {CURLE_OPERATION_TIMEDOUT, UrlErrorCode::timedOut},
        {CURLE_SEND_ERROR, UrlErrorCode::networkConnectionLost},
        {CURLE_RECV_ERROR, UrlErrorCode::networkConnectionLost},
        {CURLE_GOT_NOTHING, UrlErrorCode::networkConnectionLost},
        {CURLE_PARTIAL_FILE, UrlErrorCode::networkConnectionLost},
        {CURLE_FILESIZE_EXCEEDED, UrlErrorCode::dataLengthExceedsMaximum},
        {CURLE_BAD_CONTENT_ENCODING, UrlErrorCode::cannotDecodeContentData},
        {CURLE_URL_MALFORMAT, UrlErrorCode::badUrl},
        {CURLE_WEIRD_SERVER_REPLY, UrlErrorCode::badServerResponse},
        {CURLE_UNSUPPORTED_PROTOCOL, UrlErrorCode::badServerResponse},
        {CURLE_HTTP2_STREAM, UrlErrorCode::cannotParseResponse},
        {CURLE_SSL_CIPHER, UrlErrorCode::secureConnectionFailed},
        {CURLE_SSL_ENGINE_INITFAILED, UrlErrorCode::secureConnectionFailed},
        {CURLE_OUT_OF_MEMORY, UrlErrorCode::resourceUnavailable},
        {CURLE_WRITE_ERROR, UrlErrorCode::resourceUnavailable},
        {CURLE_FAILED_INIT, UrlErrorCode::unknown},
    };
    for (const auto& [result, code] : expected) {
        EXPECT_EQ(urlErrorOf({.result = result}).code(), code) << curl_easy_strerror(result);
    }
}

TEST(CurlFailureTest, withoutWordsOfItsOwnTheCodesNameStands) {
    EXPECT_EQ(describe({.result = CURLE_HTTP2}),
              std::string(curl_easy_strerror(CURLE_HTTP2)) + " (cannotParseResponse)");
    EXPECT_EQ(describe({.result = CURLE_HTTP2, .text = "what happened"}),
              "what happened (cannotParseResponse)");
}

}  // namespace
}  // namespace orv
