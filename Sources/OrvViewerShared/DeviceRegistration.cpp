#include "OrvViewerShared/DeviceRegistration.h"

#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Json.h"

namespace orv {

namespace {

template <typename... Others>
std::optional<std::string> firstPresent(const std::optional<std::string>& first,
                                        const Others&... others) {
    if constexpr (sizeof...(others) == 0) {
        return first;
    } else {
        return first ? first : firstPresent(others...);
    }
}

}  // namespace

DeviceRegistration::DeviceRegistration(Parts given) : parts(given), state(given.stateFile.load()) {
}

std::optional<AgentIdentity> DeviceRegistration::identity() const {
    const DeviceFacts facts = parts.collector.deviceFacts();
    AgentIdentity identity;
    identity.deviceUid = state.deviceUid.value_or(facts.deviceUid);
    if (identity.deviceUid.empty()) return std::nullopt;
    identity.supportId = state.supportId;
    identity.hostname = state.hostname.value_or(facts.hostname);
    identity.loggedInUser = facts.loggedInUser;
    return identity;
}

Task<AgentOperationOutcome> DeviceRegistration::sendInventory(std::string reason) {
    try {
        Json payload = co_await parts.collector.collect();
        const auto collectedUid = textIfPresent(payload, "device_uid");
        const auto collectedHostname = textIfPresent(payload, "hostname");
        const DeviceRegistrationResponse response =
            co_await parts.apiClient.sendInventory(std::move(payload));
        applyRegistration(response, collectedUid, collectedHostname);
        saveState();
        parts.logger.info(
            fmt::format("Inventory sent successfully. reason={} {}", reason, identifiersForLog()));
        co_return AgentOperationOutcome::success();
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.logger.error(error, "Inventory send failed");
        co_return recordConnectionError(error);
    }
}

Task<AgentOperationOutcome> DeviceRegistration::sendHeartbeat(std::string reason) {
    try {
        Json payload = co_await parts.collector.heartbeatPayload(state);
        co_await parts.apiClient.sendHeartbeat(std::move(payload));
        state.lastHeartbeatAt = parts.clock.now();
        state.clearProblem();
        saveState();
        parts.logger.info(
            fmt::format("Heartbeat sent successfully. reason={} {}", reason, identifiersForLog()));
        co_return AgentOperationOutcome::success();
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.logger.error(error, "Heartbeat failed");
        co_return recordConnectionError(error);
    }
}

AgentOperationOutcome DeviceRegistration::recordConnectionError(const std::exception& error) {
    const AgentConnectionIssue issue = issueToRecord(error);
    state.recordProblem(issue, parts.clock.now());
    saveState();
    return AgentOperationOutcome::failure(connectionIssueMessage(issue));
}

void DeviceRegistration::applyRegistration(const DeviceRegistrationResponse& response,
                                           const std::optional<std::string>& collectedUid,
                                           const std::optional<std::string>& collectedHostname) {
    state.deviceUid = firstPresent(response.deviceUid, collectedUid, state.deviceUid);
    // Servers of several generations name the support identifier differently.
    state.supportId = firstPresent(response.supportId, response.viewerId, response.deviceCode,
                                   response.publicId, state.supportId);
    state.hostname = firstPresent(collectedHostname, state.hostname);
    state.lastInventoryAt = parts.clock.now();
    state.clearProblem();
}

void DeviceRegistration::saveState() const {
    ViewerState saved = state;
    saved.deviceToken = parts.stateFile.load().deviceToken;
    parts.stateFile.save(saved);
}

std::string DeviceRegistration::identifiersForLog() const {
    return fmt::format("device_uid={} support_id={}", state.deviceUid.value_or("-"),
                       state.supportId.value_or("-"));
}

}  // namespace orv
