#pragma once

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/WebSocket.h"
#include "Support/TestWebSocketServer.h"

/// What the servers and tasks of several WebSocket tests do.
namespace orv::test {

constexpr std::uint8_t finText = 0x81;  // the first byte of a whole text message

/// A server that is well and silent.
inline Task<void> answerPings(std::shared_ptr<ServerConnection> connection) {
    co_await connection->upgrade();
    co_await connection->readToTheEnd();
}

/// A server that vanished: what it is sent arrives nowhere.
inline Task<void> swallowPings(std::shared_ptr<ServerConnection> connection) {
    co_await connection->upgrade();
    co_await connection->swallowToTheEnd();
}

/// Texts of this size that begin with their number, from 0; `sent` tells how many went out.
inline Task<void> sendNumbers(std::shared_ptr<ServerConnection> connection, int count,
                              std::size_t size, int& sent) {
    for (sent = 0; sent < count; ++sent) {
        std::string text = std::to_string(sent);
        text.resize(std::max(size, text.size()), ' ');
        co_await connection->sendRaw(serverFrame(finText, text));
    }
    co_await connection->readToTheEnd();
}

/// The same from the beginning.
inline Task<void> sendNumbered(std::shared_ptr<ServerConnection> connection, int count,
                               std::size_t size, int& sent) {
    co_await connection->upgrade();
    co_await sendNumbers(connection, count, size, sent);
}

/// The same as soon as the client has said something.
inline Task<void> sendNumberedWhenAsked(std::shared_ptr<ServerConnection> connection, int count,
                                        int& sent) {
    co_await connection->upgrade();
    co_await connection->receive();
    co_await sendNumbers(connection, count, 1, sent);
}

inline Task<void> receiveInto(Task<WebSocketEvent> receiving, std::vector<std::string>& texts) {
    const WebSocketEvent event = co_await std::move(receiving);
    texts.push_back(std::get<WebSocketMessage>(event).data);
}

/// What a task ended with.
inline std::string whatOf(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& failure) {
        return isCancellation(failure) ? "cancelled" : failure.what();
    }
}

}  // namespace orv::test
