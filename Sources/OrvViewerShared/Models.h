#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/Json.h"

namespace orv {

/// The answer to a registration; whatever is missing or null stays absent.
struct DeviceRegistrationResponse {
    std::optional<std::string> deviceUid;
    std::optional<std::string> supportId;
    std::optional<std::string> viewerId;
    std::optional<std::string> deviceCode;
    std::optional<std::string> publicId;
    std::optional<std::string> deviceToken;
};
/// Throws DecodingError.
void from_json(const Json& in, DeviceRegistrationResponse& response);

/// One command that a consultant queued for this device.
struct AgentCommand {
    std::int64_t id = 0;
    std::string commandType;  // empty when the server named none
    Json payload = Json::object();

    /// Nothing for an element without an integer "id". "commandType" is looked at only when there
    /// is no "command_type" at all.
    static std::optional<AgentCommand> from(const Json& element);
};

/// What the server offers as the newest version.
struct ViewerUpdateManifest {
    std::string platform;
    std::string architecture;
    std::string channel;
    std::string version;
    std::string url;
    std::optional<std::string> sha256;
    std::optional<std::int64_t> sizeBytes;
    bool mandatory = false;
    std::vector<std::string> silentArgs;
};
/// Throws DecodingError when one of the required keys is missing.
void from_json(const Json& in, ViewerUpdateManifest& manifest);

}  // namespace orv
