#pragma once

#include <functional>
#include <utility>

#include <boost/asio/compose.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "OrvPlatform/Task.h"

namespace orv {

/// A TLS connection under a WebSocket; a type of its own so that its end is ours to decide.
class TlsStream : public asio::ssl::stream<asio::ip::tcp::socket> {
public:
    using asio::ssl::stream<asio::ip::tcp::socket>::stream;

    /// Called when the orderly end of the connection begins, which the other side may delay for
    /// ever: the time to set it a limit.
    std::function<void()> whenEnding;

    void closeSocket() {
        boost::system::error_code ignored;
        next_layer().close(ignored);
    }
};

/// Ends TLS in the orderly way, then TCP. The library's own would report how that went instead of
/// why the WebSocket ended; here it is a courtesy that cannot fail.
template <typename Handler>
void async_teardown(boost::beast::role_type, TlsStream& stream, Handler&& handler) {
    auto step = [&stream, hasBegun = false](auto& self, boost::system::error_code = {}) mutable {
        if (!std::exchange(hasBegun, true)) {
            if (stream.whenEnding) stream.whenEnding();
            stream.async_shutdown(std::move(self));
            return;
        }
        stream.closeSocket();
        self.complete({});
    };
    asio::async_compose<Handler, void(boost::system::error_code)>(std::move(step), handler, stream);
}

}  // namespace orv
