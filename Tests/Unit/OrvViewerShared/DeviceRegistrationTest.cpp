#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/DeviceRegistration.h"
#include "OrvViewerShared/DeviceTokenStore.h"
#include "Support/AgentFixture.h"

namespace orv {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class DeviceRegistrationTest : public AgentFixture {
protected:
    AgentOperationOutcome sendInventory(const std::string& reason = "timer") {
        return loop.run(registration().sendInventory(reason));
    }
    AgentOperationOutcome sendHeartbeat(const std::string& reason = "timer") {
        return loop.run(registration().sendHeartbeat(reason));
    }
};

TEST_F(DeviceRegistrationTest, registeringStoresWhoTheDeviceIs) {
    http.thenAnswer(200, R"({"device_uid":"srv-1","support_id":"77","device_token":"dev"})");
    EXPECT_EQ(sendInventory("initial_registration"), AgentOperationOutcome::success());

    const ViewerState state = stateFile.load();
    EXPECT_EQ(state.deviceUid, "srv-1");
    EXPECT_EQ(state.supportId, "77");
    EXPECT_EQ(state.hostname, "mac.local");
    EXPECT_EQ(state.lastInventoryAt, clock.now());
    EXPECT_EQ(state.deviceToken, "dev");
    EXPECT_EQ(log(),
              "2026-03-01T09:15:02Z [INFO] Inventory sent successfully. "
              "reason=initial_registration device_uid=srv-1 support_id=77\n");
    EXPECT_TRUE(registration().isRegistered());
}

TEST_F(DeviceRegistrationTest, theHeartbeatAfterRegistrationGoesOutAsTheDevice) {
    http.thenAnswer(200, R"({"support_id":"77","device_token":"dev"})");
    sendInventory();
    sendHeartbeat();
    EXPECT_THAT(http.lines().back(), EndsWith("/api/agent/devices/heartbeat Device dev"));
    EXPECT_EQ(stateFile.load().deviceToken, "dev");
}

TEST_F(DeviceRegistrationTest, aClearedTokenDoesNotComeBack) {
    http.thenAnswer(200, R"({"support_id":"77","device_token":"dev"})");
    sendInventory();
    tokenStore.clear();
    sendHeartbeat();
    EXPECT_EQ(stateFile.load().deviceToken, std::nullopt);
    EXPECT_THAT(http.lines().back(), EndsWith("Bearer viewer"));
}

TEST_F(DeviceRegistrationTest, theSupportIdentifierHasFourNamesInAFixedOrder) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"public_id":"p"})", "p"},
        {R"({"public_id":"p","device_code":"c"})", "c"},
        {R"({"public_id":"p","device_code":"c","viewer_id":"v"})", "v"},
        {R"({"public_id":"p","device_code":"c","viewer_id":"v","support_id":"s"})", "s"},
        {"{}", "s"},
    };
    for (const auto& [answer, expected] : rows) {
        http.thenAnswer(200, answer);
        sendInventory();
        EXPECT_EQ(stateFile.load().supportId, expected) << answer;
    }
}

TEST_F(DeviceRegistrationTest, withoutAServersUidTheCollectedOneStands) {
    http.thenAnswer(200, "{}");
    sendInventory();
    EXPECT_EQ(stateFile.load().deviceUid, "mac-collected");
    EXPECT_FALSE(registration().isRegistered()) << "a uid without support id is not enough";
    EXPECT_THAT(log(), EndsWith("reason=timer device_uid=mac-collected support_id=-\n"));
}

TEST_F(DeviceRegistrationTest, aPayloadWithoutTextsChangesNothing) {
    collector.inventory = Json{{"device_uid", 5}, {"hostname", nullptr}};
    http.thenAnswer(200, "{}");
    sendInventory();
    EXPECT_EQ(stateFile.load().deviceUid, std::nullopt);
    EXPECT_EQ(stateFile.load().hostname, std::nullopt);
    EXPECT_THAT(log(), EndsWith("device_uid=- support_id=-\n"));
}

TEST_F(DeviceRegistrationTest, whatNeitherServerNorPayloadNamesStaysAsItWas) {
    ViewerState known;
    known.deviceUid = "u";
    known.hostname = "h";
    stateFile.save(known);
    collector.inventory = Json{{"device_uid", 5}, {"hostname", nullptr}};
    http.thenAnswer(200, "{}");
    EXPECT_TRUE(sendInventory().succeeded);
    EXPECT_EQ(stateFile.load().deviceUid, "u");
    EXPECT_EQ(stateFile.load().hostname, "h");
}

TEST_F(DeviceRegistrationTest, aFailedInventoryIsLoggedRecordedAndKeepsTheIdentity) {
    http.thenAnswer(200, R"({"device_uid":"srv-1","support_id":"77","device_token":"dev"})");
    sendInventory();
    http.thenAnswer(410, R"({"detail":"Device is deactivated"})");

    const AgentOperationOutcome outcome = sendInventory();

    EXPECT_FALSE(outcome.succeeded);
    EXPECT_EQ(outcome.message, connectionIssueMessage(AgentConnectionIssue::deviceDeactivated));
    const ViewerState state = stateFile.load();
    EXPECT_EQ(state.connectionIssue, AgentConnectionIssue::deviceDeactivated);
    EXPECT_EQ(state.connectionMessage, outcome.message);
    EXPECT_EQ(state.lastConnectionErrorAt, clock.now());
    EXPECT_EQ(state.deviceUid, "srv-1");
    EXPECT_EQ(state.deviceToken, "dev");
    EXPECT_THAT(log(), EndsWith("[ERROR] Inventory send failed: HTTP 410: "
                                "{\"detail\":\"Device is deactivated\"}\n"));
}

TEST_F(DeviceRegistrationTest, aFailedInventoryLeavesTheTimeOfTheLastOneThatArrived) {
    const WallTime arrival = clock.now();
    EXPECT_TRUE(sendInventory().succeeded);
    clock.sleepMachine(std::chrono::minutes(1));
    http.thenAnswer(422);
    EXPECT_FALSE(sendInventory().succeeded);
    EXPECT_EQ(stateFile.load().lastInventoryAt, arrival);
    EXPECT_EQ(stateFile.load().lastConnectionErrorAt, arrival + std::chrono::minutes(1));
}

TEST_F(DeviceRegistrationTest, aFailedHeartbeatSaysWhyAndLeavesNoTimeOfItsOwn) {
    http.thenAnswer(410, R"({"detail":"Device is deactivated"})");
    EXPECT_EQ(sendHeartbeat(), AgentOperationOutcome::failure(connectionIssueMessage(
                                   AgentConnectionIssue::deviceDeactivated)));
    EXPECT_EQ(stateFile.load().lastHeartbeatAt, std::nullopt);
}

TEST_F(DeviceRegistrationTest, heartbeatSaysThatTheDeviceLivesAndClearsTheProblem) {
    http.thenFail(UrlErrorCode::serverCertificateUntrusted);
    EXPECT_FALSE(sendHeartbeat().succeeded);
    EXPECT_EQ(stateFile.load().connectionIssue, AgentConnectionIssue::temporarilyUnavailable);
    EXPECT_THAT(log(), HasSubstr("[ERROR] Heartbeat failed: The test's network failed "
                                 "(serverCertificateUntrusted)\n"));

    EXPECT_TRUE(sendHeartbeat("startup").succeeded);
    const ViewerState state = stateFile.load();
    EXPECT_EQ(state.connectionIssue, std::nullopt);
    EXPECT_EQ(state.connectionMessage, std::nullopt);
    EXPECT_EQ(state.lastConnectionErrorAt, std::nullopt);
    EXPECT_EQ(state.lastHeartbeatAt, clock.now());
    EXPECT_THAT(log(), EndsWith("[INFO] Heartbeat sent successfully. reason=startup device_uid=- "
                                "support_id=-\n"));
}

TEST_F(DeviceRegistrationTest, aSuccessfulInventoryClearsTheProblemToo) {
    registration().recordConnectionError(UrlError(UrlErrorCode::timedOut, "x"));
    EXPECT_NE(stateFile.load().connectionIssue, std::nullopt);
    sendInventory();
    EXPECT_EQ(stateFile.load().connectionIssue, std::nullopt);
}

TEST_F(DeviceRegistrationTest, heartbeatCarriesTheStateThatTheServiceHolds) {
    http.thenAnswer(200, R"({"device_uid":"srv-1"})");
    sendInventory();
    sendHeartbeat();
    EXPECT_EQ(collector.heartbeatState.deviceUid, "srv-1");
}

TEST_F(DeviceRegistrationTest, identityPrefersWhatTheServerSaid) {
    collector.facts = {"mac-collected", "mac.local", "anna"};
    AgentIdentity expected{"mac-collected", std::nullopt, "mac.local", "anna"};
    EXPECT_EQ(registration().identity(), expected);

    http.thenAnswer(200, R"({"device_uid":"srv-1","support_id":"77"})");
    sendInventory();
    collector.facts.hostname = "renamed.local";
    expected = {"srv-1", "77", "mac.local", "anna"};
    EXPECT_EQ(registration().identity(), expected);
    EXPECT_EQ(collector.collections, 1) << "who we are costs no inventory";
}

TEST_F(DeviceRegistrationTest, withoutAnyIdentifierThereIsNoIdentity) {
    collector.facts = {"", "mac.local", std::nullopt};
    EXPECT_EQ(registration().identity(), std::nullopt);
}

TEST_F(DeviceRegistrationTest, secretsNeverReachTheLog) {
    http.thenAnswer(200, R"({"support_id":"77","device_token":"s3cret"})").thenAnswer(401, "no");
    sendInventory();
    sendHeartbeat();
    EXPECT_THAT(log(), Not(HasSubstr("s3cret")));
    EXPECT_THAT(log(), Not(HasSubstr("viewer")));
}

}  // namespace
}  // namespace orv
