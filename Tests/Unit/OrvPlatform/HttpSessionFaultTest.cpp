#include <chrono>
#include <string>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/HttpSession.h"
#include "Support/HttpSessionFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using test::httpAnswer;
using test::ScriptedAnswer;
using Then = ScriptedAnswer::Then;

using HttpSessionFaultTest = test::HttpSessionFixture;

TEST_F(HttpSessionFaultTest, refusesWhatIsNoHttpsUrl) {
    const auto server = serving({httpAnswer(200)});
    for (const std::string url : {"", "not a url", "https://", "https:///path", "https://[::1",
                                  "https://host:99999/", "https://ho st/"}) {
        EXPECT_EQ(failure(url).code(), UrlErrorCode::badUrl) << url;
    }
    EXPECT_EQ(failure(std::string("https://127.0.0.1\0.evil/", 24)).code(), UrlErrorCode::badUrl);
    expectFailure("http://127.0.0.1:" + std::to_string(server.port()) + "/",
                  "Only https is supported, not http (unsupportedURL)");
    for (const std::string url : {"file:///etc/passwd", "ftp://127.0.0.1/", "wss://127.0.0.1/"}) {
        EXPECT_EQ(failure(url).code(), UrlErrorCode::unsupportedUrl) << url;
    }
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpSessionFaultTest, aRefusedConnection) {
    std::string url;
    {
        const auto server = serving({httpAnswer(200)});
        url = server.url();
    }
    expectFailure(url, "Connection refused (cannotConnectToHost)");
}

TEST_F(HttpSessionFaultTest, aHostThatCannotExist) {
    // The empty label keeps the question from leaving this machine.
    const UrlError error = failure("https://no..such.host/");
    if (error.code() == UrlErrorCode::notConnectedToInternet) {
        EXPECT_STREQ(error.what(), "There is no network connection (notConnectedToInternet)");
    } else {
        EXPECT_STREQ(error.what(), "Could not resolve host: no..such.host (cannotFindHost)");
    }
}

TEST_F(HttpSessionFaultTest, aBodyThatStopsHalfway) {
    const std::string half = "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nonly this";
    const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nonly";
    const std::string header = "HTTP/1.1 200 OK\r\nContent-Le";
    for (const std::string& bytes : {half, chunked, header, std::string()}) {
        for (const Then then : {Then::close, Then::cut}) {
            const auto server = serving({bytes, then});
            expectFailure(server.url(),
                          "The server closed the connection before the end of the "
                          "answer (networkConnectionLost)");
        }
    }
}

TEST_F(HttpSessionFaultTest, aBodyWithoutLengthEndsWithItsConnection) {
    const auto server =
        serving({"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nall of it", Then::close});
    EXPECT_EQ(get(server.url()).body, "all of it");
}

TEST_F(HttpSessionFaultTest, aConnectionThatIsReset) {
    for (const std::string bytes :
         {"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nonly this", ""}) {
        const auto server = serving({bytes, Then::reset});
        expectFailure(server.url(), "Connection reset by peer (networkConnectionLost)");
    }
}

TEST_F(HttpSessionFaultTest, anAnswerThatIsNotHttp) {
    const auto server = serving({"220 mail.example ready\r\n", Then::close});
    EXPECT_EQ(failure(server.url()).code(), UrlErrorCode::badServerResponse);
}

TEST_F(HttpSessionFaultTest, endsABodyThatAnnouncesToBeTooLong) {
    options.maximumBodyBytes = 1000;
    const auto server = serving({"HTTP/1.1 200 OK\r\nContent-Length: 1001\r\n\r\n", Then::silence});
    expectFailure(server.url(), "The answer is longer than accepted (dataLengthExceedsMaximum)");
}

TEST_F(HttpSessionFaultTest, endsABodyThatTurnsOutTooLong) {
    options.maximumBodyBytes = 1000;
    const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3e8\r\n" +
                                std::string(1000, 'x') + "\r\n";
    const auto exact = serving({chunked + "0\r\n\r\n"});
    EXPECT_EQ(get(exact.url()).body.size(), 1000U);
    const auto over = serving({chunked + "1\r\nx\r\n", Then::silence});
    expectFailure(over.url(), "The answer is longer than accepted (dataLengthExceedsMaximum)");
}

TEST_F(HttpSessionFaultTest, countsABodyAsItIsDecompressed) {
    options.maximumBodyBytes = 1000;
    // 2,000 zero bytes as gzip.
    const std::string gzip(
        "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\x63\x60\x18\x05\xa3\x60\x14\x8c"
        "\x82\x51\x30\x0a\x46\xc1\x50\x07\x00\x44\xf4\xc9\x02\xd0\x07\x00\x00",
        35);
    const auto server =
        serving({httpAnswer(200, gzip, "Content-Encoding: gzip\r\n"), Then::silence});
    EXPECT_EQ(failure(server.url()).code(), UrlErrorCode::dataLengthExceedsMaximum);
}

TEST_F(HttpSessionFaultTest, endsHeadersWithoutEnd) {
    std::string endless = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 300; ++i)
        endless += fmt::format("X-{}: {}\r\n", i, std::string(1000, 'x'));
    const auto server = serving({endless, Then::silence});
    EXPECT_EQ(failure(server.url()).code(), UrlErrorCode::dataLengthExceedsMaximum);
}

class HttpSessionTimeoutTest : public test::HttpSessionFixture {
protected:
    void expectTimeout(const std::string& url, const std::string& what,
                       std::chrono::milliseconds after) {
        session();
        const auto begin = std::chrono::steady_clock::now();
        expectFailure(url, what + " (timedOut)");
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(took, after);
        EXPECT_LT(took, after + 1s);  // far from the limits it has by itself
    }
};

TEST_F(HttpSessionTimeoutTest, aServerThatAcceptsAndStaysSilent) {
    options.idleTimeout = 40ms;
    const auto server = serving({"", Then::silence});
    expectTimeout(server.url(), "The server did not answer in time", 40ms);
}

TEST_F(HttpSessionTimeoutTest, aServerThatStaysSilentWithinItsAnswer) {
    options.idleTimeout = 40ms;
    const auto server =
        serving({"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nonly this", Then::silence});
    expectTimeout(server.url(), "The server did not answer in time", 40ms);
}

TEST_F(HttpSessionTimeoutTest, aServerThatStaysSilentInTheHandshake) {
    options.idleTimeout = 40ms;
    auto server = serving({httpAnswer(200)});
    server.staySilent();
    expectTimeout(server.url(), "The server did not answer in time", 40ms);
    EXPECT_EQ(server.handshakes(), 0);
}

TEST_F(HttpSessionTimeoutTest, aSlowAnswerIsFineAsLongAsItMoves) {
    options.idleTimeout = 100ms;
    const auto server = serving({httpAnswer(200, std::string(8, 'x')), Then::readNext, 3ms});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(get(server.url()).body, "xxxxxxxx");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 120ms);
}

TEST_F(HttpSessionTimeoutTest, aServerThatTricklesWithoutEnd) {
    options.totalTimeout = 60ms;
    const auto server = serving({httpAnswer(200, std::string(1000, 'x')), Then::readNext, 1ms});
    expectTimeout(server.url(), "The exchange took longer than allowed", 60ms);
}

TEST_F(HttpSessionTimeoutTest, allRedirectsTogetherHaveOneLimit) {
    options.totalTimeout = 60ms;
    options.maximumRedirects = 1'000'000;
    const auto server = serving({httpAnswer(302, "", "Location: /\r\n")});
    expectTimeout(server.url(), "The exchange took longer than allowed", 60ms);
    EXPECT_GT(server.requests().size(), 1U);
}

}  // namespace
}  // namespace orv
