#pragma once

#include <chrono>
#include <memory>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/WebSocket.h"
#include "OrvPlatform/WebSocketKeepAlive.h"

namespace orv {

/// Beast's stream, kept out of this header for the sake of those who include it.
class TlsWebSocketStream;

struct WebSocketTimes {
    std::chrono::nanoseconds openWithin = std::chrono::seconds(60);  // look-up to upgrade
    std::chrono::nanoseconds closeWithin = std::chrono::seconds(1);
    std::chrono::nanoseconds answerAfterSleepWithin = std::chrono::seconds(5);  // the machine's
    KeepAliveTimes keepAlive;
};

/// An open WebSocket over TLS. Its own coroutines read, write and keep it alive; they share its
/// state, so it may be destroyed at any moment, which ends the connection without a close frame.
class BeastWebSocketConnection final : public WebSocketConnection {
public:
    /// The stream's upgrade is done; reading begins with the executor's next turn.
    BeastWebSocketConnection(std::unique_ptr<TlsWebSocketStream> stream, Clock& clock,
                             WebSocketTimes times);
    ~BeastWebSocketConnection() override;

    Task<WebSocketEvent> receive() override;
    Task<void> sendText(std::string text) override;
    Task<void> close(std::uint16_t code) override;
    void pauseReading(bool isPaused) override;
    void probe(std::chrono::nanoseconds deadline) override;

private:
    struct State;
    std::shared_ptr<State> state;
};

}  // namespace orv
