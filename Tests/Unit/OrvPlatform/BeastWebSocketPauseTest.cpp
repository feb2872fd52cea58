#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/WebSocketFixture.h"
#include "Support/WebSocketScripts.h"

namespace orv::test {
namespace {

using namespace std::chrono_literals;
using Connection = std::shared_ptr<ServerConnection>;

Task<void> receiveAll(WebSocketConnection& connection, std::vector<std::string>& texts) {
    for (;;) {
        const WebSocketEvent event = co_await connection.receive();
        texts.push_back(std::get<WebSocketMessage>(event).data);
    }
}

/// Connections that see nothing for a while: because they are told to, or because the machine
/// slept.
class BeastWebSocketPauseTest : public WebSocketFixture {
protected:
    int sent = 0;
    std::vector<std::string> texts;
    std::unique_ptr<WebSocketConnection> connection;
    std::optional<BackgroundTask> receiving;

    ~BeastWebSocketPauseTest() override {
        connection.reset();
        settle();
    }

    void receiveFrom(TestWebSocketServer::Script script) {
        connection = connectTo(std::move(script));
        receiving.emplace(loop, receiveAll(*connection, texts));
    }

    /// A server that sends only now, to a client that has just been told to pause.
    void receiveNumberedWhilePausing(int count) {
        receiveFrom([this, count](Connection c) { return sendNumberedWhenAsked(c, count, sent); });
        connection->pauseReading(true);
        loop.run(connection->sendText("send"));
    }
};

TEST_F(BeastWebSocketPauseTest, readsNothingMoreUntilItIsToldTo) {
    receiveNumberedWhilePausing(10);
    connection->pauseReading(true);
    letTimePass(1h);
    EXPECT_LE(texts.size(), 1u) << "only what was under way";
    EXPECT_FALSE(receiving->isDone) << "a pause is no silence";
    connection->pauseReading(false);
    settle();
    EXPECT_THAT(texts, testing::ElementsAre("0", "1", "2", "3", "4", "5", "6", "7", "8", "9"));
}

TEST_F(BeastWebSocketPauseTest, noticesABrokenConnectionThoughItDoesNotRead) {
    receiveNumberedWhilePausing(10);
    settle();
    EXPECT_FALSE(receiving->isDone);
    peer().reset();
    settle();
    ASSERT_TRUE(receiving->isDone);
    EXPECT_EQ(whatOf(receiving->error), "Connection reset by peer (networkConnectionLost)");
}

TEST_F(BeastWebSocketPauseTest, closesAlthoughItDoesNotRead) {
    receiveNumberedWhilePausing(10);
    settle();
    loop.run(connection->close(webSocketGoingAway));
    settle();
    EXPECT_EQ(peer().closeCode, 1001);
}

TEST_F(BeastWebSocketPauseTest, aMachineThatSleptFindsAHealthyConnectionHealthy) {
    receiveFrom(answerPings);
    letTimePass(10s);
    clock.sleepMachine(8h);
    letTimePass(0s);
    EXPECT_EQ(peer().pings, 1);
    letTimePass(30s);
    EXPECT_EQ(peer().pings, 2) << "no burst of pings that the sleep left out";
    loop.run(connection->sendText("still open"));
}

TEST_F(BeastWebSocketPauseTest, aMachineThatSleptNoticesADeadConnectionWithinFiveSeconds) {
    receiveFrom(swallowPings);
    letTimePass(10s);
    clock.sleepMachine(8h);
    letTimePass(5s - 1ms);
    EXPECT_FALSE(receiving->isDone);
    letTimePass(1ms);
    ASSERT_TRUE(receiving->isDone);
    EXPECT_EQ(whatOf(receiving->error), "The server did not answer a ping within 5 s (timedOut)");
}

TEST_F(BeastWebSocketPauseTest, aTimerThatIsALittleLateIsNoSleep) {
    receiveFrom(swallowPings);
    settle();
    for (const auto later : {31s, 31s, 14s}) {  // timers are due at 30, 61 and 75 s
        clock.sleepMachine(later);
        letTimePass(0s);
    }
    ASSERT_TRUE(receiving->isDone);
    EXPECT_EQ(whatOf(receiving->error), "Nothing arrived from the server for 75 s (timedOut)");
}

}  // namespace
}  // namespace orv::test
