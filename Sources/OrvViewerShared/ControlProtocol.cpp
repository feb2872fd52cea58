#include "OrvViewerShared/ControlProtocol.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "OrvPlatform/Text.h"
#include "OrvPlatform/Url.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/SanitizeJson.h"
#include "OrvViewerShared/WebSocketJson.h"

namespace orv {

namespace {

constexpr std::chrono::seconds firstWait{2};
constexpr std::chrono::seconds shortLife{2};

Json commonKeys(const AgentIdentity& identity, const char* type) {
    return {
        {"type", type},
        {"device_uid", identity.deviceUid},
        {"support_id", sanitizeJson(identity.supportId)},
        {"hostname", sanitizeJson(identity.hostname)},
        {"agent_version", MacViewerBuildInfo::version},
        {"status", "online"},
    };
}

Json capabilities() {
    return {
        {"remote", true},
        {"webrtc", true},
        {"clipboard", true},
        {"pre_login", false},
        {"platform", "macos"},
        {"screen_capture", "ScreenCaptureKit"},
        {"permissions_required",
         Json::array({"screen_recording", "accessibility", "input_monitoring"})},
    };
}

control::Rejected rejection(const Json& message) {
    control::Rejected result;
    const auto status = message.find("status_code");
    const std::optional<std::int64_t> number =
        status != message.end() ? integerValue(*status) : std::nullopt;
    using Limits = std::numeric_limits<int>;
    if (number && *number >= Limits::min() && *number <= Limits::max()) {
        result.status = static_cast<int>(*number);
    }
    result.detail = textIfPresent(message, "detail").value_or("");
    return result;
}

}  // namespace

std::optional<std::string> controlUrl(std::string_view serverBaseUrl) {
    const std::string base = trimmedTrailingSlash(trimmed(serverBaseUrl));
    // A base URL may lack the scheme ("//host").
    std::optional<Url> url = parseUrl(base.starts_with("//") ? "ws:" + base : base);
    if (!url) return std::nullopt;
    url->scheme = equalsIgnoringCase(url->scheme, "https") ? "wss" : "ws";
    url->path.assign("/api/agent/control");
    return url->text();
}

Json controlHello(const AgentIdentity& identity) {
    Json hello = commonKeys(identity, "hello");
    hello["capabilities"] = capabilities();
    return hello;
}

Json controlHeartbeat(const AgentIdentity& identity, WallTime now) {
    Json heartbeat = commonKeys(identity, "heartbeat");
    heartbeat["platform"] = "macos";
    heartbeat["sentAt"] = sanitizeJson(now);  // the one key in camel case
    return heartbeat;
}

control::Message control::interpret(const Json& message) {
    std::string type = messageType(message);
    if (type == "control-ready") return Ready{};
    if (type == "heartbeat-ack") return HeartbeatAcknowledged{};
    if (type == "agent_command.queued") {
        return CommandQueued{textIfPresent(message, "command_type").value_or("-")};
    }
    if (type == "remote_session.requested") {
        std::optional<RemoteSessionRequest> request = RemoteSessionRequest::parse(message);
        if (!request) return MalformedRemoteSessionRequest{};
        return RemoteSessionRequested{std::move(*request)};
    }
    if (type == "control-rejected") return rejection(message);
    return Other{std::move(type)};
}

bool ReconnectPolicy::closedInGoodOrder(std::chrono::nanoseconds lifetime) {
    shortLivedInARow = lifetime < shortLife ? shortLivedInARow + 1 : 0;
    if (shortLivedInARow > 1) return false;
    next = firstWait;
    return true;
}

std::chrono::seconds ReconnectPolicy::nextWait() {
    const std::chrono::seconds wait = next;
    next = std::min(2 * next, cap);
    return wait;
}

}  // namespace orv
