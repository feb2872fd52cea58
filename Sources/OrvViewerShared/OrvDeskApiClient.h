#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/HttpClient.h"
#include "OrvPlatform/Json.h"
#include "OrvViewerShared/ControlChannel.h"
#include "OrvViewerShared/DeviceTokenStore.h"
#include "OrvViewerShared/Models.h"
#include "OrvViewerShared/RemoteChatMessage.h"
#include "OrvViewerShared/RemoteSessionAgent.h"
#include "OrvViewerShared/ViewerSettings.h"

namespace orv {

/// A JSON text that was put together where it is big, off the core thread.
struct SerializedJson {
    std::string text;
};

using CommandResult = std::variant<Json, SerializedJson>;

/// The one way in which the agent talks HTTP to the helpdesk. Every operation throws: ViewerError
/// for what the server said or did not say, UrlError for a network problem that no retry helps,
/// DecodingError for an answer of the wrong shape, and the cancellation error. Nothing is logged
/// here; callers log and record.
class OrvDeskApiClient final : public ControlCredentials, public RemoteStatusReporter {
public:
    struct Parts {
        ViewerSettings settings;
        HttpClient& http;
        DeviceTokenStoring& deviceTokenStore;
        Clock& clock;
    };

    explicit OrvDeskApiClient(Parts parts);

    /// Fixed: the agent is made for this one.
    static std::string currentArchitecture() { return "arm64"; }

    /// Registers the device with its inventory; a device token in the answer is stored at once.
    Task<DeviceRegistrationResponse> sendInventory(Json payload);
    Task<void> sendHeartbeat(Json payload);

    /// In the server's order; elements that are no commands are left out. A type of nothing but
    /// blanks asks for all.
    Task<std::vector<AgentCommand>> pendingCommands(std::string deviceUid,
                                                    std::optional<std::string> commandType);
    Task<void> updateCommand(std::int64_t id, std::string status, CommandResult result);
    Task<ViewerUpdateManifest> updateManifest(std::string platform, std::string architecture,
                                              std::string currentVersion, std::string channel);
    Task<void> sendChatMessage(std::string deviceUid, RemoteChatMessage message);
    Task<void> updateRemoteStatus(std::string sessionPublicId, std::string status,
                                  std::optional<std::string> errorMessage, Json metadata) override;

    /// Authorised as the device, or as the organisation while there is no device token; repeated
    /// once as the organisation when the server calls the device token invalid (it is dropped).
    Task<std::string> requestWithAgentAuthorization(std::string method, std::string path,
                                                    std::optional<Json> json);

    /// One request, repeated once after 0.75 s when the server or the network has a moment's
    /// problem. Returns the body of an answer 200 to 299. Throws ViewerError, and the UrlError of
    /// what another attempt would not change.
    Task<std::string> performRequest(std::string method, std::string url,
                                     std::shared_ptr<const std::string> jsonBody,
                                     std::optional<std::string> customerSessionToken,
                                     std::optional<std::string> authorization);

    /// Drops the stored device token when this error says that it is invalid; whether it did.
    bool recoverInvalidDeviceToken(const std::exception& error) override;

    WebSocketRequest authenticatedWebSocketRequest(std::string url) override;

    /// The value of the Authorization header right now: "Device " and the device's token, else
    /// "Bearer " and the organisation's, else nothing.
    std::optional<std::string> authorization() const;

    /// The base URL with the path (and query) behind it. Throws ViewerError::configuration naming
    /// the path when that is no URL.
    std::string endpointUrl(const std::string& path) const;

private:
    Task<std::string> sendAuthorized(std::string method, std::string path,
                                     std::shared_ptr<const std::string> jsonBody);
    std::optional<std::string> organizationAuthorization() const;

    Parts parts;
};

}  // namespace orv
