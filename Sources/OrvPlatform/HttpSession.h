#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include <boost/asio/any_io_executor.hpp>

#include "OrvPlatform/HttpClient.h"
#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/TlsTrust.h"

namespace orv {

struct HttpSessionOptions {
    /// Without a byte in either direction; looking up the host, connecting and the TLS handshake
    /// count as such a time each.
    std::chrono::milliseconds idleTimeout = std::chrono::seconds(12);
    /// For the whole exchange, redirects included.
    std::chrono::milliseconds totalTimeout = std::chrono::seconds(20);
    /// Of an answer, decompressed.
    std::size_t maximumBodyBytes = std::size_t{256} * 1024 * 1024;
    int maximumRedirects = 20;
    std::string userAgent;  // empty: none is sent
};

/// HTTP over TLS, and nothing else: a URL of another kind is refused. Keeps connections and TLS
/// sessions for the next request; speaks HTTP/2 with servers that offer it. Has no cookies and no
/// cache. To be used on the executor's one thread; destroying it ends its exchanges with
/// UrlError cancelled.
class HttpSession final : public HttpClient {
public:
    /// The trust must outlive this object and the end of its exchanges.
    HttpSession(asio::any_io_executor executor, const TlsTrust& trust, ProxyLookup proxies,
                HttpSessionOptions options);
    ~HttpSession() override;
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;

    Task<HttpResponse> send(HttpRequest request) override;

private:
    struct State;
    std::shared_ptr<State> state;
};

}  // namespace orv
