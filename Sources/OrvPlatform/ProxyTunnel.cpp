#include "OrvPlatform/ProxyTunnel.h"

#include <optional>
#include <utility>

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <fmt/format.h>
#include <openssl/evp.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/TcpConnect.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

namespace {

namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using TunnelRequest = http::request<http::empty_body>;

std::string base64(const std::string& text) {
    std::string encoded((text.size() + 2) / 3 * 4 + 1, '\0');  // with the zero at the end
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()), bytes,
                                       static_cast<int>(text.size()));
    encoded.resize(static_cast<std::size_t>(length));
    return encoded;
}

TunnelRequest tunnelRequest(const ProxyAddress& proxy, const std::string& host,
                            std::uint16_t port) {
    const bool isIpV6 = host.find(':') != std::string::npos;
    const std::string authority = fmt::format("{}:{}", isIpV6 ? "[" + host + "]" : host, port);
    TunnelRequest request(http::verb::connect, authority, 11);
    request.set(http::field::host, authority);
    if (!proxy.user.empty()) {
        request.set(http::field::proxy_authorization,
                    "Basic " + base64(proxy.user + ":" + proxy.password));
    }
    return request;
}

void throwIfFailed(const error_code& failure) {
    if (!failure) return;
    if (failure == asio::error::operation_aborted) throwCancellation();
    throw UrlError(UrlErrorCode::cannotConnectToHost,
                   fmt::format("The proxy did not answer properly: {}", failure.message()));
}

}  // namespace

Task<tcp::socket> connectThroughProxy(ProxyAddress proxy, std::string host, std::uint16_t port,
                                      Clock& clock) {
    tcp::socket socket = co_await connectTcp(proxy.host, proxy.port, clock);
    const TunnelRequest request = tunnelRequest(proxy, host, port);
    error_code failure;
    co_await http::async_write(socket, request, asio::redirect_error(asio::use_awaitable, failure));
    throwIfFailed(failure);

    boost::beast::flat_buffer buffer;
    http::response_parser<http::empty_body> answer;
    answer.skip(true);  // a tunnel follows the header, not a body
    co_await http::async_read_header(socket, buffer, answer,
                                     asio::redirect_error(asio::use_awaitable, failure));
    throwIfFailed(failure);
    if (http::to_status_class(answer.get().result()) != http::status_class::successful) {
        throw UrlError(UrlErrorCode::cannotConnectToHost,
                       fmt::format("The proxy refused the connection with status {}",
                                   answer.get().result_int()));
    }
    if (buffer.size() != 0) {
        throw UrlError(UrlErrorCode::cannotConnectToHost,
                       "The proxy sent something of its own through the tunnel");
    }
    co_return std::move(socket);
}

}  // namespace orv
