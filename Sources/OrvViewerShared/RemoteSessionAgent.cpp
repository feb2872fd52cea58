#include "OrvViewerShared/RemoteSessionAgent.h"

#include <exception>
#include <memory>
#include <utility>

#include <boost/asio/this_coro.hpp>

#include "OrvPlatform/Cancellation.h"
#include "OrvViewerShared/ViewerError.h"
#include "OrvViewerShared/WebSocketJson.h"

namespace orv {

namespace {

constexpr const char* noSignalingUrl = "Remote session is missing signaling URL.";
constexpr const char* noMediaEngine =
    "macOS remote media engine needs GoogleWebRTC XCFramework plus ScreenCaptureKit capture. "
    "Signaling works, media is not bundled yet.";

}  // namespace

Task<void> RemoteSessionAgent::handle(RemoteSessionRequest request) {
    co_await report(request.sessionPublicId, "agent_ready", std::nullopt);
    if (!request.signalingUrl) {
        co_await report(request.sessionPublicId, "failed", noSignalingUrl);
        co_return;
    }
    std::string failure;
    try {
        co_await connectSignaling(*request.signalingUrl, request.sessionPublicId);
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.log.error(error, "Remote session failed");
        failure = error.what();
    }
    co_await report(request.sessionPublicId, "failed", failure);
}

/// Ends with an error always: even a server that closes in good order has left the session.
Task<void> RemoteSessionAgent::connectSignaling(std::string url, std::string sessionPublicId) {
    WebSocketRequest request;
    request.url = std::move(url);
    const std::unique_ptr<WebSocketConnection> connection =
        co_await parts.connector.connect(std::move(request));
    parts.log.info("Remote signaling connected: " + sessionPublicId);
    std::exception_ptr end;
    try {
        co_await followSignaling(*connection, std::move(sessionPublicId));
    } catch (...) {
        end = std::current_exception();
    }
    // Whoever was told to stop still says goodbye.
    const auto cancellation = co_await asio::this_coro::cancellation_state;
    if (cancellation.cancelled() != asio::cancellation_type::none) {
        co_await asio::this_coro::reset_cancellation_state(asio::disable_cancellation());
    }
    co_await connection->close(webSocketGoingAway);
    std::rethrow_exception(end);
}

Task<void> RemoteSessionAgent::followSignaling(WebSocketConnection& connection,
                                               std::string sessionPublicId) {
    co_await report(std::move(sessionPublicId), "connecting", std::nullopt);
    for (;;) {
        const JsonEvent event = co_await receiveJson(connection);
        if (const auto* close = std::get_if<WebSocketClosed>(&event)) throw closedByServer(*close);
        const std::string type = messageType(std::get<Json>(event));
        parts.log.info("Remote signaling message type=" + type);
        if (type == "offer") throw ViewerError::unsupported(noMediaEngine);
    }
}

/// A status that does not get through changes nothing about the session.
Task<void> RemoteSessionAgent::report(std::string sessionPublicId, std::string status,
                                      std::optional<std::string> errorMessage) {
    try {
        co_await parts.reporter.updateRemoteStatus(std::move(sessionPublicId), status,
                                                   std::move(errorMessage), remoteMetadata());
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.log.error(error, "Remote session status update failed status=" + status);
    }
}

Json RemoteSessionAgent::remoteMetadata() {
    return {
        {"platform", "macos"},
        {"remote_engine", "screen_capturekit-webrtc"},
        {"video_codec", "vp8"},
        {"signaling", "wss"},
        {"data_channel", "orv-control"},
        {"screen_recording_permission", "required"},
        {"accessibility_permission", "required"},
        {"input_monitoring_permission", "required"},
    };
}

}  // namespace orv
