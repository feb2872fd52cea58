#include "OrvViewerShared/ControlChannel.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <variant>

#include <boost/asio/this_coro.hpp>

#include "OrvPlatform/Cancellation.h"
#include "OrvViewerShared/ViewerError.h"
#include "OrvViewerShared/WebSocketJson.h"

namespace orv {

namespace {

constexpr std::chrono::seconds identityWait{5};
constexpr std::int64_t longestHeartbeatInterval = 10LL * 365 * 24 * 3600;  // seconds

bool isGoodOrder(WebSocketClosed close) {
    return close.code == webSocketNormalClosure || close.code == webSocketGoingAway;
}

}  // namespace

Task<void> ControlChannel::runForever(IdentityProvider identities, CommandWakeHandler wake) {
    identityProvider = std::move(identities);
    commandWakeHandler = std::move(wake);
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    remoteSessions = std::make_unique<TaskGroup>(
        executor, [&log = parts.log](const std::string&, const std::exception& error) {
            log.error(error, "Remote session failed");
        });
    std::exception_ptr end;
    try {
        co_await reconnectForever();
    } catch (...) {
        end = std::current_exception();
    }
    co_await asio::this_coro::reset_cancellation_state(asio::disable_cancellation());
    remoteSessions->cancel();
    co_await remoteSessions->join();
    std::rethrow_exception(end);
}

Task<void> ControlChannel::reconnectForever() {
    for (;;) {
        const std::optional<AgentIdentity> identity = identityProvider();
        if (!identity) {
            parts.log.warn("Control WSS waits for device identity.");
            co_await parts.clock.sleepFor(identityWait);
            continue;
        }
        const std::exception_ptr failure = co_await failureOfOneConnection(*identity);
        if (!failure) continue;
        try {
            std::rethrow_exception(failure);
        } catch (const std::exception& error) {
            if (isCancellation(error)) throw;
            parts.log.error(error, "Control WSS disconnected");
            parts.credentials.recoverInvalidDeviceToken(error);
            parts.connectionErrorHandler(error);
        }
        co_await parts.clock.sleepFor(policy.nextWait());
    }
}

/// Nothing when the connection ended normally.
Task<std::exception_ptr> ControlChannel::failureOfOneConnection(AgentIdentity identity) {
    std::exception_ptr failure;
    try {
        const ServedConnection served = co_await connect(std::move(identity));
        failure = std::make_exception_ptr(closedByServer(served.close));
        if (isGoodOrder(served.close)) {
            co_return policy.closedInGoodOrder(served.lifetime) ? nullptr : failure;
        }
    } catch (...) {
        failure = std::current_exception();
    }
    policy.failed();
    co_return failure;
}

Task<ControlChannel::ServedConnection> ControlChannel::connect(AgentIdentity identity) {
    const std::optional<std::string> url = controlUrl(parts.settings.serverBaseUrl);
    if (!url) throw ViewerError::configuration("Invalid control WSS URL.");
    WebSocketRequest request = parts.credentials.authenticatedWebSocketRequest(*url);
    parts.log.info("Control WSS connecting: " + *url);
    const std::shared_ptr<WebSocketConnection> connection =
        co_await parts.connector.connect(std::move(request));
    const MonotonicTime openedAt = parts.clock.monotonicNow();
    ServedConnection served;
    std::exception_ptr failure;
    try {
        served.close = co_await serve(connection, std::move(identity));
    } catch (...) {
        failure = std::current_exception();
    }
    served.lifetime = parts.clock.monotonicNow() - openedAt;
    // Whoever was told to stop still says goodbye.
    const auto cancellation = co_await asio::this_coro::cancellation_state;
    if (cancellation.cancelled() != asio::cancellation_type::none) {
        co_await asio::this_coro::reset_cancellation_state(asio::disable_cancellation());
    }
    co_await connection->close(webSocketGoingAway);
    if (failure) std::rethrow_exception(failure);
    co_return served;
}

/// Until the server closes the connection, which is what is returned.
Task<WebSocketClosed> ControlChannel::serve(std::shared_ptr<WebSocketConnection> connection,
                                            AgentIdentity identity) {
    co_await sendJson(*connection, controlHello(identity));
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    // A heartbeat fails with the connection, and receiving tells why.
    const auto receivingFailsToo = [](const std::string&, const std::exception&) {};
    TaskGroup heartbeat(executor, receivingFailsToo);
    // The settings know no longest interval, clocks do.
    const std::chrono::seconds interval(
        std::min(parts.settings.heartbeatIntervalSeconds, longestHeartbeatInterval));
    heartbeat.spawn("control heartbeat",
                    controlHeartbeatLoop(connection, identityProvider, interval, parts.clock));
    for (;;) {
        const JsonEvent event = co_await receiveJson(*connection);
        if (const auto* close = std::get_if<WebSocketClosed>(&event)) co_return *close;
        co_await handle(control::interpret(std::get<Json>(event)));
    }
}

Task<void> ControlChannel::handle(control::Message message) {
    if (std::holds_alternative<control::Ready>(message)) {
        parts.log.info("Control WSS ready.");
    } else if (const auto* queued = std::get_if<control::CommandQueued>(&message)) {
        parts.log.info("Control WSS wake-up received for command type=" + queued->commandType);
        co_await commandWakeHandler();
    } else if (const auto* wish = std::get_if<control::RemoteSessionRequested>(&message)) {
        parts.log.info("Remote session requested: " + wish->request.sessionPublicId);
        remoteSessions->spawn("remote session", parts.remoteSessionHandler(wish->request));
    } else if (std::holds_alternative<control::MalformedRemoteSessionRequest>(message)) {
        parts.log.warn("Malformed remote_session.requested event.");
    } else if (const auto* rejected = std::get_if<control::Rejected>(&message)) {
        throw ViewerError::http(rejected->status, rejected->detail);
    } else if (const auto* other = std::get_if<control::Other>(&message)) {
        parts.log.info("Control WSS message type=" + other->type);
    }
}

Task<void> ControlChannel::controlHeartbeatLoop(std::shared_ptr<WebSocketConnection> connection,
                                                IdentityProvider identityProvider,
                                                std::chrono::seconds interval, Clock& clock) {
    for (;;) {
        co_await clock.sleepFor(interval);
        const std::optional<AgentIdentity> identity = identityProvider();
        if (!identity) continue;
        co_await sendJson(*connection, controlHeartbeat(*identity, clock.now()));
    }
}

}  // namespace orv
