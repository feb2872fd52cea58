#include "OrvViewerShared/ViewerState.h"

#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvViewerShared/Paths.h"

namespace orv {

namespace {

constexpr std::uint64_t stateFileLimit = 1 << 20;

std::optional<WallTime> optionalTime(const Json& object, const char* key) {
    const std::optional<std::string> text = optionalText(object, key);
    if (!text) return std::nullopt;
    const std::optional<WallTime> time = parseIso8601(*text);
    if (!time) throw DecodingError(fmt::format("The value of \"{}\" is not a date.", key));
    return time;
}

std::optional<AgentConnectionIssue> optionalIssue(const Json& object, const char* key) {
    const std::optional<std::string> text = optionalText(object, key);
    if (!text) return std::nullopt;
    const auto issue = connectionIssueFromRawValue(*text);
    if (!issue) throw DecodingError(fmt::format("The value of \"{}\" is unknown.", key));
    return issue;
}

void putText(Json& out, const char* key, const std::optional<std::string>& value) {
    if (value) out[key] = *value;
}

void putTime(Json& out, const char* key, const std::optional<WallTime>& value) {
    if (value) out[key] = iso8601(*value);
}

}  // namespace

void ViewerState::recordProblem(AgentConnectionIssue issue, WallTime now) {
    connectionIssue = issue;
    connectionMessage = connectionIssueMessage(issue);
    lastConnectionErrorAt = now;
}

void ViewerState::clearProblem() {
    connectionIssue.reset();
    connectionMessage.reset();
    lastConnectionErrorAt.reset();
}

void to_json(Json& out, const ViewerState& state) {
    out = Json::object();
    putText(out, "deviceUid", state.deviceUid);
    putText(out, "supportId", state.supportId);
    putText(out, "hostname", state.hostname);
    putTime(out, "lastInventoryAt", state.lastInventoryAt);
    putTime(out, "lastHeartbeatAt", state.lastHeartbeatAt);
    putText(out, "deviceToken", state.deviceToken);
    if (state.connectionIssue) out["connectionIssue"] = rawValue(*state.connectionIssue);
    putText(out, "connectionMessage", state.connectionMessage);
    putTime(out, "lastConnectionErrorAt", state.lastConnectionErrorAt);
}

void from_json(const Json& in, ViewerState& state) {
    state.deviceUid = optionalText(in, "deviceUid");
    state.supportId = optionalText(in, "supportId");
    state.hostname = optionalText(in, "hostname");
    state.lastInventoryAt = optionalTime(in, "lastInventoryAt");
    state.lastHeartbeatAt = optionalTime(in, "lastHeartbeatAt");
    state.deviceToken = optionalText(in, "deviceToken");
    state.connectionIssue = optionalIssue(in, "connectionIssue");
    state.connectionMessage = optionalText(in, "connectionMessage");
    state.lastConnectionErrorAt = optionalTime(in, "lastConnectionErrorAt");
}

ViewerStateFile::ViewerStateFile(SystemRoot systemRoot, const ViewerLogger& usedLogger)
    : root(std::move(systemRoot)), logger(usedLogger) {
}

ViewerState ViewerStateFile::load() const {
    for (const char* path : {paths::statePath, paths::legacyStatePath}) {
        const std::string location = root.locate(path);
        if (!fileExists(location)) continue;
        try {
            auto state = parseJson(readFile(location, stateFileLimit)).get<ViewerState>();
            if (path == paths::legacyStatePath) save(state);
            return state;
        } catch (const std::exception&) {
            // Whatever is wrong with it, the device registers again and the file is replaced.
            logger.error(fmt::format("State load failed: could not decode {}.", path));
            return {};
        }
    }
    return {};
}

void ViewerStateFile::save(const ViewerState& state) const {
    try {
        createDirectories(root.locate(paths::configDirectory));
        writeFileAtomically(root.locate(paths::statePath), prettyJson(state));
    } catch (const FileError& error) {
        logger.error(FileError(error.reason(), root.shown(error.path())), "State save failed");
    }
}

AgentConnectionIssue AgentConnectionState::record(const std::exception& error) const {
    const AgentConnectionIssue issue = issueToRecord(error);
    ViewerState state = stateFile.load();
    state.recordProblem(issue, clock.now());
    stateFile.save(state);
    return issue;
}

}  // namespace orv
