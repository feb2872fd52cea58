#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/TaskGroup.h"
#include "OrvPlatform/WebSocket.h"
#include "OrvViewerShared/AgentIdentity.h"
#include "OrvViewerShared/ControlProtocol.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "OrvViewerShared/ViewerSettings.h"

namespace orv {

/// What the control channel needs of the API client.
class ControlCredentials {
public:
    virtual ~ControlCredentials() = default;

    /// A request for the URL, authorised as the device, else as the organisation, else not at all.
    virtual WebSocketRequest authenticatedWebSocketRequest(std::string url) = 0;

    /// Drops the stored device token when this error says that it is invalid; whether it did.
    virtual bool recoverInvalidDeviceToken(const std::exception& error) = 0;
};

/// Keeps one WebSocket to the helpdesk open for ever. Over it the helpdesk wakes the agent when a
/// command is queued, asks for remote sessions, and may reject the agent; the agent greets it and
/// sends heartbeats.
class ControlChannel {
public:
    using IdentityProvider = std::function<std::optional<AgentIdentity>()>;
    using CommandWakeHandler = std::function<Task<void>()>;

    struct Parts {
        ViewerSettings settings;
        ControlCredentials& credentials;
        WebSocketConnector& connector;
        Clock& clock;
        const ViewerLogger& log;
        /// Runs beside the connection, and on when the connection is opened anew.
        std::function<Task<void>(RemoteSessionRequest)> remoteSessionHandler;
        /// Told of every failure of a connection, before the wait that follows it.
        std::function<void(const std::exception&)> connectionErrorHandler;
    };

    explicit ControlChannel(Parts parts) : parts(std::move(parts)) {}

    /// Ends only when the task is cancelled: the socket is then closed with code 1001, remote
    /// sessions are cancelled and waited for, and the cancellation error is thrown. Messages are
    /// handled one after the other; the wake handler is waited for and must not fail. Without an
    /// identity nothing is opened. To be run once at a time; this object must outlive the task.
    Task<void> runForever(IdentityProvider identityProvider, CommandWakeHandler commandWakeHandler);

private:
    struct ServedConnection {
        WebSocketClosed close;
        std::chrono::nanoseconds lifetime{0};  // from the opening
    };

    Task<void> reconnectForever();
    Task<std::exception_ptr> failureOfOneConnection(AgentIdentity identity);
    Task<ServedConnection> connect(AgentIdentity identity);
    Task<WebSocketClosed> serve(std::shared_ptr<WebSocketConnection> connection,
                                AgentIdentity identity);
    Task<void> handle(control::Message message);
    static Task<void> controlHeartbeatLoop(std::shared_ptr<WebSocketConnection> connection,
                                           IdentityProvider identityProvider,
                                           std::chrono::seconds interval, Clock& clock);

    Parts parts;
    IdentityProvider identityProvider;
    CommandWakeHandler commandWakeHandler;
    ReconnectPolicy policy{std::chrono::seconds(parts.settings.controlReconnectMaxSeconds)};
    std::unique_ptr<TaskGroup> remoteSessions;
};

}  // namespace orv
