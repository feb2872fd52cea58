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
#include "OrvViewerShared/ControlInbox.h"
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

    /// Ends only when the task is cancelled: the socket is then closed with code 1001, the wake
    /// handler and remote sessions are cancelled and waited for, and the cancellation error is
    /// thrown. Messages are handled one after the other; the wake handler must not fail. The socket
    /// is read, kept alive and opened anew while the handler is at work. Without an identity
    /// nothing is opened. To be run once at a time; this object must outlive the task.
    Task<void> runForever(IdentityProvider identityProvider, CommandWakeHandler commandWakeHandler);

    /// The machine was asleep, and the connection may have died unnoticed: it is asked at once for
    /// a sign of life and replaced when none comes within 5 s.
    void machineWoke();

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
    void take(control::Message message);
    void pauseReadingWhileFull();
    static Task<void> controlHeartbeatLoop(std::shared_ptr<WebSocketConnection> connection,
                                           IdentityProvider identityProvider,
                                           std::chrono::seconds interval, Clock& clock);

    Parts parts;
    IdentityProvider identityProvider;
    ReconnectPolicy policy{std::chrono::seconds(parts.settings.controlReconnectMaxSeconds)};
    /// The connecting itself, the wake handler and the remote sessions.
    std::unique_ptr<TaskGroup> tasks;
    std::unique_ptr<ControlInbox> inbox;
    std::weak_ptr<WebSocketConnection> openConnection;
};

}  // namespace orv
