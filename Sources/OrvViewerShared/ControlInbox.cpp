#include "OrvViewerShared/ControlInbox.h"

#include <exception>
#include <utility>
#include <variant>

#include <boost/asio/this_coro.hpp>

#include "OrvPlatform/Cancellation.h"

namespace orv {

void ControlInbox::add(control::Message message) {
    waiting.push_back(std::move(message));
    handleWaiting();
}

void ControlInbox::handleWaiting() {
    while (!isHandlerAtWork && !waiting.empty()) {
        control::Message message = std::move(waiting.front());
        waiting.pop_front();
        handle(std::move(message));
    }
    parts.roomChanged();
}

void ControlInbox::handle(control::Message message) {
    if (std::holds_alternative<control::Ready>(message)) {
        parts.log.info("Control WSS ready.");
    } else if (const auto* queued = std::get_if<control::CommandQueued>(&message)) {
        parts.log.info("Control WSS wake-up received for command type=" + queued->commandType);
        isHandlerAtWork = true;
        parts.tasks.spawn("wake handler", wake());
    } else if (auto* wish = std::get_if<control::RemoteSessionRequested>(&message)) {
        parts.log.info("Remote session requested: " + wish->request.sessionPublicId);
        parts.startRemoteSession(std::move(wish->request));
    } else if (std::holds_alternative<control::MalformedRemoteSessionRequest>(message)) {
        parts.log.warn("Malformed remote_session.requested event.");
    } else if (const auto* other = std::get_if<control::Other>(&message)) {
        parts.log.info("Control WSS message type=" + other->type);
    }
}

/// A handler that fails, which it should not, must not leave the rest waiting for ever.
Task<void> ControlInbox::wake() {
    try {
        co_await parts.wakeHandler();
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.log.error(error, "Control WSS wake-up failed");
    }
    // Whoever was told to stop begins nothing new.
    const auto cancellation = co_await asio::this_coro::cancellation_state;
    if (cancellation.cancelled() != asio::cancellation_type::none) co_return;
    isHandlerAtWork = false;
    handleWaiting();
}

}  // namespace orv
