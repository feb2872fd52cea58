#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/compose.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "OrvPlatform/Task.h"

namespace orv {

/// A handler of a read or write, whatever its type: TLS is compiled for this one only, and not once
/// more for each operation of the WebSocket above it. Boost 1.82 has asio::any_completion_handler
/// for this, 1.81 has nothing.
class TransferHandler {
public:
    using executor_type = asio::any_io_executor;
    using cancellation_slot_type = asio::cancellation_slot;

    template <typename Handler>
    TransferHandler(Handler handler, const executor_type& ofStream)
        : executor(asio::get_associated_executor(handler, ofStream)),
          slot(asio::get_associated_cancellation_slot(handler)),
          target(std::make_unique<Holder<Handler>>(std::move(handler))) {}

    executor_type get_executor() const noexcept { return executor; }
    cancellation_slot_type get_cancellation_slot() const noexcept { return slot; }

    void operator()(boost::system::error_code failure, std::size_t count) {
        std::exchange(target, nullptr)->call(failure, count);
    }

private:
    struct Target {
        virtual ~Target() = default;
        virtual void call(boost::system::error_code failure, std::size_t count) = 0;
    };

    template <typename Handler>
    struct Holder final : Target {
        explicit Holder(Handler kept) : handler(std::move(kept)) {}
        void call(boost::system::error_code failure, std::size_t count) override {
            std::move(handler)(failure, count);
        }
        Handler handler;
    };

    executor_type executor;
    cancellation_slot_type slot;
    std::unique_ptr<Target> target;
};

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

    template <typename Buffers, typename Token>
    auto async_read_some(const Buffers& buffers, Token&& token) {
        return asio::async_initiate<Token, void(boost::system::error_code, std::size_t)>(
            [this](auto handler, asio::mutable_buffer buffer) {
                startReading(buffer, {std::move(handler), get_executor()});
            },
            token, firstToFill(buffers));
    }

    template <typename Buffers, typename Token>
    auto async_write_some(const Buffers& buffers, Token&& token) {
        return asio::async_initiate<Token, void(boost::system::error_code, std::size_t)>(
            [this](auto handler, std::vector<asio::const_buffer> pieces) {
                startWriting(std::move(pieces), {std::move(handler), get_executor()});
            },
            token,
            std::vector<asio::const_buffer>(asio::buffer_sequence_begin(buffers),
                                            asio::buffer_sequence_end(buffers)));
    }

private:
    /// TLS fills only one buffer at a time.
    template <typename Buffers>
    static asio::mutable_buffer firstToFill(const Buffers& buffers) {
        const auto end = asio::buffer_sequence_end(buffers);
        for (auto each = asio::buffer_sequence_begin(buffers); each != end; ++each) {
            const asio::mutable_buffer buffer = *each;
            if (buffer.size() != 0) return buffer;
        }
        return {};
    }

    void startReading(asio::mutable_buffer buffer, TransferHandler handler);
    void startWriting(std::vector<asio::const_buffer> buffers, TransferHandler handler);
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
