#include "OrvViewerShared/RemoteSessionRequest.h"

#include "OrvPlatform/Url.h"

namespace orv {

namespace {

const Json* objectUnder(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_object() ? &*found : nullptr;
}

std::optional<std::string> textUnderEither(const Json& object, const char* key,
                                           const char* otherwise) {
    const std::optional<std::string> text = textIfPresent(object, key);
    return text ? text : textIfPresent(object, otherwise);
}

std::optional<std::string> urlUnder(const Json& object, const char* key) {
    std::optional<std::string> text = textIfPresent(object, key);
    if (text && !parseUrl(*text)) return std::nullopt;
    return text;
}

}  // namespace

std::optional<RemoteSessionRequest> RemoteSessionRequest::parse(const Json& message) {
    if (textIfPresent(message, "type") != "remote_session.requested") return std::nullopt;
    const Json* session = objectUnder(message, "session");
    if (session == nullptr) return std::nullopt;
    const std::optional<std::string> publicId = textUnderEither(*session, "public_id", "publicId");
    if (!publicId) return std::nullopt;

    RemoteSessionRequest request;
    request.sessionPublicId = *publicId;
    request.status = textIfPresent(*session, "status").value_or("");
    const Json* urls = objectUnder(*session, "control_urls");
    if (urls == nullptr) urls = objectUnder(*session, "controlUrls");
    if (urls != nullptr) {
        request.signalingUrl = urlUnder(*urls, "signaling");
        request.relayUrl = urlUnder(*urls, "relay_url");
    }
    if (const Json* metadata = objectUnder(*session, "metadata")) request.metadata = *metadata;
    return request;
}

}  // namespace orv
