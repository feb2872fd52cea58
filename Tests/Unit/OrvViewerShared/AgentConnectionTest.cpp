#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/AgentConnection.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {
namespace {

using Issue = AgentConnectionIssue;
using testing::Eq;
using testing::Optional;

std::optional<Issue> classifyHttp(int status, const std::string& body) {
    return classify(ViewerError::http(status, body));
}

TEST(AgentConnectionIssueTest, rawValuesAndMessagesAreThoseOfTheTable) {
    const std::string invalidToken =
        "Token Wsparo jest nieprawidłowy lub wygasł. Otwórz Ustawienia, wpisz prawidłowy token i "
        "wykonaj audyt ponownie.";
    const struct {
        Issue issue;
        std::string rawValue;
        std::string message;
    } rows[] = {
        {Issue::missingViewerToken, "missingViewerToken",
         "Nie wpisano tokenu Wsparo. Otwórz Ustawienia, wpisz prawidłowy token i zapisz zmiany."},
        {Issue::invalidViewerToken, "invalidViewerToken", invalidToken},
        {Issue::invalidDeviceToken, "invalidDeviceToken", invalidToken},
        {Issue::deviceAssignedElsewhere, "deviceAssignedElsewhere",
         "To urządzenie jest przypisane do innej firmy. Skontaktuj się z konsultantem Brenvox, aby "
         "potwierdzić przypisanie."},
        {Issue::deviceDeactivated, "deviceDeactivated",
         "To urządzenie zostało wyłączone w Centrum Wsparo. Skontaktuj się z konsultantem "
         "Brenvox."},
        {Issue::temporarilyUnavailable, "temporarilyUnavailable",
         "Nie można teraz połączyć się z Centrum Wsparo. Aplikacja spróbuje ponownie "
         "automatycznie."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(rawValue(row.issue), row.rawValue);
        EXPECT_EQ(connectionIssueMessage(row.issue), row.message);
        EXPECT_THAT(connectionIssueFromRawValue(row.rawValue), Optional(row.issue));
    }
}

TEST(AgentConnectionIssueTest, otherRawValuesGiveNoIssue) {
    EXPECT_EQ(connectionIssueFromRawValue("MissingViewerToken"), std::nullopt);
    EXPECT_EQ(connectionIssueFromRawValue(""), std::nullopt);
    EXPECT_EQ(connectionIssueFromRawValue("offline"), std::nullopt);
}

TEST(ClassifyTest, tellsThe401sApartInTheirOrderAndWithoutRegardToCase) {
    EXPECT_THAT(classifyHttp(401, "INVALID Viewer Token"), Optional(Issue::invalidViewerToken));
    EXPECT_THAT(classifyHttp(401, "{\"detail\":\"Invalid device token\"}"),
                Optional(Issue::invalidDeviceToken));
    EXPECT_THAT(classifyHttp(401, "missing viewer token"), Optional(Issue::missingViewerToken));
    EXPECT_THAT(classifyHttp(401, "invalid viewer token; missing viewer token"),
                Optional(Issue::missingViewerToken));
    EXPECT_THAT(classifyHttp(401, "invalid device token; missing viewer token"),
                Optional(Issue::missingViewerToken));
    EXPECT_THAT(classifyHttp(401, "invalid viewer token; invalid device token"),
                Optional(Issue::invalidDeviceToken));
    EXPECT_EQ(classifyHttp(401, ""), std::nullopt);
}

TEST(ClassifyTest, knowsADeviceThatBelongsElsewhere) {
    EXPECT_THAT(classifyHttp(403, "Device is Assigned to another CLIENT."),
                Optional(Issue::deviceAssignedElsewhere));
    EXPECT_THAT(classifyHttp(403, "The token DOES NOT match device 7."),
                Optional(Issue::deviceAssignedElsewhere));
    EXPECT_EQ(classifyHttp(403, "forbidden"), std::nullopt);
}

TEST(ClassifyTest, knowsADeactivatedDeviceOnlyByItsWords) {
    EXPECT_THAT(classifyHttp(410, "Device is deactivated"), Optional(Issue::deviceDeactivated));
    EXPECT_EQ(classifyHttp(410, "gone"), std::nullopt);
    EXPECT_EQ(classifyHttp(403, "device is deactivated"), std::nullopt);
}

TEST(ClassifyTest, serverErrorsPassAndOtherStatusesAreNoIssue) {
    for (const int status : {500, 501, 503, 599}) {
        EXPECT_THAT(classifyHttp(status, "x"), Optional(Issue::temporarilyUnavailable)) << status;
    }
    for (const int status : {400, 404, 409, 429, 499, 600, 302}) {
        EXPECT_EQ(classifyHttp(status, "invalid device token"), std::nullopt) << status;
    }
}

TEST(ClassifyTest, judgesTheOtherErrors) {
    EXPECT_THAT(classify(ViewerError::invalidResponse("x")),
                Optional(Issue::temporarilyUnavailable));
    EXPECT_THAT(classify(ViewerError::temporarilyUnavailable("x")),
                Optional(Issue::temporarilyUnavailable));
    EXPECT_EQ(classify(ViewerError::configuration("x")), std::nullopt);
    EXPECT_EQ(classify(ViewerError::unsupported("x")), std::nullopt);
    EXPECT_THAT(classify(UrlError(UrlErrorCode::cancelled, "x")),
                Optional(Issue::temporarilyUnavailable));
    EXPECT_THAT(classify(UrlError(UrlErrorCode::badUrl, "x")),
                Optional(Issue::temporarilyUnavailable));
    EXPECT_EQ(classify(std::runtime_error("x")), std::nullopt);
}

TEST(ClassifyTest, everyRecordedFailureLeavesAnIssue) {
    EXPECT_EQ(issueToRecord(ViewerError::http(401, "")), Issue::temporarilyUnavailable);
    EXPECT_EQ(issueToRecord(std::runtime_error("x")), Issue::temporarilyUnavailable);
    EXPECT_EQ(issueToRecord(ViewerError::http(410, "device is deactivated")),
              Issue::deviceDeactivated);
}

TEST(AgentDeviceTokenRecoveryTest, onlyARejectedDeviceTokenIsRetriedAsTheOrganisation) {
    const auto shouldRetry = AgentDeviceTokenRecovery::shouldRetryWithOrganizationToken;
    const ViewerError rejected = ViewerError::http(401, "invalid device token");
    EXPECT_TRUE(shouldRetry(true, rejected));
    EXPECT_FALSE(shouldRetry(false, rejected));
    EXPECT_FALSE(shouldRetry(true, ViewerError::http(401, "invalid viewer token")));
    EXPECT_FALSE(shouldRetry(true, ViewerError::http(403, "invalid device token")));
}

TEST(AgentOperationOutcomeTest, saysWhetherItWorkedAndWhy) {
    EXPECT_TRUE(AgentOperationOutcome::success().succeeded);
    EXPECT_EQ(AgentOperationOutcome::success().message, std::nullopt);
    EXPECT_FALSE(AgentOperationOutcome::failure("x").succeeded);
    EXPECT_THAT(AgentOperationOutcome::failure("x").message, Optional(Eq("x")));
}

}  // namespace
}  // namespace orv
