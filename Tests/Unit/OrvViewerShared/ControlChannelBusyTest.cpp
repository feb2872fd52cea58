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

const UrlError vanished(UrlErrorCode::timedOut, "Nothing arrived from the server for 75 s");
constexpr const char* disconnected =
    "[ERROR] Control WSS disconnected: Nothing arrived from the server for 75 s (timedOut)";
constexpr const char* wakeUp = R"({"type": "agent_command.queued", "command_type": "shell"})";
constexpr const char* woken = "[INFO] Control WSS wake-up received for command type=shell";

std::string news(int number) {
    return R"({"type": "news-)" + std::to_string(number) + "\"}";
}

std::string newsLine(int number) {
    return "[INFO] Control WSS message type=news-" + std::to_string(number);
}

/// A command that takes five minutes has just begun.
class ControlChannelBusyTest : public ControlChannelFixture {
protected:
    static constexpr auto handlerTakes = 290s;

    void startBusy(const std::vector<std::string>& alsoSaid = {}) {
        wakeHandlerTakes = handlerTakes;
        std::vector<std::string> texts = {wakeUp};
        texts.insert(texts.end(), alsoSaid.begin(), alsoSaid.end());
        startWith(texts);
        ASSERT_EQ(wakeUps.size(), 1u);
    }
};

TEST_F(ControlChannelBusyTest, aDeadConnectionIsReplacedWhileTheHandlerGoesOn) {
    startBusy();
    socket().breaks(vanished);
    loop.runReady();
    EXPECT_THAT(log(), ElementsAre(connecting, woken, disconnected));
    EXPECT_THAT(errors, ElementsAre("Nothing arrived from the server for 75 s (timedOut)"));
    loop.runFor(2s);
    ASSERT_EQ(sockets.opened.size(), 2u);
    EXPECT_EQ(socket(1).sent.size(), 1u) << "it greets";
    socket(1).says(R"({"type": "control-ready"})");
    loop.runFor(handlerTakes - 2s - 1ms);
    EXPECT_THAT(log(), Not(Contains("[INFO] Control WSS ready.")));
    loop.runFor(1ms);
    EXPECT_THAT(log(), Contains("[INFO] Control WSS ready."));
    EXPECT_EQ(wakeUps.size(), 1u) << "the first was neither broken off nor begun again";
}

TEST_F(ControlChannelBusyTest, whatTheOldConnectionBroughtTakesEffectBeforeTheNewOnesMessages) {
    startBusy({wakeUp, news(1)});
    socket().breaks(vanished);
    loop.runFor(2s);
    socket(1).says(news(2)).says(wakeUp);
    loop.runFor(handlerTakes);
    EXPECT_THAT(wakeUps, ElementsAre(MonotonicTime(0s), MonotonicTime(handlerTakes)));
    loop.runFor(handlerTakes);
    EXPECT_THAT(log(), ElementsAre(connecting, woken, disconnected, connecting, woken, newsLine(1),
                                   newsLine(2), woken));
    EXPECT_EQ(wakeUps.size(), 3u);
}

TEST_F(ControlChannelBusyTest, aCloseInGoodOrderIsFollowedAtOnce) {
    startBusy();
    loop.runFor(10s);
    socket().closes(1001);
    loop.runReady();
    EXPECT_EQ(sockets.opened.size(), 2u);
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(ControlChannelBusyTest, aRejectionDoesNotWaitForTheHandlerAndEndsItsOwnConnectionOnly) {
    startBusy({news(1), R"({"type": "control-rejected", "detail": "Invalid device token"})"});
    EXPECT_THAT(errors, ElementsAre("HTTP 401: Invalid device token"));
    EXPECT_EQ(socket().closeCode, webSocketGoingAway);
    loop.runFor(2s);
    EXPECT_EQ(sockets.requests.at(1).headers.at(0).value, "Bearer viewer");
    loop.runFor(handlerTakes);
    EXPECT_THAT(log(), Contains(newsLine(1)));
    EXPECT_EQ(socket(1).closeCode, std::nullopt);
    EXPECT_EQ(sockets.opened.size(), 2u);
}

TEST_F(ControlChannelBusyTest, aRejectionIsTheReasonThoughTheServerClosesAfterIt) {
    wakeHandlerTakes = handlerTakes;
    sockets.thenOpen()
        ->says(wakeUp)
        .says(R"({"type": "control-rejected", "detail": "Invalid device token"})")
        .closes(1008);
    start();
    EXPECT_THAT(errors, ElementsAre("HTTP 401: Invalid device token"));
    EXPECT_EQ(credentials.deviceToken, std::nullopt);
}

TEST_F(ControlChannelBusyTest, whatIsNoMessageEndsTheConnectionAtOnce) {
    startBusy({news(1), "no JSON"});
    ASSERT_EQ(errors.size(), 1u);
    loop.runFor(handlerTakes);
    EXPECT_THAT(log(), Contains(newsLine(1)));
}

TEST_F(ControlChannelBusyTest, heartbeatsGoOn) {
    settings.heartbeatIntervalSeconds = 60;
    startBusy();
    loop.runFor(handlerTakes - 1s);
    EXPECT_EQ(socket().sent.size(), 1u + 4u);
}

TEST_F(ControlChannelBusyTest, readingPausesWhenSixtyFourWait) {
    std::vector<std::string> texts;
    for (int i = 0; i < 100; ++i)
        texts.push_back(news(i));
    startBusy(texts);
    EXPECT_TRUE(socket().isReadingPaused);
    // One more is on its way when reading pauses.
    EXPECT_EQ(socket().waiting(), texts.size() - 63);
    loop.runFor(handlerTakes);
    EXPECT_FALSE(socket().isReadingPaused);
    EXPECT_EQ(socket().waiting(), 0u);
    const std::vector<std::string> lines = log();
    ASSERT_EQ(lines.size(), 2 + texts.size());
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(lines[2 + static_cast<std::size_t>(i)], newsLine(i));
}

TEST_F(ControlChannelBusyTest,
       aConnectionThatDiesWhileReadingPausesIsReplacedAndTheNewOneWaitsToo) {
    std::vector<std::string> texts;
    for (int i = 0; i < 100; ++i)
        texts.push_back(news(i));
    startBusy(texts);
    socket().breaks(vanished);
    loop.runFor(2s);
    ASSERT_EQ(sockets.opened.size(), 2u);
    EXPECT_TRUE(socket(1).isReadingPaused);
    EXPECT_EQ(socket(1).sent.size(), 1u);
    socket(1).says(news(100));
    loop.runFor(handlerTakes);
    EXPECT_EQ(log().size(), 4u + 63u + 1u);
    EXPECT_EQ(log().back(), newsLine(100));
    EXPECT_FALSE(socket(1).isReadingPaused);
}

TEST_F(ControlChannelBusyTest, theEndOfTheProcessInterruptsTheHandlerAndBeginsNoOther) {
    startBusy({wakeUp, news(1)});
    stop();
    EXPECT_TRUE(running->isDone);
    EXPECT_EQ(socket().closeCode, webSocketGoingAway);
    EXPECT_EQ(wakeUps.size(), 1u);
    EXPECT_THAT(log(), ElementsAre(connecting, woken));
    EXPECT_EQ(clock.sleepers(), 0u);
}

TEST_F(ControlChannelBusyTest, aHandlerThatFailsHoldsNothingUp) {
    wakeHandlerFails = true;
    startWith({wakeUp, wakeUp, news(1)});
    loop.runFor(1ms);
    const std::string failed = "[ERROR] Control WSS wake-up failed: out of luck";
    EXPECT_THAT(log(), ElementsAre(connecting, woken, failed, woken, failed, newsLine(1)));
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(ControlChannelBusyTest, aThousandWakeUpsInARowAreAllActedUpon) {
    constexpr std::size_t count = 1'000;
    startWith(std::vector<std::string>(count, wakeUp));
    loop.runFor(1s);
    EXPECT_EQ(wakeUps.size(), count);
}

}  // namespace
}  // namespace orv
