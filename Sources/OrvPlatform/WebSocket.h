#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "OrvPlatform/HttpClient.h"
#include "OrvPlatform/Task.h"

namespace orv {

struct WebSocketRequest {
    std::string url;  // ws or wss
    std::vector<HttpHeader> headers;
};

struct WebSocketMessage {
    bool isText = true;
    std::string data;
};

/// The other side closed with the close handshake.
struct WebSocketClosed {
    std::uint16_t code = 1005;  // 1005: a close frame without a code
};

using WebSocketEvent = std::variant<WebSocketMessage, WebSocketClosed>;

/// Close codes of RFC 6455 that the agent uses.
inline constexpr std::uint16_t webSocketNormalClosure = 1000;
inline constexpr std::uint16_t webSocketGoingAway = 1001;

/// An open connection. Reads go on from the opening to the end, whether or not someone receives,
/// so that pings are answered; at most 64 messages wait, then reading pauses. To be used on the
/// core thread only.
class WebSocketConnection {
public:
    virtual ~WebSocketConnection() = default;

    /// The next message in order, or the other side's close. Throws UrlError when the connection
    /// broke, was given up as dead, or the other side violated the protocol or a limit.
    virtual Task<WebSocketEvent> receive() = 0;

    /// Queues one text frame and returns when it has been handed to the network. Several tasks may
    /// send; their frames do not mix. Throws UrlError; timedOut when the other side takes nothing
    /// for as long as a dead peer is tolerated.
    virtual Task<void> sendText(std::string text) = 0;

    /// Sends a close frame and waits a moment for the answer. Never throws for the network's sake;
    /// afterwards the connection is closed whatever the other side did.
    virtual Task<void> close(std::uint16_t code) = 0;

    /// For receivers with a queue of their own: nothing more is read while it is full. What was
    /// under way may still arrive. The end of the connection is noticed nevertheless.
    virtual void pauseReading(bool isPaused) = 0;

    /// Sends a ping at once; the connection is given up (timedOut) when it is not answered within
    /// the deadline. For moments at which a connection is likely to be dead, such as the machine's
    /// waking. Ignored while reading pauses, for no answer could be seen.
    virtual void probe(std::chrono::nanoseconds deadline) = 0;
};

class WebSocketConnector {
public:
    virtual ~WebSocketConnector() = default;

    /// Throws UrlError: badServerResponse with the status in its description when the upgrade is
    /// refused, otherwise the codes that HTTP uses.
    virtual Task<std::unique_ptr<WebSocketConnection>> connect(WebSocketRequest request) = 0;
};

}  // namespace orv
