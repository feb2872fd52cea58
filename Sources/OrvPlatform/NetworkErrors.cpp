#include "OrvPlatform/NetworkErrors.h"

#include <boost/asio/error.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/websocket/error.hpp>
#include <boost/beast/zlib/error.hpp>
#include <fmt/format.h>
#include <openssl/ssl.h>

#include "OrvPlatform/TlsTrust.h"

namespace orv {

namespace {

namespace error = boost::asio::error;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using boost::system::error_code;

bool isOf(const error_code& code, const error_code& sample) {
    return code.category() == sample.category();
}

bool isEndOfStream(const error_code& code) {
    return code == error::eof || code == boost::asio::ssl::error::stream_truncated ||
           code == http::error::end_of_stream || code == http::error::partial_message;
}

bool isBrokenConnection(const error_code& code) {
    return isEndOfStream(code) || isOf(code, error_code(error::broken_pipe)) ||
           code.category() == error::get_ssl_category();
}

}  // namespace

UrlError connectError(const error_code& code) {
    UrlErrorCode meaning = UrlErrorCode::cannotConnectToHost;
    if (code == error::timed_out) meaning = UrlErrorCode::timedOut;
    if (code == error::network_unreachable || code == error::network_down) {
        meaning = UrlErrorCode::notConnectedToInternet;
    }
    return UrlError(meaning, code.message());
}

UrlError tlsHandshakeError(const error_code& code, const SSL* connection) {
    const long verified = SSL_get_verify_result(connection);
    if (verified != X509_V_OK) {
        return UrlError(UrlErrorCode::serverCertificateUntrusted, certificateRejection(verified));
    }
    if (isEndOfStream(code) || isOf(code, error_code(error::connection_reset))) {
        return UrlError(UrlErrorCode::networkConnectionLost,
                        "The server ended the connection during the TLS handshake");
    }
    return UrlError(UrlErrorCode::secureConnectionFailed,
                    fmt::format("No secure connection could be made: {}", code.message()));
}

UrlError webSocketUpgradeError(const error_code& code, int status) {
    if (code == websocket::error::upgrade_declined) {
        return UrlError(
            UrlErrorCode::badServerResponse,
            fmt::format("The server refused the WebSocket upgrade with HTTP {}", status));
    }
    if (isBrokenConnection(code)) {
        return UrlError(UrlErrorCode::networkConnectionLost,
                        "The connection ended during the WebSocket upgrade");
    }
    return UrlError(UrlErrorCode::badServerResponse,
                    fmt::format("The server's answer to the WebSocket upgrade is not valid: {}",
                                code.message()));
}

UrlError webSocketTransferError(const error_code& code) {
    if (code == error::timed_out) return UrlError(UrlErrorCode::timedOut, code.message());
    if (isEndOfStream(code)) {
        return UrlError(UrlErrorCode::networkConnectionLost,
                        "The server ended the connection without closing the WebSocket");
    }
    if (code == websocket::error::message_too_big) {
        return UrlError(UrlErrorCode::dataLengthExceedsMaximum,
                        "The server sent a message over the limit");
    }
    if (isOf(code, error_code(websocket::error::bad_opcode))) {
        return UrlError(
            UrlErrorCode::badServerResponse,
            fmt::format("The server violated the WebSocket protocol: {}", code.message()));
    }
    if (isOf(code, error_code(boost::beast::zlib::error::invalid_block_type))) {
        return UrlError(UrlErrorCode::cannotDecodeContentData,
                        fmt::format("A compressed message cannot be read: {}", code.message()));
    }
    return UrlError(UrlErrorCode::networkConnectionLost, code.message());
}

}  // namespace orv
