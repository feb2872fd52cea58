#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/ControlProtocol.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::Optional;

TEST(ControlProtocolTest, theControlUrlIsTheBaseUrlsHostWithAPathOfItsOwn) {
    EXPECT_THAT(controlUrl("https://desk.example"),
                Optional(std::string("wss://desk.example/api/agent/control")));
    EXPECT_THAT(controlUrl("http://desk.example"),
                Optional(std::string("ws://desk.example/api/agent/control")));
    EXPECT_THAT(controlUrl("HTTPS://Desk.example:8443"),
                Optional(std::string("wss://Desk.example:8443/api/agent/control")));
    EXPECT_THAT(controlUrl("  https://desk.example/helpdesk/v2//\n"),
                Optional(std::string("wss://desk.example/api/agent/control")));
    EXPECT_THAT(controlUrl("https://desk.example/x?tenant=a%20b"),
                Optional(std::string("wss://desk.example/api/agent/control?tenant=a%20b")));
    EXPECT_THAT(controlUrl("https://[::1]:1/"),
                Optional(std::string("wss://[::1]:1/api/agent/control")));
    EXPECT_THAT(controlUrl("ftp://desk.example"),
                Optional(std::string("ws://desk.example/api/agent/control")));
    EXPECT_THAT(controlUrl("//desk.example"),
                Optional(std::string("ws://desk.example/api/agent/control")));
}

TEST(ControlProtocolTest, aBaseUrlThatIsNoneGivesNoControlUrl) {
    EXPECT_EQ(controlUrl(""), std::nullopt);
    EXPECT_EQ(controlUrl("https://desk example"), std::nullopt);
    EXPECT_EQ(controlUrl("desk"), std::nullopt);
}

TEST(ControlProtocolTest, theHelloNamesTheDeviceAndItsCapabilities) {
    const AgentIdentity identity{"mac-1", "123 456", "Mac Anny", "anna"};
    EXPECT_EQ(controlHello(identity), Json::parse(R"({
        "type": "hello", "device_uid": "mac-1", "support_id": "123 456", "hostname": "Mac Anny",
        "agent_version": "0.2.55", "status": "online",
        "capabilities": {
            "remote": true, "webrtc": true, "clipboard": true, "pre_login": false,
            "platform": "macos", "screen_capture": "ScreenCaptureKit",
            "permissions_required": ["screen_recording", "accessibility", "input_monitoring"]}})"));
}

TEST(ControlProtocolTest, theHeartbeatCarriesTheTimeInCamelCase) {
    const AgentIdentity identity{"mac-1", "123 456", "Mac Anny", std::nullopt};
    const WallTime now(1772356502s + 900ms);
    EXPECT_EQ(controlHeartbeat(identity, now), Json::parse(R"({
        "type": "heartbeat", "device_uid": "mac-1", "support_id": "123 456",
        "hostname": "Mac Anny", "agent_version": "0.2.55", "status": "online",
        "platform": "macos", "sentAt": "2026-03-01T09:15:02Z"})"));
}

TEST(ControlProtocolTest, whatIsNotKnownOfTheDeviceIsSentAsNull) {
    const AgentIdentity identity{"mac-1", std::nullopt, std::nullopt, std::nullopt};
    EXPECT_TRUE(controlHello(identity).at("support_id").is_null());
    EXPECT_TRUE(controlHello(identity).at("hostname").is_null());
    EXPECT_TRUE(controlHeartbeat(identity, WallTime()).at("support_id").is_null());
}

template <typename Meaning>
Meaning meaningOf(const char* text) {
    return std::get<Meaning>(control::interpret(Json::parse(text)));
}

TEST(ControlProtocolTest, aRejectionWithoutReasonsIs401AndEmpty) {
    const auto bare = meaningOf<control::Rejected>(R"({"type": "control-rejected"})");
    EXPECT_EQ(bare.status, 401);
    EXPECT_EQ(bare.detail, "");
    const auto full = meaningOf<control::Rejected>(
        R"({"type": "control-rejected", "status_code": 410, "detail": "Device is deactivated"})");
    EXPECT_EQ(full.status, 410);
    EXPECT_EQ(full.detail, "Device is deactivated");
    for (const char* odd : {
             R"({"type": "control-rejected", "status_code": "410", "detail": 5})",
             R"({"type": "control-rejected", "status_code": 410.5, "detail": null})",
             R"({"type": "control-rejected", "status_code": 99999999999, "detail": ["x"]})",
             R"({"type": "control-rejected", "status_code": null, "detail": {}})",
             R"({"type": "control-rejected", "status_code": true, "detail": false})",
         }) {
        EXPECT_EQ(meaningOf<control::Rejected>(odd).status, 401) << odd;
        EXPECT_EQ(meaningOf<control::Rejected>(odd).detail, "") << odd;
    }
}

TEST(ControlProtocolTest, theCommandsTypeIsADashWhenItIsNoText) {
    const auto typeOf = [](const char* text) {
        return meaningOf<control::CommandQueued>(text).commandType;
    };
    EXPECT_EQ(typeOf(R"({"type": "agent_command.queued", "command_type": "shell"})"), "shell");
    EXPECT_EQ(typeOf(R"({"type": "agent_command.queued", "command_type": ""})"), "");
    EXPECT_EQ(typeOf(R"({"type": "agent_command.queued"})"), "-");
    EXPECT_EQ(typeOf(R"({"type": "agent_command.queued", "command_type": 7})"), "-");
    EXPECT_EQ(typeOf(R"({"type": "agent_command.queued", "command_type": null})"), "-");
}

TEST(ControlProtocolTest, tellsTheOtherMessagesApartByTheirExactType) {
    meaningOf<control::Ready>(R"({"type": "control-ready"})");
    meaningOf<control::HeartbeatAcknowledged>(R"({"type": "heartbeat-ack"})");
    meaningOf<control::MalformedRemoteSessionRequest>(R"({"type": "remote_session.requested"})");
    const auto wish = meaningOf<control::RemoteSessionRequested>(
        R"({"type": "remote_session.requested", "session": {"public_id": "rs-1"}})");
    EXPECT_EQ(wish.request.sessionPublicId, "rs-1");
    EXPECT_EQ(meaningOf<control::Other>(R"({"type": "Control-Ready"})").type, "Control-Ready");
    EXPECT_EQ(meaningOf<control::Other>(R"({"type": ""})").type, "");
    EXPECT_EQ(meaningOf<control::Other>(R"({"type": 1})").type, "message");
    EXPECT_EQ(meaningOf<control::Other>(R"({"type": null})").type, "message");
    EXPECT_EQ(meaningOf<control::Other>("{}").type, "message");
}

std::vector<std::chrono::seconds> waits(ReconnectPolicy policy, int count) {
    std::vector<std::chrono::seconds> result;
    for (int i = 0; i < count; ++i)
        result.push_back(policy.nextWait());
    return result;
}

TEST(ReconnectPolicyTest, waitsTwiceAsLongEachTimeUpToTheCap) {
    EXPECT_THAT(waits(ReconnectPolicy(5s), 5), testing::ElementsAre(2s, 4s, 5s, 5s, 5s));
    EXPECT_THAT(waits(ReconnectPolicy(60s), 7),
                testing::ElementsAre(2s, 4s, 8s, 16s, 32s, 60s, 60s));
    EXPECT_THAT(waits(ReconnectPolicy(1s), 3), testing::ElementsAre(2s, 1s, 1s));
}

TEST(ReconnectPolicyTest, aCloseInGoodOrderBeginsAnew) {
    ReconnectPolicy policy(300s);
    policy.nextWait();
    policy.nextWait();
    EXPECT_TRUE(policy.closedInGoodOrder(2s));
    EXPECT_EQ(policy.nextWait(), 2s);
}

TEST(ReconnectPolicyTest, aServerThatClosesAtOnceCountsAsAFailureFromTheSecondTimeOn) {
    ReconnectPolicy policy(300s);
    EXPECT_TRUE(policy.closedInGoodOrder(2s - 1ns));
    EXPECT_FALSE(policy.closedInGoodOrder(0s));
    EXPECT_EQ(policy.nextWait(), 2s);
    EXPECT_FALSE(policy.closedInGoodOrder(1s));
    EXPECT_EQ(policy.nextWait(), 4s);
    EXPECT_TRUE(policy.closedInGoodOrder(2s));
    EXPECT_TRUE(policy.closedInGoodOrder(1s));
    EXPECT_EQ(policy.nextWait(), 2s);
}

TEST(ReconnectPolicyTest, aFailureInBetweenBreaksTheRow) {
    ReconnectPolicy policy(300s);
    EXPECT_TRUE(policy.closedInGoodOrder(1s));
    policy.failed();
    EXPECT_TRUE(policy.closedInGoodOrder(1s));
    EXPECT_FALSE(policy.closedInGoodOrder(1s));
}

}  // namespace
}  // namespace orv
