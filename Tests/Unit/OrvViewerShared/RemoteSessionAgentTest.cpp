#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvViewerShared/RemoteSessionAgent.h"
#include "OrvViewerShared/ViewerError.h"
#include "Support/SocketAgentFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr const char* noMediaEngine =
    "macOS remote media engine needs GoogleWebRTC XCFramework plus ScreenCaptureKit capture. "
    "Signaling works, media is not bundled yet.";

/// Reports as "status" or "status: error message".
class FakeReporter final : public RemoteStatusReporter {
public:
    std::vector<std::string> reports;
    std::vector<Json> metadata;
    std::string failsAt;  // a status

    Task<void> updateRemoteStatus(std::string sessionPublicId, std::string status,
                                  std::optional<std::string> errorMessage,
                                  Json sessionMetadata) override {
        EXPECT_EQ(sessionPublicId, "rs-1");
        reports.push_back(errorMessage ? status + ": " + *errorMessage : status);
        metadata.push_back(std::move(sessionMetadata));
        if (status == failsAt) throw ViewerError::http(503, "");
        co_return;
    }
};

class RemoteSessionAgentTest : public SocketAgentFixture {
protected:
    FakeReporter reporter;
    RemoteSessionAgent agent{{sockets, reporter, logger}};

    static RemoteSessionRequest request() {
        RemoteSessionRequest made;
        made.sessionPublicId = "rs-1";
        made.signalingUrl = "wss://signal.example/rs-1?t=abc";
        return made;
    }

    void handle() { loop.run(agent.handle(request())); }
};

TEST_F(RemoteSessionAgentTest, withoutSignalingUrlReportsReadinessAndFailure) {
    RemoteSessionRequest without = request();
    without.signalingUrl.reset();
    loop.run(agent.handle(without));
    EXPECT_THAT(reporter.reports,
                ElementsAre("agent_ready", "failed: Remote session is missing signaling URL."));
    EXPECT_TRUE(sockets.requests.empty());
    EXPECT_THAT(log(), testing::IsEmpty());
}

TEST_F(RemoteSessionAgentTest, theFirstOfferEndsTheSessionWithTheExplanation) {
    sockets.thenOpen()
        ->says(R"({"type": "welcome"})")
        .says(R"({"candidate": 1})")
        .saysInBinary(R"({"type": 5})")
        .says(R"({"type": "offer", "sdp": "v=0"})")
        .says(R"({"type": "offer"})");
    handle();
    EXPECT_EQ(sockets.requests[0].url, "wss://signal.example/rs-1?t=abc");
    EXPECT_TRUE(sockets.requests[0].headers.empty());
    EXPECT_THAT(reporter.reports,
                ElementsAre("agent_ready", "connecting", std::string("failed: ") + noMediaEngine));
    EXPECT_EQ(sockets.opened[0]->closeCode, webSocketGoingAway);
    EXPECT_EQ(sockets.opened[0]->waiting(), 1u);
    EXPECT_TRUE(sockets.opened[0]->sent.empty());
    EXPECT_THAT(log(), ElementsAre("[INFO] Remote signaling connected: rs-1",
                                   "[INFO] Remote signaling message type=welcome",
                                   "[INFO] Remote signaling message type=message",
                                   "[INFO] Remote signaling message type=message",
                                   "[INFO] Remote signaling message type=offer",
                                   std::string("[ERROR] Remote session failed: ") + noMediaEngine));
}

TEST_F(RemoteSessionAgentTest, everyStatusCarriesTheSameMetadata) {
    sockets.thenOpen()->says(R"({"type": "offer"})");
    handle();
    const Json expected = Json::parse(R"({
        "platform": "macos", "remote_engine": "screen_capturekit-webrtc", "video_codec": "vp8",
        "signaling": "wss", "data_channel": "orv-control",
        "screen_recording_permission": "required", "accessibility_permission": "required",
        "input_monitoring_permission": "required"})");
    EXPECT_THAT(reporter.metadata, ElementsAre(expected, expected, expected));
}

TEST_F(RemoteSessionAgentTest, aSocketThatCannotBeOpenedFailsTheSession) {
    sockets.thenFail(UrlError(UrlErrorCode::badServerResponse,
                              "The server refused the WebSocket upgrade with HTTP 403"));
    handle();
    EXPECT_THAT(reporter.reports,
                ElementsAre("agent_ready",
                            "failed: The server refused the WebSocket upgrade with "
                            "HTTP 403 (badServerResponse)"));
    EXPECT_THAT(log(),
                ElementsAre("[ERROR] Remote session failed: The server refused the WebSocket "
                            "upgrade with HTTP 403 (badServerResponse)"));
}

TEST_F(RemoteSessionAgentTest, theEndOfTheSocketFailsTheSession) {
    sockets.thenOpen()->breaks(UrlError(UrlErrorCode::timedOut, "Nothing arrived"));
    handle();
    EXPECT_EQ(reporter.reports.back(), "failed: Nothing arrived (timedOut)");
    sockets.thenOpen()->closes(1000);
    handle();
    EXPECT_EQ(reporter.reports.back(),
              "failed: The server closed the WebSocket with code 1000 (networkConnectionLost)");
    sockets.thenOpen()->says("[1]");
    handle();
    EXPECT_EQ(reporter.reports.back(), "failed: WebSocket JSON object expected.");
    for (const auto& socket : sockets.opened)
        EXPECT_EQ(socket->closeCode, webSocketGoingAway);
}

TEST_F(RemoteSessionAgentTest, aReportThatDoesNotGetThroughChangesNothing) {
    for (const std::string status : {"agent_ready", "connecting", "failed"}) {
        reporter.reports.clear();
        reporter.failsAt = status;
        sockets.thenOpen()->says(R"({"type": "offer"})");
        handle();
        EXPECT_EQ(reporter.reports.size(), 3u);
        EXPECT_THAT(log(), testing::Contains("[ERROR] Remote session status update failed status=" +
                                             status + ": HTTP 503"));
    }
}

TEST_F(RemoteSessionAgentTest, cancellationClosesWith1001AndReportsNothing) {
    BackgroundTask handling(loop, agent.handle(request()));
    loop.runReady();
    EXPECT_FALSE(handling.isDone);
    handling.cancel();
    loop.runReady();
    EXPECT_TRUE(handling.isDone);
    EXPECT_THAT(reporter.reports, ElementsAre("agent_ready", "connecting"));
    EXPECT_EQ(sockets.opened[0]->closeCode, webSocketGoingAway);
    EXPECT_THAT(log(), ElementsAre("[INFO] Remote signaling connected: rs-1"));
}

}  // namespace
}  // namespace orv
