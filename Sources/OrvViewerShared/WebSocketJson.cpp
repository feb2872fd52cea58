#include "OrvViewerShared/WebSocketJson.h"

#include <utility>

#include <fmt/format.h>

#include "OrvViewerShared/ViewerError.h"

namespace orv {

namespace {

constexpr std::uint16_t noCode = 1005;

Json jsonObject(const std::string& data) {
    Json message = parseJson(data);
    if (!message.is_object()) {
        throw ViewerError::invalidResponse("WebSocket JSON object expected.");
    }
    return message;
}

}  // namespace

Task<void> sendJson(WebSocketConnection& connection, Json message) {
    std::string text = compactJson(message);
    co_await connection.sendText(std::move(text));
}

Task<JsonEvent> receiveJson(WebSocketConnection& connection) {
    const WebSocketEvent event = co_await connection.receive();
    if (const auto* close = std::get_if<WebSocketClosed>(&event)) co_return JsonEvent(*close);
    co_return JsonEvent(jsonObject(std::get<WebSocketMessage>(event).data));
}

std::string messageType(const Json& message) {
    return textIfPresent(message, "type").value_or("message");
}

UrlError closedByServer(WebSocketClosed close) {
    return UrlError(UrlErrorCode::networkConnectionLost,
                    close.code == noCode
                        ? "The server closed the WebSocket without a code"
                        : fmt::format("The server closed the WebSocket with code {}", close.code));
}

}  // namespace orv
