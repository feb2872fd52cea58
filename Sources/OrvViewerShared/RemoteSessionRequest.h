#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/Json.h"

namespace orv {

/// A consultant's wish for a remote session, as the control socket brings it:
///
///     {"type": "remote_session.requested",
///      "session": {"public_id": "...", "status": "...", "metadata": {...},
///                  "control_urls": {"signaling": "wss://...", "relay_url": "..."}}}
///
/// "publicId" and "controlUrls" are understood as well.
struct RemoteSessionRequest {
    std::string sessionPublicId;
    std::string status;  // empty when the message has none
    std::optional<std::string> signalingUrl;
    std::optional<std::string> relayUrl;
    std::optional<Json> metadata;  // an object

    bool operator==(const RemoteSessionRequest&) const = default;

    /// Nothing when the message is of another type or names no session. A URL that is none counts
    /// as absent.
    static std::optional<RemoteSessionRequest> parse(const Json& message);
};

}  // namespace orv
