#pragma once

#include <string>
#include <variant>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/UrlError.h"
#include "OrvPlatform/WebSocket.h"

namespace orv {

/// Both sockets of the helpdesk speak JSON objects, one a message.
using JsonEvent = std::variant<Json, WebSocketClosed>;

/// Sends the object as one text frame. Throws UrlError. The connection must outlive the task.
Task<void> sendJson(WebSocketConnection& connection, Json message);

/// The next object, from a text or a binary frame, or the server's close. Throws UrlError,
/// DecodingError for what is no JSON, ViewerError::invalidResponse for JSON that is no object. The
/// connection must outlive the task.
Task<JsonEvent> receiveJson(WebSocketConnection& connection);

/// The "type" of a message; "message" when it has none or one that is no text.
std::string messageType(const Json& message);

/// The server's close as the failure that it is for those who did not expect it.
UrlError closedByServer(WebSocketClosed close);

}  // namespace orv
