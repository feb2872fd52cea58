#include "OrvViewerShared/AgentConnection.h"

#include <array>

#include "OrvPlatform/Text.h"
#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {

namespace {

struct IssueRow {
    AgentConnectionIssue issue;
    std::string_view rawValue;
    std::string_view message;
};

// An invalid device token is deliberately shown as an invalid token like any other.
constexpr std::string_view invalidTokenMessage =
    "Token Wsparo jest nieprawidłowy lub wygasł. Otwórz Ustawienia, wpisz prawidłowy token i "
    "wykonaj audyt ponownie.";

constexpr std::array<IssueRow, 6> issueTable{{
    {AgentConnectionIssue::missingViewerToken, "missingViewerToken",
     "Nie wpisano tokenu Wsparo. Otwórz Ustawienia, wpisz prawidłowy token i zapisz zmiany."},
    {AgentConnectionIssue::invalidViewerToken, "invalidViewerToken", invalidTokenMessage},
    {AgentConnectionIssue::invalidDeviceToken, "invalidDeviceToken", invalidTokenMessage},
    {AgentConnectionIssue::deviceAssignedElsewhere, "deviceAssignedElsewhere",
     "To urządzenie jest przypisane do innej firmy. Skontaktuj się z konsultantem Brenvox, aby "
     "potwierdzić przypisanie."},
    {AgentConnectionIssue::deviceDeactivated, "deviceDeactivated",
     "To urządzenie zostało wyłączone w Centrum Wsparo. Skontaktuj się z konsultantem Brenvox."},
    {AgentConnectionIssue::temporarilyUnavailable, "temporarilyUnavailable",
     "Nie można teraz połączyć się z Centrum Wsparo. Aplikacja spróbuje ponownie automatycznie."},
}};

const IssueRow& rowOf(AgentConnectionIssue issue) {
    return issueTable[static_cast<std::size_t>(issue)];
}

std::optional<AgentConnectionIssue> classifyHttp(int status, std::string_view body) {
    const std::string text = lowercased(body);
    const auto says = [&text](std::string_view words) {
        return text.find(words) != std::string::npos;
    };
    switch (status) {
        case 401:
            if (says("missing viewer token")) return AgentConnectionIssue::missingViewerToken;
            if (says("invalid device token")) return AgentConnectionIssue::invalidDeviceToken;
            if (says("invalid viewer token")) return AgentConnectionIssue::invalidViewerToken;
            return std::nullopt;
        case 403:
            if (says("assigned to another client") || says("does not match device")) {
                return AgentConnectionIssue::deviceAssignedElsewhere;
            }
            return std::nullopt;
        case 410:
            if (says("device is deactivated")) return AgentConnectionIssue::deviceDeactivated;
            return std::nullopt;
        default: break;
    }
    if (status >= 500 && status <= 599) return AgentConnectionIssue::temporarilyUnavailable;
    return std::nullopt;
}

}  // namespace

std::string_view rawValue(AgentConnectionIssue issue) {
    return rowOf(issue).rawValue;
}

std::optional<AgentConnectionIssue> connectionIssueFromRawValue(std::string_view text) {
    for (const IssueRow& row : issueTable) {
        if (row.rawValue == text) return row.issue;
    }
    return std::nullopt;
}

std::string_view connectionIssueMessage(AgentConnectionIssue issue) {
    return rowOf(issue).message;
}

std::optional<AgentConnectionIssue> classify(const std::exception& error) {
    if (const auto* viewerError = dynamic_cast<const ViewerError*>(&error)) {
        switch (viewerError->kind()) {
            case ViewerError::Kind::http:
                return classifyHttp(viewerError->status(), viewerError->body());
            case ViewerError::Kind::invalidResponse:
            case ViewerError::Kind::temporarilyUnavailable:
                return AgentConnectionIssue::temporarilyUnavailable;
            case ViewerError::Kind::configuration:
            case ViewerError::Kind::unsupported: return std::nullopt;
        }
    }
    if (dynamic_cast<const UrlError*>(&error) != nullptr) {
        return AgentConnectionIssue::temporarilyUnavailable;
    }
    return std::nullopt;
}

AgentConnectionIssue issueToRecord(const std::exception& error) {
    return classify(error).value_or(AgentConnectionIssue::temporarilyUnavailable);
}

bool AgentDeviceTokenRecovery::shouldRetryWithOrganizationToken(bool usedDeviceToken,
                                                                const std::exception& error) {
    return usedDeviceToken && classify(error) == AgentConnectionIssue::invalidDeviceToken;
}

}  // namespace orv
