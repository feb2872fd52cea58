#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/WebSocketFixture.h"
#include "Support/WebSocketScripts.h"

namespace orv::test {
namespace {

using namespace std::chrono_literals;
using Connection = std::shared_ptr<ServerConnection>;

/// Connections that see nothing for a while: because they are told to, or because the machine
/// slept.
class BeastWebSocketPauseTest : public WebSocketFixture {
protected:
    int sent = 0;

    std::unique_ptr<WebSocketConnection> connectToSender(int count, std::size_t size) {
        return connectTo(
            [this, count, size](Connection c) { return sendNumbered(c, count, size, sent); });
    }
};

TEST_F(BeastWebSocketPauseTest, readsNothingMoreUntilItIsToldTo) {
    constexpr int count = 200;
    const auto connection = connectToSender(count, 64 * 1024);
    connection->pauseReading(true);
    settle();
    const int taken = sent;
    EXPECT_LT(taken, 64) << "less than without being told";
    letTimePass(1h);
    EXPECT_EQ(sent, taken);
    connection->pauseReading(false);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(std::stoi(receiveText(*connection)), i);
    EXPECT_EQ(sent, count);
}

TEST_F(BeastWebSocketPauseTest, beingToldTwiceChangesNothing) {
    const auto connection = connectToSender(3, 1);
    connection->pauseReading(true);
    connection->pauseReading(true);
    connection->pauseReading(false);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(std::stoi(receiveText(*connection)), i);
}

TEST_F(BeastWebSocketPauseTest, noticesABrokenConnectionThoughItDoesNotRead) {
    const auto connection = connectToSender(10, 64 * 1024);
    connection->pauseReading(true);
    settle();
    while (true) {  // what was under way when reading paused
        std::vector<std::string> texts;
        BackgroundTask receiving(loop, receiveInto(connection->receive(), texts));
        settle();
        if (!texts.empty()) continue;
        peer().reset();
        settle();
        ASSERT_TRUE(receiving.isDone);
        EXPECT_EQ(whatOf(receiving.error), "Connection reset by peer (networkConnectionLost)");
        break;
    }
}

TEST_F(BeastWebSocketPauseTest, closesAlthoughItDoesNotRead) {
    const auto connection = connectToSender(10, 1);
    connection->pauseReading(true);
    settle();
    loop.run(connection->close(webSocketGoingAway));
    settle();
    EXPECT_EQ(peer().closeCode, 1001);
}

TEST_F(BeastWebSocketPauseTest, aMachineThatSleptFindsAHealthyConnectionHealthy) {
    const auto connection = connectTo(answerPings);
    letTimePass(10s);
    clock.sleepMachine(8h);
    letTimePass(0s);
    EXPECT_EQ(peer().pings, 1);
    letTimePass(30s);
    EXPECT_EQ(peer().pings, 2) << "no burst of pings that the sleep left out";
    loop.run(connection->sendText("still open"));
}

TEST_F(BeastWebSocketPauseTest, aMachineThatSleptNoticesADeadConnectionWithinFiveSeconds) {
    const auto connection = connectTo(swallowPings);
    std::vector<std::string> texts;
    BackgroundTask receiving(loop, receiveInto(connection->receive(), texts));
    letTimePass(10s);
    clock.sleepMachine(8h);
    letTimePass(5s - 1ms);
    EXPECT_FALSE(receiving.isDone);
    letTimePass(1ms);
    ASSERT_TRUE(receiving.isDone);
    EXPECT_EQ(whatOf(receiving.error), "The server did not answer a ping within 5 s (timedOut)");
}

TEST_F(BeastWebSocketPauseTest, aTimerThatIsALittleLateIsNoSleep) {
    const auto connection = connectTo(swallowPings);
    std::vector<std::string> texts;
    BackgroundTask receiving(loop, receiveInto(connection->receive(), texts));
    settle();
    for (int i = 0; i < 3; ++i) {
        clock.sleepMachine(31s);
        letTimePass(0s);
    }
    ASSERT_TRUE(receiving.isDone);
    EXPECT_EQ(whatOf(receiving.error), "Nothing arrived from the server for 75 s (timedOut)");
}

}  // namespace
}  // namespace orv::test
