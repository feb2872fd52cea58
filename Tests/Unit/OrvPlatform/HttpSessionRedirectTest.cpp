#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/HttpSession.h"
#include "Support/HttpSessionFixture.h"

namespace orv {
namespace {

using test::bodyOf;
using test::credentials;
using test::httpAnswer;
using test::ReceivedRequest;
using test::ScriptedAnswer;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

using HttpSessionRedirectTest = test::HttpSessionFixture;

ScriptedAnswer redirectTo(const std::string& location, int status = 302) {
    return {httpAnswer(status, "elsewhere", "Location: " + location + "\r\n")};
}

TEST_F(HttpSessionRedirectTest, followsARedirectOnTheSameOriginWithEverything) {
    const auto server = serving([](const ReceivedRequest& request) {
        return request.target == "/a/old" ? redirectTo("../new?q=1")
                                          : ScriptedAnswer{httpAnswer(200, "new")};
    });
    const HttpResponse response = send({.url = server.url("/a/old"), .headers = credentials()});
    EXPECT_EQ(response.body, "new");
    ASSERT_THAT(server.requests(), SizeIs(2));
    EXPECT_EQ(server.requests()[1].target, "/new?q=1");
    EXPECT_EQ(server.requests()[1].headers.at("authorization"), "Device secret");
    EXPECT_EQ(server.requests()[1].headers.at("x-customer-session"), "secret");
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(HttpSessionRedirectTest, takesNoCredentialToAnotherHost) {
    const auto second = serving({httpAnswer(200, "second")});
    const auto first = serving(redirectTo(second.url("/", "localhost")));
    EXPECT_EQ(send({.url = first.url(), .headers = credentials()}).body, "second");
    EXPECT_EQ(first.requests()[0].headers.at("authorization"), "Device secret");
    ASSERT_THAT(second.requests(), SizeIs(1));
    EXPECT_EQ(second.requests()[0].headers.at("accept"), "application/json");
    for (const auto& [name, value] : second.requests()[0].headers) {
        EXPECT_THAT(value, Not(HasSubstr("secret"))) << name;
    }
}

TEST_F(HttpSessionRedirectTest, takesNoCredentialToAnotherPortNorBackAgain) {
    std::string firstUrl;
    const auto second = serving([&](const ReceivedRequest&) { return redirectTo(firstUrl, 307); });
    const auto first = serving([&](const ReceivedRequest& request) {
        return request.target == "/back" ? ScriptedAnswer{httpAnswer(200)}
                                         : redirectTo(second.url(), 307);
    });
    firstUrl = first.url("/back");
    send({"POST", first.url(), credentials(), bodyOf("body")});
    ASSERT_THAT(second.requests(), SizeIs(1));
    EXPECT_FALSE(second.requests()[0].headers.contains("authorization"));
    ASSERT_THAT(first.requests(), SizeIs(2));
    EXPECT_FALSE(first.requests()[1].headers.contains("authorization"));
}

struct RedirectCase {
    const char* method;
    int status;
    const char* expectedMethod;
    bool keepsBody;
};

class HttpRedirectMethodTest : public test::HttpSessionFixture,
                               public ::testing::WithParamInterface<RedirectCase> {};

TEST_P(HttpRedirectMethodTest, treatsMethodAndBodyAsUrlLoadersDo) {
    const RedirectCase expected = GetParam();
    const auto server = serving([&](const ReceivedRequest& request) {
        return request.target == "/" ? redirectTo("/next", expected.status)
                                     : ScriptedAnswer{httpAnswer(204)};
    });
    HttpRequest request{expected.method, server.url(), {}, nullptr};
    if (request.method != "GET") {
        request.headers = {{"Content-Type", "text/plain"}};
        request.body = bodyOf("body");
    }
    EXPECT_EQ(send(request).status, 204);
    ASSERT_THAT(server.requests(), SizeIs(2));
    EXPECT_EQ(server.requests()[1].method, expected.expectedMethod);
    EXPECT_EQ(server.requests()[1].body, expected.keepsBody ? "body" : "");
    EXPECT_EQ(server.requests()[1].headers.contains("content-type"), expected.keepsBody);
}

INSTANTIATE_TEST_SUITE_P(Redirects, HttpRedirectMethodTest,
                         ::testing::Values(RedirectCase{"POST", 301, "GET", false},
                                           RedirectCase{"POST", 302, "GET", false},
                                           RedirectCase{"POST", 303, "GET", false},
                                           RedirectCase{"POST", 307, "POST", true},
                                           RedirectCase{"POST", 308, "POST", true},
                                           RedirectCase{"PUT", 301, "PUT", true},
                                           RedirectCase{"PUT", 302, "PUT", true},
                                           RedirectCase{"PUT", 303, "GET", false},
                                           RedirectCase{"GET", 301, "GET", false},
                                           RedirectCase{"GET", 307, "GET", false},
                                           RedirectCase{"DELETE", 303, "GET", false}));

TEST_F(HttpSessionRedirectTest, neverFollowsToPlainHttp) {
    const auto server = serving(redirectTo("http://127.0.0.1:9/next"));
    expectFailure(server.url(),
                  "The redirect leads to plain http at 127.0.0.1 (redirectToNonSecureURL)");
    const auto other = serving(redirectTo("ftp://127.0.0.1:9/next"));
    EXPECT_EQ(failure(other.url()).code(), UrlErrorCode::unsupportedUrl);
    const auto broken = serving(redirectTo("https://[::1/next"));
    EXPECT_EQ(failure(broken.url()).code(), UrlErrorCode::badUrl);
}

TEST_F(HttpSessionRedirectTest, followsTwentyRedirectsAndNotOneMore) {
    int redirects = 20;
    int served = 0;
    const auto server = serving([&](const ReceivedRequest&) {
        return served++ < redirects ? redirectTo("/next")
                                    : ScriptedAnswer{httpAnswer(200, "there")};
    });
    EXPECT_EQ(get(server.url()).body, "there");
    served = 0;
    redirects = 21;
    expectFailure(server.url(), "More than 20 redirects (httpTooManyRedirects)");
    EXPECT_EQ(served, 21);
}

TEST_F(HttpSessionRedirectTest, aRedirectStatusThatLeadsNowhereIsAnAnswer) {
    for (const int status : {300, 304, 302}) {
        const auto server = serving({httpAnswer(status, status == 304 ? "" : "body")});
        EXPECT_EQ(get(server.url()).status, status);
    }
}

}  // namespace
}  // namespace orv
