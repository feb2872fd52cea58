#include "OrvPlatform/BeastWebSocket.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <fmt/format.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Deadline.h"
#include "OrvPlatform/NetworkErrors.h"
#include "OrvPlatform/ProxyTunnel.h"
#include "OrvPlatform/TcpConnect.h"
#include "OrvPlatform/Text.h"
#include "OrvPlatform/TlsWebSocketStream.h"
#include "OrvPlatform/Url.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

namespace {

namespace websocket = boost::beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;
using StreamPointer = std::unique_ptr<TlsWebSocketStream>;

constexpr std::uint16_t defaultPort = 443;
constexpr std::size_t largestMessage = 1024 * 1024;  // bytes

Url destinationOf(const std::string& text) {
    std::optional<Url> url = parseUrl(text);
    if (!url || url->host.empty()) throw UrlError(UrlErrorCode::badUrl, "Not a valid URL: " + text);
    if (!equalsIgnoringCase(url->scheme, "wss")) {
        throw UrlError(UrlErrorCode::unsupportedUrl, "Only wss URLs are supported: " + text);
    }
    if (url->path.empty()) url->path.push_back('/');
    return std::move(*url);
}

/// As the Host header names it.
std::string authorityOf(const Url& url) {
    const bool isIpV6 = url.host.find(':') != std::string::npos;
    const std::string host = isIpV6 ? "[" + url.host + "]" : url.host;
    const std::uint16_t port = url.port.value_or(defaultPort);
    return port == defaultPort ? host : fmt::format("{}:{}", host, port);
}

/// A line break in a value would begin a header of its own.
void requireSendable(const std::vector<HttpHeader>& headers) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\t'; };
    for (const HttpHeader& header : headers) {
        if (std::any_of(header.value.begin(), header.value.end(), isControl)) {
            throw UrlError(UrlErrorCode::badUrl,
                           fmt::format("The header {} cannot be sent", header.name));
        }
    }
}

/// An agent has one such connection for months, mostly idle: it must stay small. What it sends is
/// too short to be worth compressing, what it receives is decompressed within a small window.
void keepSmall(TlsWebSocketStream& stream) {
    websocket::permessage_deflate compression;
    compression.client_enable = true;
    compression.server_max_window_bits = 10;
    compression.client_max_window_bits = 9;
    compression.server_no_context_takeover = true;
    compression.client_no_context_takeover = true;
    stream.set_option(compression);
    stream.compress(false);
    stream.auto_fragment(false);
    stream.read_message_max(largestMessage);
}

void setHeaders(websocket::request_type& upgrade, const std::vector<HttpHeader>& headers) {
    for (const HttpHeader& header : headers)
        upgrade.set(header.name, header.value);
}

Task<tcp::socket> reach(std::string host, std::uint16_t port, std::optional<ProxyAddress> proxy,
                        Clock& clock) {
    if (proxy) return connectThroughProxy(*proxy, std::move(host), port, clock);
    return connectTcp(std::move(host), port, clock);
}

Task<void> secure(TlsStream& stream, std::string host) {
    try {
        TlsTrust::requireHost(stream.native_handle(), host);
    } catch (const std::runtime_error& error) {
        throw UrlError(UrlErrorCode::badUrl, error.what());
    }
    error_code failure;
    co_await stream.async_handshake(asio::ssl::stream_base::client,
                                    asio::redirect_error(asio::use_awaitable, failure));
    if (failure == asio::error::operation_aborted) throwCancellation();
    if (failure) throw tlsHandshakeError(failure, stream.native_handle());
}

Task<void> upgrade(TlsWebSocketStream& stream, Url url, std::vector<HttpHeader> headers) {
    const std::string authority = authorityOf(url);
    const std::string target = url.query ? url.path + "?" + *url.query : url.path;
    stream.set_option(websocket::stream_base::decorator(
        [headers = std::move(headers)](websocket::request_type& request) {
            setHeaders(request, headers);
        }));
    websocket::response_type answer;
    error_code failure;
    co_await stream.async_handshake(answer, authority, target,
                                    asio::redirect_error(asio::use_awaitable, failure));
    if (failure == asio::error::operation_aborted) throwCancellation();
    if (failure) throw webSocketUpgradeError(failure, static_cast<int>(answer.result_int()));
}

Task<StreamPointer> open(WebSocketRequest request, std::shared_ptr<asio::ssl::context> context,
                         ProxyLookup proxyFor, Clock& clock) {
    const Url url = destinationOf(request.url);
    requireSendable(request.headers);
    const std::uint16_t port = url.port.value_or(defaultPort);
    const std::optional<ProxyAddress> proxy = proxyFor(url.host, port);
    tcp::socket socket = co_await reach(url.host, port, proxy, clock);
    auto stream = std::make_unique<TlsWebSocketStream>(std::move(socket), *context);
    keepSmall(*stream);
    co_await secure(stream->next_layer(), url.host);
    co_await upgrade(*stream, url, std::move(request.headers));
    co_return stream;
}

}  // namespace

BeastWebSocketConnector::BeastWebSocketConnector(Parts parts)
    : context(std::make_shared<asio::ssl::context>(asio::ssl::context::tls_client)),
      clock(parts.clock),
      proxyFor(std::move(parts.proxyFor)),
      times(parts.times) {
    parts.trust.applyTo(context->native_handle());
    SSL_CTX_set_mode(context->native_handle(), SSL_MODE_RELEASE_BUFFERS);
}

BeastWebSocketConnector::~BeastWebSocketConnector() = default;

Task<std::unique_ptr<WebSocketConnection>> BeastWebSocketConnector::connect(
    WebSocketRequest request) {
    const WebSocketTimes limits = times;
    Clock& drivingClock = clock;
    std::optional<StreamPointer> stream = co_await finishedWithin(
        drivingClock, limits.openWithin, open(std::move(request), context, proxyFor, drivingClock));
    if (!stream) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limits.openWithin);
        throw UrlError(UrlErrorCode::timedOut,
                       fmt::format("The connection did not open within {} s", seconds.count()));
    }
    co_return std::make_unique<BeastWebSocketConnection>(std::move(*stream), drivingClock, limits);
}

}  // namespace orv
