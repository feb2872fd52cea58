#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace orv {

/// The lasting problems with the helpdesk that a person has to know of. Kept in the state file by
/// raw value ("missingViewerToken"), where the companion application reads it.
enum class AgentConnectionIssue {
    missingViewerToken,
    invalidViewerToken,
    invalidDeviceToken,
    deviceAssignedElsewhere,
    deviceDeactivated,
    temporarilyUnavailable,
};

std::string_view rawValue(AgentConnectionIssue issue);

/// Exact match only; nothing for any other text.
std::optional<AgentConnectionIssue> connectionIssueFromRawValue(std::string_view text);

/// The fixed Polish text for the person at the Mac.
std::string_view connectionIssueMessage(AgentConnectionIssue issue);

/// Which lasting problem an error stands for, if any.
std::optional<AgentConnectionIssue> classify(const std::exception& error);

/// As classify, but every failure leaves some issue: an unknown one counts as
/// temporarilyUnavailable.
AgentConnectionIssue issueToRecord(const std::exception& error);

struct AgentDeviceTokenRecovery {
    /// Whether a request is to be repeated with the organisation's viewer token: exactly when the
    /// device token went out with it and the server called that token invalid.
    static bool shouldRetryWithOrganizationToken(bool usedDeviceToken, const std::exception& error);
};

/// What a service operation tells its caller.
struct AgentOperationOutcome {
    bool succeeded = false;
    std::optional<std::string> message;  // for the log or the user; absent on a plain success

    static AgentOperationOutcome success() { return {true, std::nullopt}; }
    static AgentOperationOutcome failure(std::string_view message) {
        return {false, std::string(message)};
    }

    bool operator==(const AgentOperationOutcome&) const = default;
};

}  // namespace orv
