#include "OrvViewerShared/ControlChannel.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <variant>

#include <boost/asio/this_coro.hpp>
#include <fmt/format.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvViewerShared/ViewerError.h"
#include "OrvViewerShared/WebSocketJson.h"

namespace orv {

namespace {

constexpr std::chrono::seconds identityWait{5};
constexpr std::chrono::seconds answerAfterWakingWithin{5};
constexpr std::int64_t longestHeartbeatInterval = 10LL * 365 * 24 * 3600;  // seconds

bool isGoodOrder(WebSocketClosed close) {
    return close.code == webSocketNormalClosure || close.code == webSocketGoingAway;
}

}  // namespace

Task<void> ControlChannel::runForever(IdentityProvider identities, CommandWakeHandler wake) {
    identityProvider = std::move(identities);
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    tasks = std::make_unique<TaskGroup>(
        executor, [&log = parts.log](const std::string& name, const std::exception& error) {
            log.error(error, fmt::format("The {} failed", name));
        });
    auto startRemoteSession = [this](RemoteSessionRequest request) {
        tasks->spawn("remote session", parts.remoteSessionHandler(std::move(request)));
    };
    inbox = std::make_unique<ControlInbox>(
        ControlInbox::Parts{parts.log, *tasks, std::move(wake), std::move(startRemoteSession),
                            [this] { pauseReadingWhileFull(); }});
    tasks->spawn("control connection", reconnectForever());
    co_await tasks->join();
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
    openConnection = connection;
    pauseReadingWhileFull();
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
        take(control::interpret(std::get<Json>(event)));
    }
}

/// A rejection ends the connection that it came over, at once: its command that may still be at
/// work is no reason to go on with a token that the helpdesk refuses.
void ControlChannel::take(control::Message message) {
    if (const auto* rejected = std::get_if<control::Rejected>(&message)) {
        throw ViewerError::http(rejected->status, rejected->detail);
    }
    inbox->add(std::move(message));
}

void ControlChannel::machineWoke() {
    if (const auto connection = openConnection.lock()) connection->probe(answerAfterWakingWithin);
}

void ControlChannel::pauseReadingWhileFull() {
    if (const auto connection = openConnection.lock()) connection->pauseReading(inbox->isFull());
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
