#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include "OrvPlatform/HttpSession.h"
#include "Support/ConnectProxy.h"
#include "Support/HttpSessionFixture.h"
#include "Support/ScopedEnvironment.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using test::bodyOf;
using test::certificates;
using test::ConnectProxy;
using test::credentials;
using test::httpAnswer;
using test::loopbackIdentity;
using test::ReceivedRequest;
using test::ScopedEnvironment;
using test::ScriptedAnswer;
using test::TlsTestServer;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using Then = ScriptedAnswer::Then;

using HttpSessionTest = test::HttpSessionFixture;

TEST(HttpSessionOptionsTest, anExchangeTakesTwentySecondsAndAQuarterOfAGigabyteAtMost) {
    const HttpSessionOptions options;
    EXPECT_EQ(options.idleTimeout, 12s);
    EXPECT_EQ(options.totalTimeout, 20s);
    EXPECT_EQ(options.maximumBodyBytes, 268'435'456U);
    EXPECT_EQ(options.maximumRedirects, 20);
}

TEST_F(HttpSessionTest, returnsStatusHeadersAndBody) {
    const auto server = serving({httpAnswer(404, "not here", "X-One: 1\r\nX-Two:  b c \r\n")});
    const HttpResponse response = get(server.url("/a/b?c=d%20e"));
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.body, "not here");
    EXPECT_THAT(response.headers,
                ElementsAre(HttpHeader{"Content-Length", "8"}, HttpHeader{"X-One", "1"},
                            HttpHeader{"X-Two", "b c"}));
    ASSERT_THAT(server.requests(), SizeIs(1));
    EXPECT_EQ(server.requests()[0].method, "GET");
    EXPECT_EQ(server.requests()[0].target, "/a/b?c=d%20e");
    EXPECT_EQ(server.requests()[0].body, "");
}

/// For a server's TLS: notes the protocols that a client offers (each behind its length), takes
/// none.
int noteOffer(SSL*, const unsigned char**, unsigned char*, const unsigned char* offered,
              unsigned length, void* note) {
    static_cast<std::string*>(note)->assign(reinterpret_cast<const char*>(offered), length);
    return SSL_TLSEXT_ERR_NOACK;
}

TEST_F(HttpSessionTest, offersHttp2AndDoesWithout) {
    auto server = serving({httpAnswer(200, "ok")});
    std::string offered;
    SSL_CTX_set_alpn_select_cb(server.tls(), noteOffer, &offered);
    EXPECT_EQ(get(server.url()).body, "ok");
    EXPECT_THAT(offered, HasSubstr("\x02h2"));
}

TEST_F(HttpSessionTest, onlyTheFinalAnswersHeadersCount) {
    const auto server =
        serving({"HTTP/1.1 103 Early Hints\r\nX-Early: 1\r\n\r\n" + httpAnswer(200, "ok")});
    const HttpResponse response = get(server.url());
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.headers, ElementsAre(HttpHeader{"Content-Length", "2"}));
}

TEST_F(HttpSessionTest, sendsMethodHeadersAndBodyAsGiven) {
    const auto server = serving({httpAnswer(200)});
    const std::string body("{\"a\":1}\0binary", 14);
    send({"POST",
          server.url(),
          {{"Content-Type", "application/json"}, {"X-Empty", ""}},
          bodyOf(body)});
    ASSERT_THAT(server.requests(), SizeIs(1));
    const ReceivedRequest& request = server.requests()[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.body, body);
    EXPECT_EQ(request.headers.at("content-type"), "application/json");
    EXPECT_EQ(request.headers.at("content-length"), "14");
    EXPECT_EQ(request.headers.at("x-empty"), "");
    EXPECT_EQ(request.headers.at("user-agent"), "Wsparo/test");
    EXPECT_FALSE(request.headers.contains("cookie"));
}

TEST_F(HttpSessionTest, otherMethodsGoOutUnderTheirNames) {
    const auto server = serving({httpAnswer(200)});
    for (const std::string method : {"PUT", "PATCH", "DELETE", "POST"}) {
        send({.method = method, .url = server.url()});
        EXPECT_EQ(server.requests().back().method, method);
        EXPECT_EQ(server.requests().back().headers.contains("content-length"), method != "DELETE");
        EXPECT_FALSE(server.requests().back().headers.contains("content-type"));
    }
    send({.method = "DELETE", .url = server.url(), .headers = {}, .body = bodyOf("why")});
    EXPECT_EQ(server.requests().back().method, "DELETE");
    EXPECT_EQ(server.requests().back().body, "why");
}

TEST_F(HttpSessionTest, headHasALengthButNoBody) {
    options.maximumBodyBytes = 10;
    const auto server = serving({"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n"});
    const HttpResponse response = send({.method = "HEAD", .url = server.url()});
    EXPECT_EQ(response.status, 200);
    EXPECT_THAT(response.headers, ElementsAre(HttpHeader{"Content-Length", "1000"}));
}

TEST_F(HttpSessionTest, doesNotWaitForConsentToSendABody) {
    const auto server = serving({httpAnswer(200)});
    send({"POST", server.url(), {}, bodyOf(std::string(2'000'000, 'x'))});
    EXPECT_FALSE(server.requests()[0].headers.contains("expect"));
    EXPECT_EQ(server.requests()[0].body.size(), 2'000'000U);
}

TEST_F(HttpSessionTest, carriesLargeBodiesBothWays) {
    std::string body(25 * 1024 * 1024, '\0');
    for (std::size_t i = 0; i < body.size(); i += 4093)
        body[i] = static_cast<char>(i);
    const auto server = serving([](const ReceivedRequest& request) {
        return ScriptedAnswer{httpAnswer(200, request.body)};
    });
    const HttpResponse response = send({"POST", server.url(), {}, bodyOf(body)});
    EXPECT_TRUE(response.body == body);
}

TEST_F(HttpSessionTest, decodesACompressedBody) {
    // "hello hello hello hello" as gzip.
    const std::string gzip(
        "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xcb\x48\xcd\xc9\xc9\x57"
        "\xc8\x40\x27\x01\xe3\x51\x3d\x8d\x17\x00\x00\x00",
        28);
    const auto server = serving({httpAnswer(200, gzip, "Content-Encoding: gzip\r\n")});
    EXPECT_EQ(get(server.url()).body, "hello hello hello hello");
    EXPECT_THAT(server.requests()[0].headers.at("accept-encoding"), HasSubstr("gzip"));
}

TEST_F(HttpSessionTest, aBodyThatCannotBeDecodedIsAnError) {
    const auto server =
        serving({httpAnswer(200, "this is not gzip at all", "Content-Encoding: gzip\r\n")});
    EXPECT_EQ(failure(server.url()).code(), UrlErrorCode::cannotDecodeContentData);
}

TEST_F(HttpSessionTest, refusesAHeaderThatWouldBecomeTwo) {
    const auto server = serving({httpAnswer(200)});
    for (const HttpHeader& header :
         {HttpHeader{"Authorization", "Device a\r\nX-Evil: 1"}, HttpHeader{"X-A\r\nX-B", "1"},
          HttpHeader{"", "1"}, HttpHeader{"X-A", std::string("1\0002", 3)}}) {
        const UrlError error = failure({.url = server.url(), .headers = {header}});
        EXPECT_EQ(error.code(), UrlErrorCode::unknown);
        EXPECT_THAT(error.what(), Not(HasSubstr("Device")));
    }
    EXPECT_EQ(failure({.method = "GET / HTTP/1.1\r\n", .url = server.url()}).code(),
              UrlErrorCode::unknown);
    EXPECT_EQ(server.connections(), 0);
}

TEST_F(HttpSessionTest, keepsOneConnectionForManyRequests) {
    const auto server = serving({httpAnswer(200, "ok")});
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(get(server.url()).body, "ok");
    EXPECT_EQ(server.connections(), 1);
    EXPECT_THAT(server.requests(), SizeIs(10));
}

TEST_F(HttpSessionTest, resumesTheTlsSessionOnANewConnection) {
    const auto server = serving({httpAnswer(200, "ok"), Then::close});
    for (int i = 0; i < 3; ++i)
        get(server.url());
    EXPECT_EQ(server.connections(), 3);
    EXPECT_EQ(server.resumedSessions(), 2);
}

TEST_F(HttpSessionTest, aKeptConnectionThatTheServerClosedIsReplaced) {
    int served = 0;
    const auto server = serving([&](const ReceivedRequest&) {
        return ScriptedAnswer{httpAnswer(200, "ok"), ++served == 1 ? Then::close : Then::readNext};
    });
    get(server.url());
    loop.runReady();
    EXPECT_EQ(get(server.url()).body, "ok");
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(HttpSessionTest, waitsForNothingWhenIdle) {
    const auto server = serving({httpAnswer(200, "ok")});
    get(server.url());
    loop.runReady();
    EXPECT_EQ(loop.context.run_for(30ms), 0U);
}

TEST_F(HttpSessionTest, carriesAHundredRequestsAtOnce) {
    const auto server = serving([](const ReceivedRequest& request) {
        return ScriptedAnswer{httpAnswer(200, request.target)};
    });
    int right = 0;
    for (int i = 0; i < 100; ++i) {
        const std::string path = fmt::format("/{}", i);
        asio::co_spawn(loop.context, session().send({.url = server.url(path)}),
                       [&right, path](std::exception_ptr, HttpResponse response) {
                           right += response.body == path ? 1 : 0;
                       });
    }
    while (right < 100 && loop.context.run_one_for(1s) > 0) {
    }
    EXPECT_EQ(right, 100);
}

Task<void> sendAndForget(HttpClient* http, std::string url) {
    HttpRequest request{.url = std::move(url)};
    co_await http->send(std::move(request));
}

TEST_F(HttpSessionTest, aCancelledTaskEndsItsTransferAtOnce) {
    const auto server = serving({"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf"});
    BackgroundTask task(loop, sendAndForget(&session(), server.url()));
    while (server.requests().empty())
        loop.context.run_one_for(1s);
    EXPECT_EQ(server.openConnections(), 1);

    task.cancel();
    loop.runReady();
    ASSERT_TRUE(task.isDone);
    EXPECT_TRUE(task.wasCancelled());
    EXPECT_EQ(server.openConnections(), 0);

    const auto other = serving({httpAnswer(200, "ok")});
    EXPECT_EQ(get(other.url()).body, "ok");
}

TEST_F(HttpSessionTest, destructionEndsWhatIsUnderWay) {
    const auto server = serving({"", Then::silence});
    std::vector<std::string> ends;
    for (int i = 0; i < 3; ++i) {
        asio::co_spawn(loop.context, session().send({.url = server.url()}),
                       [&ends](std::exception_ptr error, const HttpResponse&) {
                           try {
                               std::rethrow_exception(error);
                           } catch (const std::exception& failure) {
                               ends.push_back(failure.what());
                           }
                       });
    }
    while (server.requests().size() < 3)
        loop.context.run_one_for(1s);
    client.reset();
    loop.runReady();
    EXPECT_THAT(ends, SizeIs(3));
    EXPECT_THAT(ends, Each("The session was closed (cancelled)"));
}

TEST_F(HttpSessionTest, aTaskThatOutlivesItsSessionBeforeItBeganEndsToo) {
    Task<HttpResponse> late = session().send({.url = "https://127.0.0.1:9/"});
    client.reset();
    try {
        loop.run(std::move(late));
        FAIL();
    } catch (const UrlError& error) {
        EXPECT_EQ(error.code(), UrlErrorCode::cancelled);
    }
}

TEST_F(HttpSessionTest, theLoopMayGoWithARequestUnderWay) {
    asio::io_context context;
    const TlsTestServer server(context, loopbackIdentity(), ScriptedAnswer{"", Then::silence});
    auto shortLived =
        std::make_unique<HttpSession>(context.get_executor(), *trust, noProxy, options);
    bool isEnded = false;
    asio::co_spawn(context, shortLived->send({.url = server.url()}),
                   [&isEnded](std::exception_ptr, const HttpResponse&) { isEnded = true; });
    while (server.requests().empty())
        context.run_one_for(1s);
    shortLived.reset();
    EXPECT_FALSE(isEnded);
}

TEST_F(HttpSessionTest, goesThroughTheProxyWithATunnel) {
    const auto server = serving({httpAnswer(200, "ok")});
    const ConnectProxy proxy(loop.context);
    std::vector<std::string> asked;
    proxies = [&](const std::string& host, std::uint16_t port) {
        asked.push_back(fmt::format("{}:{}", host, port));
        return ProxyAddress{"127.0.0.1", proxy.port(), "anna", "p@ss"};
    };
    EXPECT_EQ(send({.url = server.url("/", "localhost"), .headers = credentials()}).body, "ok");
    EXPECT_EQ(get(server.url("/", "localhost")).body, "ok");
    const std::string target = fmt::format("localhost:{}", server.port());
    EXPECT_THAT(asked, ElementsAre(target, target));
    ASSERT_THAT(proxy.tunnels(), SizeIs(1));
    EXPECT_EQ(proxy.tunnels()[0].target, target);
    EXPECT_EQ(proxy.tunnels()[0].authorization, "Basic YW5uYTpwQHNz");
    EXPECT_FALSE(server.requests()[0].headers.contains("proxy-authorization"));
}

TEST_F(HttpSessionTest, theServersCertificateCountsBehindAProxyToo) {
    const TlsTestServer server(loop.context, certificates().leaf({"127.0.0.2"}),
                               ScriptedAnswer{httpAnswer(200)});
    const ConnectProxy proxy(loop.context);
    proxies = [&](const std::string&, std::uint16_t) {
        return ProxyAddress{"127.0.0.1", proxy.port(), "", ""};
    };
    expectFailure(server.url(), "The certificate is for another host (serverCertificateUntrusted)");
}

TEST_F(HttpSessionTest, aProxyThatRefuses) {
    ConnectProxy proxy(loop.context);
    proxy.refuseWith(407);
    proxies = [&](const std::string&, std::uint16_t) {
        return ProxyAddress{"127.0.0.1", proxy.port(), "", ""};
    };
    expectFailure("https://desk.example/",
                  "The proxy refused the connection with status 407 (cannotConnectToHost)");
}

TEST_F(HttpSessionTest, theEnvironmentDoesNotOverruleTheProxyLookup) {
    const auto server = serving({httpAnswer(200, "ok")});
    const ScopedEnvironment variable("https_proxy", "http://127.0.0.1:9");
    EXPECT_EQ(get(server.url()).body, "ok");

    const ScopedEnvironment exception("no_proxy", "*");
    const ConnectProxy proxy(loop.context);
    proxies = [&](const std::string&, std::uint16_t) {
        return ProxyAddress{"127.0.0.1", proxy.port(), "", ""};
    };
    client.reset();
    EXPECT_EQ(get(server.url()).body, "ok");
    EXPECT_THAT(proxy.tunnels(), SizeIs(1));
}

}  // namespace
}  // namespace orv
