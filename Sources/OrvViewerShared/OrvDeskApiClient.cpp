#include "OrvViewerShared/OrvDeskApiClient.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/Text.h"
#include "OrvPlatform/Url.h"
#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/AgentConnection.h"
#include "OrvViewerShared/SanitizeJson.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {

namespace {

using namespace std::chrono_literals;

constexpr auto retryPause = 750ms;

bool isTransientNetworkError(const UrlError& error) {
    switch (error.code()) {
        case UrlErrorCode::timedOut:
        case UrlErrorCode::cannotFindHost:
        case UrlErrorCode::cannotConnectToHost:
        case UrlErrorCode::networkConnectionLost:
        case UrlErrorCode::dnsLookupFailed:
        case UrlErrorCode::notConnectedToInternet:
        case UrlErrorCode::resourceUnavailable: return true;
        default: return false;
    }
}

// The other 5xx do not pass by themselves.
bool isTransientStatus(int status) {
    return status == 500 || status == 502 || status == 503 || status == 504;
}

bool isSuccess(int status) {
    return status >= 200 && status <= 299;
}

std::string errorBody(std::string body) {
    return isValidUtf8(body) ? body : std::string();
}

std::shared_ptr<const std::string> bodyOf(const std::optional<Json>& json) {
    return json ? std::make_shared<const std::string>(compactJson(*json)) : nullptr;
}

/// The result goes into the body as it stands: it may be tens of megabytes.
std::shared_ptr<const std::string> statusBody(const std::string& status, CommandResult result) {
    if (auto* json = std::get_if<Json>(&result)) {
        return bodyOf(Json{{"status", status}, {"result", std::move(*json)}});
    }
    std::string body = std::move(std::get<SerializedJson>(result).text);
    body.insert(0, "{\"result\":");
    body += fmt::format(",\"status\":{}}}", compactJson(status));
    return std::make_shared<const std::string>(std::move(body));
}

std::vector<AgentCommand> commandsFrom(const Json& answer) {
    std::vector<AgentCommand> commands;
    const bool isListOfObjects =
        answer.is_array() && std::all_of(answer.begin(), answer.end(),
                                         [](const Json& element) { return element.is_object(); });
    if (!isListOfObjects) return commands;
    for (const Json& element : answer) {
        std::optional<AgentCommand> command = AgentCommand::from(element);
        if (command) commands.push_back(std::move(*command));
    }
    return commands;
}

HttpRequest buildRequest(std::string method, std::string url,
                         std::shared_ptr<const std::string> jsonBody,
                         const std::optional<std::string>& customerSessionToken,
                         const std::optional<std::string>& authorization) {
    HttpRequest request;
    request.method = std::move(method);
    request.url = std::move(url);
    request.headers.push_back({"Accept", "application/json"});
    if (authorization) request.headers.push_back({"Authorization", *authorization});
    if (customerSessionToken && !customerSessionToken->empty()) {
        request.headers.push_back({"X-Customer-Session", *customerSessionToken});
    }
    if (jsonBody) {
        request.headers.push_back({"Content-Type", "application/json"});
        request.body = std::move(jsonBody);
    }
    return request;
}

}  // namespace

OrvDeskApiClient::OrvDeskApiClient(Parts given) : parts(std::move(given)) {
}

std::string OrvDeskApiClient::endpointUrl(const std::string& path) const {
    std::string text = parts.settings.normalizedServerBaseUrl() + path;
    if (!parseUrl(text)) {
        throw ViewerError::configuration(fmt::format("Invalid URL for {}.", path));
    }
    return text;
}

std::optional<std::string> OrvDeskApiClient::organizationAuthorization() const {
    const std::string token = parts.settings.normalizedViewerToken();
    if (token.empty()) return std::nullopt;
    return "Bearer " + token;
}

std::optional<std::string> OrvDeskApiClient::authorization() const {
    const std::optional<std::string> deviceToken = parts.deviceTokenStore.load();
    if (deviceToken) return "Device " + *deviceToken;
    return organizationAuthorization();
}

bool OrvDeskApiClient::recoverInvalidDeviceToken(const std::exception& error) {
    if (classify(error) != AgentConnectionIssue::invalidDeviceToken) return false;
    if (!parts.deviceTokenStore.load()) return false;
    parts.deviceTokenStore.clear();
    return true;
}

WebSocketRequest OrvDeskApiClient::authenticatedWebSocketRequest(std::string url) {
    WebSocketRequest request{std::move(url), {}};
    if (const auto header = authorization()) request.headers.push_back({"Authorization", *header});
    return request;
}

Task<std::string> OrvDeskApiClient::performRequest(std::string method, std::string url,
                                                   std::shared_ptr<const std::string> jsonBody,
                                                   std::optional<std::string> customerSessionToken,
                                                   std::optional<std::string> authorization) {
    const HttpRequest request = buildRequest(std::move(method), std::move(url), std::move(jsonBody),
                                             customerSessionToken, authorization);
    for (const bool isLastAttempt : {false, true}) {
        try {
            HttpResponse response = co_await parts.http.send(request);
            if (isSuccess(response.status)) co_return std::move(response.body);
            if (!isTransientStatus(response.status)) {
                throw ViewerError::http(response.status, errorBody(std::move(response.body)));
            }
            if (isLastAttempt) {
                throw ViewerError::temporarilyUnavailable(
                    "Serwer jest chwilowo niedostępny lub trwa jego aktualizacja. Spróbuj ponownie "
                    "za kilka sekund.");
            }
        } catch (const UrlError& error) {
            if (error.code() == UrlErrorCode::badServerResponse) {
                throw ViewerError::invalidResponse("Missing HTTP response.");
            }
            if (!isTransientNetworkError(error)) throw;
            if (isLastAttempt) {
                throw ViewerError::temporarilyUnavailable(
                    "Nie udało się połączyć z serwerem. Sprawdź połączenie z Internetem i spróbuj "
                    "ponownie.");
            }
        }
        co_await parts.clock.sleepFor(retryPause);
    }
    throw ViewerError::temporarilyUnavailable("Serwer jest chwilowo niedostępny.");
}

Task<std::string> OrvDeskApiClient::sendAuthorized(std::string method, std::string path,
                                                   std::shared_ptr<const std::string> jsonBody) {
    const std::string url = endpointUrl(path);
    const std::optional<std::string> deviceToken = parts.deviceTokenStore.load();
    std::optional<std::string> header =
        deviceToken ? "Device " + *deviceToken : organizationAuthorization();
    try {
        co_return co_await performRequest(method, url, jsonBody, std::nullopt, header);
    } catch (const ViewerError& error) {
        if (!AgentDeviceTokenRecovery::shouldRetryWithOrganizationToken(deviceToken.has_value(),
                                                                        error)) {
            throw;
        }
    }
    parts.deviceTokenStore.clear();
    header = organizationAuthorization();
    co_return co_await performRequest(method, url, jsonBody, std::nullopt, header);
}

Task<std::string> OrvDeskApiClient::requestWithAgentAuthorization(std::string method,
                                                                  std::string path,
                                                                  std::optional<Json> json) {
    co_return co_await sendAuthorized(std::move(method), std::move(path), bodyOf(json));
}

Task<DeviceRegistrationResponse> OrvDeskApiClient::sendInventory(Json payload) {
    const std::string answer = co_await requestWithAgentAuthorization(
        "POST", "/api/agent/devices/register", std::move(payload));
    const auto response = parseJson(answer).get<DeviceRegistrationResponse>();
    if (response.deviceToken) parts.deviceTokenStore.save(*response.deviceToken);
    co_return response;
}

Task<void> OrvDeskApiClient::sendHeartbeat(Json payload) {
    co_await requestWithAgentAuthorization("POST", "/api/agent/devices/heartbeat",
                                           std::move(payload));
}

Task<std::vector<AgentCommand>> OrvDeskApiClient::pendingCommands(
    std::string deviceUid, std::optional<std::string> commandType) {
    std::string path =
        fmt::format("/api/agent/devices/{}/commands/pending", percentEncodedPath(deviceUid));
    if (commandType && !trimmed(*commandType).empty()) {
        path += "?command_type=" + percentEncodedQuery(*commandType);
    }
    const std::string answer =
        co_await requestWithAgentAuthorization("GET", std::move(path), std::nullopt);
    co_return commandsFrom(parseJson(answer));
}

Task<void> OrvDeskApiClient::updateCommand(std::int64_t id, std::string status,
                                           CommandResult result) {
    std::shared_ptr<const std::string> body = statusBody(status, std::move(result));
    co_await sendAuthorized("POST", fmt::format("/api/agent/device-commands/{}/status", id),
                            std::move(body));
}

Task<ViewerUpdateManifest> OrvDeskApiClient::updateManifest(std::string platform,
                                                            std::string architecture,
                                                            std::string currentVersion,
                                                            std::string channel) {
    std::string path = fmt::format(
        "/api/agent/viewer/updates/manifest?platform={}&architecture={}&current_version={}"
        "&channel={}",
        percentEncodedQuery(platform), percentEncodedQuery(architecture),
        percentEncodedQuery(currentVersion), percentEncodedQuery(channel));
    const std::string answer =
        co_await requestWithAgentAuthorization("GET", std::move(path), std::nullopt);
    co_return parseJson(answer).get<ViewerUpdateManifest>();
}

Task<void> OrvDeskApiClient::sendChatMessage(std::string deviceUid, RemoteChatMessage message) {
    Json body{{"text", std::move(message.text)},
              {"sender", std::move(message.sender)},
              {"public_id", std::move(message.publicId)},
              {"client_message_id", std::move(message.id)},
              {"sent_at", sanitizeJson(message.createdAt)}};
    co_await requestWithAgentAuthorization(
        "POST", fmt::format("/api/agent/devices/{}/chat-messages", percentEncodedPath(deviceUid)),
        std::move(body));
}

Task<void> OrvDeskApiClient::updateRemoteStatus(std::string sessionPublicId, std::string status,
                                                std::optional<std::string> errorMessage,
                                                Json metadata) {
    Json body{{"status", status}, {"metadata", std::move(metadata)}};
    if (errorMessage) body["error_message"] = *errorMessage;
    co_await requestWithAgentAuthorization(
        "POST", fmt::format("/api/agent/remote/sessions/{}/status", sessionPublicId),
        std::move(body));
}

}  // namespace orv
