#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/WebSocket.h"
#include "OrvViewerShared/RemoteSessionRequest.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// Tells the helpdesk how a remote session is getting on.
class RemoteStatusReporter {
public:
    virtual ~RemoteStatusReporter() = default;

    /// Throws what the API client throws.
    virtual Task<void> updateRemoteStatus(std::string sessionPublicId, std::string status,
                                          std::optional<std::string> errorMessage,
                                          Json metadata) = 0;
};

/// Answers consultants' requests for a remote session: reports that the agent is ready, opens the
/// session's signaling socket and follows it. The media side is not part of this agent, so an
/// offer ends the session with an explanation. Sessions share nothing; several may be handled at
/// once.
class RemoteSessionAgent {
public:
    struct Parts {
        WebSocketConnector& connector;
        RemoteStatusReporter& reporter;
        const ViewerLogger& log;
    };

    explicit RemoteSessionAgent(Parts parts) : parts(parts) {}

    /// The whole reaction to one request; ends with the offer, an error, or cancellation (then the
    /// socket is closed with code 1001). Throws nothing but the cancellation error.
    Task<void> handle(RemoteSessionRequest request);

    /// What goes with every status.
    static Json remoteMetadata();

private:
    Task<void> connectSignaling(std::string url, std::string sessionPublicId);
    Task<void> followSignaling(WebSocketConnection& connection, std::string sessionPublicId);
    Task<void> report(std::string sessionPublicId, std::string status,
                      std::optional<std::string> errorMessage);

    Parts parts;
};

}  // namespace orv
