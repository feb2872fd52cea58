#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/ControlChannelFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

const UrlError refused(UrlErrorCode::cannotConnectToHost, "Connection refused");

class ControlChannelTest : public ControlChannelFixture {};

TEST_F(ControlChannelTest, opensTheControlUrlAuthorisedAndGreets) {
    startWith({R"({"type": "control-ready"})"});
    ASSERT_EQ(sockets.requests.size(), 1u);
    EXPECT_EQ(sockets.requests[0].url, "wss://desk.example/api/agent/control");
    EXPECT_THAT(sockets.requests[0].headers,
                ElementsAre(HttpHeader{"Authorization", "Device device"}));
    ASSERT_EQ(socket().sent.size(), 1u);
    EXPECT_EQ(Json::parse(socket().sent[0]), controlHello(*identity));
    EXPECT_THAT(log(), ElementsAre(connecting, "[INFO] Control WSS ready."));
}

TEST_F(ControlChannelTest, sendsAHeartbeatAfterEachIntervalWithTheIdentityOfThatMoment) {
    start();
    loop.runFor(300s - 1ms);
    EXPECT_EQ(socket().sent.size(), 1u);
    loop.runFor(1ms);
    ASSERT_EQ(socket().sent.size(), 2u);
    EXPECT_EQ(Json::parse(socket().sent[1]), controlHeartbeat(*identity, clock.now()));
    identity.reset();
    loop.runFor(300s);
    EXPECT_EQ(socket().sent.size(), 2u);
    identity = AgentIdentity{"mac-2", std::nullopt, std::nullopt, std::nullopt};
    loop.runFor(300s);
    ASSERT_EQ(socket().sent.size(), 3u);
    EXPECT_EQ(Json::parse(socket().sent[2]).at("device_uid"), "mac-2");
}

TEST_F(ControlChannelTest, anIntervalOfZeroSendsHeartbeatsBackToBack) {
    settings.heartbeatIntervalSeconds = 0;
    start();
    for (int i = 0; i < 10; ++i) {
        clock.wakeNext();
        loop.runReady();
    }
    EXPECT_GE(socket().sent.size(), 10u);
    EXPECT_EQ(clock.monotonicNow(), MonotonicTime());
}

TEST_F(ControlChannelTest, anEndlessIntervalDoesNotOverflow) {
    settings.heartbeatIntervalSeconds = std::numeric_limits<std::int64_t>::max();
    start();
    loop.runFor(24h);
    EXPECT_EQ(socket().sent.size(), 1u);
}

TEST_F(ControlChannelTest, waitsForAnIdentityAndLooksEveryFiveSeconds) {
    identity.reset();
    start();
    loop.runFor(12s);
    EXPECT_TRUE(sockets.requests.empty());
    const std::string waiting = "[WARN] Control WSS waits for device identity.";
    EXPECT_THAT(log(), ElementsAre(waiting, waiting, waiting));
    EXPECT_THAT(errors, IsEmpty());
    identity = AgentIdentity{"mac-1", std::nullopt, std::nullopt, std::nullopt};
    loop.runFor(3s);
    EXPECT_EQ(sockets.requests.size(), 1u);
}

TEST_F(ControlChannelTest, awaitsTheWakeHandlerForEveryQueuedCommand) {
    wakeHandlerTakes = 10s;
    startWith({R"({"type": "agent_command.queued", "command_type": "shell"})",
               R"({"type": "agent_command.queued"})", R"({"type": "control-ready"})"});
    EXPECT_THAT(log(), ElementsAre(connecting,
                                   "[INFO] Control WSS wake-up received for command type=shell"));
    loop.runFor(30s);
    EXPECT_THAT(
        log(), ElementsAre(connecting, "[INFO] Control WSS wake-up received for command type=shell",
                           "[INFO] Control WSS wake-up received for command type=-",
                           "[INFO] Control WSS ready."));
    EXPECT_THAT(wakeUps, ElementsAre(MonotonicTime(0s), MonotonicTime(10s)));
}

TEST_F(ControlChannelTest, logsOtherMessagesButNotHeartbeatAcknowledgements) {
    startWith({R"({"type": "heartbeat-ack"})", R"({"type": "announcement"})", R"({"x": 1})"});
    EXPECT_THAT(log(), ElementsAre(connecting, "[INFO] Control WSS message type=announcement",
                                   "[INFO] Control WSS message type=message"));
}

TEST_F(ControlChannelTest, understandsBinaryFrames) {
    sockets.thenOpen()->saysInBinary(R"({"type": "control-ready"})");
    start();
    EXPECT_THAT(log(), Contains("[INFO] Control WSS ready."));
}

TEST_F(ControlChannelTest, remoteSessionsRunBesideTheConnectionAndOutliveIt) {
    sessionTakes = 100s;
    startWith({R"({"type": "remote_session.requested", "session": {"public_id": "rs-1"}})",
               R"({"type": "remote_session.requested", "session": {"public_id": "rs-2"}})",
               R"({"type": "control-ready"})"});
    EXPECT_THAT(log(),
                ElementsAre(connecting, "[INFO] Remote session requested: rs-1",
                            "[INFO] Remote session requested: rs-2", "[INFO] Control WSS ready."));
    socket().breaks(UrlError(UrlErrorCode::networkConnectionLost, "Connection reset by peer"));
    loop.runFor(50s);
    EXPECT_EQ(sockets.opened.size(), 2u);
    EXPECT_THAT(sessions, ElementsAre("begin rs-1", "begin rs-2"));
    loop.runFor(50s);
    EXPECT_THAT(sessions, ElementsAre("begin rs-1", "begin rs-2", "end rs-1", "end rs-2"));
}

TEST_F(ControlChannelTest, aMalformedRemoteSessionRequestIsSkipped) {
    startWith(
        {R"({"type": "remote_session.requested", "session": {}})", R"({"type": "control-ready"})"});
    EXPECT_THAT(log(), ElementsAre(connecting, "[WARN] Malformed remote_session.requested event.",
                                   "[INFO] Control WSS ready."));
    EXPECT_THAT(sessions, IsEmpty());
}

TEST_F(ControlChannelTest, aRejectionFailsTheConnectionAndDropsAnInvalidDeviceToken) {
    startWith(
        {R"({"type": "control-rejected", "status_code": 401, "detail": "Invalid device token"})"});
    EXPECT_EQ(socket().closeCode, webSocketGoingAway);
    EXPECT_THAT(errors, ElementsAre("HTTP 401: Invalid device token"));
    EXPECT_THAT(log(), ElementsAre(connecting,
                                   "[ERROR] Control WSS disconnected: HTTP 401: "
                                   "Invalid device token"));
    loop.runFor(2s);
    ASSERT_EQ(sockets.requests.size(), 2u);
    EXPECT_EQ(sockets.requests[1].headers[0].value, "Bearer viewer");
}

TEST_F(ControlChannelTest, aRejectionWithoutReasonsIsHttp401) {
    startWith({R"({"type": "control-rejected"})"});
    EXPECT_THAT(errors, ElementsAre("HTTP 401"));
    EXPECT_EQ(credentials.deviceToken, "device");
}

TEST_F(ControlChannelTest, whatIsNoJsonObjectFailsTheConnection) {
    const std::pair<std::string, std::string> messages[] = {
        {"[]", "WebSocket JSON object expected."},
        {"7", "WebSocket JSON object expected."},
        {"null", "WebSocket JSON object expected."},
        {"", ""},
        {"{", ""},
        {"{\"type\": \"\xff\"}", ""},
        {std::string(1000, '[') + std::string(1000, ']'), ""},
    };
    for (const auto& [message, error] : messages) {
        sockets.thenOpen()->says(message);
    }
    settings.controlReconnectMaxSeconds = 2;
    start();
    loop.runFor(2s * (std::size(messages) - 1));
    ASSERT_EQ(errors.size(), std::size(messages));
    for (std::size_t i = 0; i < std::size(messages); ++i) {
        EXPECT_EQ(socket(i).closeCode, webSocketGoingAway);
        EXPECT_NE(errors[i], "");
        if (!messages[i].second.empty()) {
            EXPECT_EQ(errors[i], messages[i].second);
        }
    }
}

TEST_F(ControlChannelTest, everyFailureIsLoggedReportedAndWaitedFor) {
    settings.controlReconnectMaxSeconds = 5;
    sockets.failure = refused;
    start();
    loop.runFor(15s);
    EXPECT_THAT(waits(), ElementsAre(2s, 4s, 5s, 5s));
    const std::string line =
        "[ERROR] Control WSS disconnected: Connection refused (cannotConnectToHost)";
    EXPECT_THAT(
        log(), ElementsAre(connecting, line, connecting, line, connecting, line, connecting, line));
    EXPECT_EQ(errors.size(), 4u);
    EXPECT_EQ(errors.at(0), "Connection refused (cannotConnectToHost)");
}

TEST_F(ControlChannelTest, aConnectionThatWasOpenDoesNotShortenTheNextWait) {
    sockets.thenFail(refused);
    start();
    loop.runFor(2s + 1h);
    socket().breaks(refused);
    loop.runFor(1h);
    socket(1).breaks(refused);
    loop.runFor(1h);
    EXPECT_THAT(waits(), ElementsAre(2s, 4s, 8s));
}

TEST_F(ControlChannelTest, aCloseInGoodOrderIsFollowedAtOnceAndResetsTheWait) {
    for (const std::uint16_t code : {1000, 1001}) {
        clock.sleeps.clear();
        sockets.opened.clear();
        sockets.thenFail(refused);
        start();
        loop.runFor(3s);
        loop.runFor(2s);
        socket().closes(code);
        loop.runReady();
        EXPECT_EQ(sockets.opened.size(), 2u);
        EXPECT_EQ(socket().closeCode, webSocketGoingAway);
        socket(1).breaks(refused);
        loop.runFor(2s);
        EXPECT_THAT(waits(), ElementsAre(2s, 2s));
        EXPECT_EQ(sockets.opened.size(), 3u);
        stop();
    }
}

TEST_F(ControlChannelTest, anyOtherCloseIsAFailure) {
    for (const std::uint16_t code : {1002, 1008, 1011, 1012, 4401, 1005}) {
        sockets.thenOpen()->closes(code);
    }
    settings.controlReconnectMaxSeconds = 2;
    start();
    loop.runFor(9s);
    EXPECT_THAT(
        errors,
        ElementsAre("The server closed the WebSocket with code 1002 (networkConnectionLost)",
                    "The server closed the WebSocket with code 1008 (networkConnectionLost)",
                    "The server closed the WebSocket with code 1011 (networkConnectionLost)",
                    "The server closed the WebSocket with code 1012 (networkConnectionLost)",
                    "The server closed the WebSocket with code 4401 (networkConnectionLost)"));
    loop.runFor(2s);
    EXPECT_EQ(errors.back(),
              "The server closed the WebSocket without a code (networkConnectionLost)");
}

TEST_F(ControlChannelTest, aServerThatAcceptsAndClosesDoesNotMakeItSpin) {
    for (int i = 0; i < 4; ++i)
        sockets.thenOpen()->closes(1000);
    start();
    EXPECT_EQ(sockets.opened.size(), 2u);
    loop.runFor(20s);
    EXPECT_THAT(waits(), ElementsAre(2s, 4s, 8s));
    EXPECT_EQ(errors.size(), 3u);
    EXPECT_EQ(sockets.opened.size(), 5u);
}

TEST_F(ControlChannelTest, aSendThatFailsIsToldByReceiving) {
    settings.heartbeatIntervalSeconds = 60;
    start();
    socket().refusesToSend = true;
    loop.runFor(60s);
    EXPECT_THAT(errors, IsEmpty());
    socket().breaks(UrlError(UrlErrorCode::networkConnectionLost, "Broken pipe"));
    loop.runReady();
    EXPECT_THAT(errors, ElementsAre("Broken pipe (networkConnectionLost)"));
}

TEST_F(ControlChannelTest, heartbeatsEndWithTheirConnection) {
    start();
    loop.runFor(299s);
    socket().breaks(refused);
    loop.runFor(290s);
    EXPECT_EQ(socket().sent.size(), 1u);
    EXPECT_EQ(socket(1).sent.size(), 1u);
    EXPECT_EQ(clock.sleepers(), 1u);
}

TEST_F(ControlChannelTest, asksTheOpenConnectionForASignOfLifeWhenTheMachineWakes) {
    sockets.thenFail(refused);
    start();
    channel->machineWoke();
    loop.runFor(2s);
    EXPECT_THAT(socket().probes, IsEmpty());
    channel->machineWoke();
    EXPECT_THAT(socket().probes, ElementsAre(5s));
    socket().breaks(UrlError(UrlErrorCode::timedOut, "The server did not answer a ping"));
    loop.runFor(4s);
    EXPECT_EQ(sockets.opened.size(), 2u);
    channel->machineWoke();
    EXPECT_THAT(socket().probes, ElementsAre(5s));
    EXPECT_THAT(socket(1).probes, ElementsAre(5s));
}

TEST_F(ControlChannelTest, anIntervalThatEndedWhileTheMachineSleptGivesOneHeartbeat) {
    start();
    clock.sleepMachine(8h);
    loop.runFor(1s);
    EXPECT_EQ(socket().sent.size(), 2u);
    loop.runFor(300s);
    EXPECT_EQ(socket().sent.size(), 3u);
}

TEST_F(ControlChannelTest, aBaseUrlThatIsNoneIsAFailureLikeAnother) {
    settings.serverBaseUrl = "nonsense";
    start();
    EXPECT_THAT(errors, ElementsAre("Invalid control WSS URL."));
    EXPECT_THAT(log(), ElementsAre("[ERROR] Control WSS disconnected: Invalid control WSS URL."));
    EXPECT_EQ(clock.sleepers(), 1u);
}

TEST_F(ControlChannelTest, theEndOfTheProcessClosesWith1001AndEndsSessions) {
    sessionTakes = 1h;
    startWith({R"({"type": "remote_session.requested", "session": {"public_id": "rs-1"}})"});
    stop();
    EXPECT_TRUE(running->isDone);
    EXPECT_EQ(socket().closeCode, webSocketGoingAway);
    EXPECT_THAT(sessions, ElementsAre("begin rs-1", "cancelled rs-1"));
    EXPECT_THAT(errors, IsEmpty());
    EXPECT_EQ(clock.sleepers(), 0u);
    EXPECT_EQ(sockets.opened.size(), 1u);
}

TEST_F(ControlChannelTest, theEndOfTheProcessInterruptsEveryWait) {
    sockets.failure = refused;
    start();
    stop();
    EXPECT_TRUE(running->isDone);
    identity.reset();
    start();
    stop();
    EXPECT_TRUE(running->isDone);
    identity = AgentIdentity{"mac-1", std::nullopt, std::nullopt, std::nullopt};
    wakeHandlerTakes = 1h;
    startWith({R"({"type": "agent_command.queued"})"});
    stop();
    EXPECT_TRUE(running->isDone);
    EXPECT_EQ(socket().closeCode, webSocketGoingAway);
    EXPECT_EQ(clock.sleepers(), 0u);
    EXPECT_THAT(errors, ElementsAre("Connection refused (cannotConnectToHost)"));
}

}  // namespace
}  // namespace orv
