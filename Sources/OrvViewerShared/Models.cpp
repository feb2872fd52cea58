#include "OrvViewerShared/Models.h"

namespace orv {

namespace {

std::string commandTypeOf(const Json& element) {
    const char* key = element.contains("command_type") ? "command_type" : "commandType";
    return textIfPresent(element, key).value_or("");
}

std::vector<std::string> requiredTexts(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_array()) {
        throw DecodingError(std::string("The value of \"") + key + "\" is not a list of texts.");
    }
    std::vector<std::string> texts;
    for (const Json& element : *found) {
        if (!element.is_string()) {
            throw DecodingError(std::string("The list \"") + key + "\" holds more than texts.");
        }
        texts.push_back(element.get<std::string>());
    }
    return texts;
}

}  // namespace

void from_json(const Json& in, DeviceRegistrationResponse& response) {
    response.deviceUid = optionalText(in, "device_uid");
    response.supportId = optionalText(in, "support_id");
    response.viewerId = optionalText(in, "viewer_id");
    response.deviceCode = optionalText(in, "device_code");
    response.publicId = optionalText(in, "public_id");
    response.deviceToken = optionalText(in, "device_token");
}

std::optional<AgentCommand> AgentCommand::from(const Json& element) {
    if (!element.is_object() || !element.contains("id")) return std::nullopt;
    const std::optional<std::int64_t> id = integerValue(element.at("id"));
    if (!id) return std::nullopt;
    AgentCommand command{*id, commandTypeOf(element), Json::object()};
    const auto payload = element.find("payload");
    if (payload != element.end() && payload->is_object()) command.payload = *payload;
    return command;
}

void from_json(const Json& in, ViewerUpdateManifest& manifest) {
    manifest.platform = requiredText(in, "platform");
    manifest.architecture = requiredText(in, "architecture");
    manifest.channel = requiredText(in, "channel");
    manifest.version = requiredText(in, "version");
    manifest.url = requiredText(in, "url");
    manifest.sha256 = optionalText(in, "sha256");
    manifest.sizeBytes = optionalInteger(in, "size_bytes");
    manifest.mandatory = requiredBool(in, "mandatory");
    manifest.silentArgs = requiredTexts(in, "silent_args");
}

}  // namespace orv
