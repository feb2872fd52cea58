#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "OrvPlatform/AsyncEvent.h"
#include "OrvPlatform/UrlError.h"
#include "OrvPlatform/WebSocket.h"

namespace orv {

/// One connection as its server sees it; it stays readable when the agent has let it go.
class FakeSocket {
public:
    explicit FakeSocket(const asio::any_io_executor& executor) : changed(executor) {}

    WebSocketRequest request;
    std::vector<std::string> sent;           // by the agent
    std::optional<std::uint16_t> closeCode;  // of the agent's close
    bool refusesToSend = false;
    bool isReadingPaused = false;
    std::vector<std::chrono::nanoseconds> probes;  // their deadlines

    FakeSocket& says(std::string text);
    FakeSocket& saysInBinary(std::string bytes);
    FakeSocket& closes(std::uint16_t code);
    /// What was not read because reading was paused is lost with the connection.
    FakeSocket& breaks(const UrlError& error);

    /// Messages that the agent has not received yet.
    std::size_t waiting() const { return incoming.size(); }

private:
    friend class FakeWebSockets;
    friend class FakeConnection;
    bool hasSomethingToReceive() const {
        return !incoming.empty() &&
               (!isReadingPaused || std::holds_alternative<UrlError>(incoming.front()));
    }

    std::deque<std::variant<WebSocketEvent, UrlError>> incoming;
    AsyncEvent changed;
};

/// Opens connections in the order in which they were prepared; then ones on which nothing happens.
class FakeWebSockets final : public WebSocketConnector {
public:
    explicit FakeWebSockets(asio::any_io_executor executor) : executor(std::move(executor)) {}

    /// To be told what it says before or after it is opened.
    std::shared_ptr<FakeSocket> thenOpen();
    void thenFail(const UrlError& error);

    /// When set, what is opened after the prepared ones fails like this.
    std::optional<UrlError> failure;

    std::vector<WebSocketRequest> requests;
    std::vector<std::shared_ptr<FakeSocket>> opened;

    Task<std::unique_ptr<WebSocketConnection>> connect(WebSocketRequest request) override;

private:
    asio::any_io_executor executor;
    std::deque<std::variant<std::shared_ptr<FakeSocket>, UrlError>> prepared;
};

}  // namespace orv
