#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/HttpSession.h"
#include "OrvPlatform/UrlError.h"
#include "Support/TestCertificates.h"
#include "Support/TestLoop.h"
#include "Support/TlsTestServer.h"

namespace orv::test {

/// One authority for all tests of a run: making keys is what they would spend their time on.
inline TestCertificates& certificates() {
    static TestCertificates made;
    return made;
}

inline const TestIdentity& loopbackIdentity() {
    static const TestIdentity identity = certificates().leaf({"127.0.0.1", "localhost"});
    return identity;
}

inline std::shared_ptr<const std::string> bodyOf(std::string text) {
    return std::make_shared<const std::string>(std::move(text));
}

/// What must never reach a stranger: everything here that says "secret".
inline std::vector<HttpHeader> credentials() {
    return {{"Authorization", "Device secret"},
            {"X-Customer-Session", "secret"},
            {"X-Any-Key", "secret"},
            {"Cookie", "secret"},
            {"Accept", "application/json"}};
}

/// The real session and real servers on one loop. A test sets trust, proxies and options before
/// its first request.
class HttpSessionFixture : public ::testing::Test {
protected:
    HttpSession& session() {
        if (!client) {
            client = std::make_unique<HttpSession>(loop.executor(), *trust, proxies, options);
        }
        return *client;
    }

    HttpResponse send(HttpRequest request) { return loop.run(session().send(std::move(request))); }
    HttpResponse get(const std::string& url) { return send({.url = url}); }

    /// The error of a request that must fail.
    UrlError failure(HttpRequest request) {
        try {
            send(std::move(request));
        } catch (const UrlError& error) {
            return error;
        }
        throw std::runtime_error("The request succeeded");
    }
    UrlError failure(const std::string& url) { return failure(HttpRequest{.url = url}); }

    void expectFailure(const std::string& url, const std::string& what) {
        EXPECT_EQ(std::string(failure(url).what()), what);
    }

    TlsTestServer serving(ScriptedAnswer answer) {
        return {loop.context, loopbackIdentity(), std::move(answer)};
    }
    TlsTestServer serving(TlsTestServer::Script script) {
        return {loop.context, loopbackIdentity(), std::move(script)};
    }

    static std::optional<ProxyAddress> noProxy(const std::string&, std::uint16_t) {
        return std::nullopt;
    }

    TestLoop loop;
    std::unique_ptr<TlsTrust> trust = certificates().trust();
    ProxyLookup proxies = noProxy;
    HttpSessionOptions options{.userAgent = "Wsparo/test"};
    std::unique_ptr<HttpSession> client;
};

}  // namespace orv::test
