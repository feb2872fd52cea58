#include <boost/asio/use_awaitable.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/BeastWebSocketConnection.h"
#include "Support/WebSocketFixture.h"
#include "Support/WebSocketScripts.h"

namespace orv::test {
namespace {

using namespace std::chrono_literals;
using Connection = std::shared_ptr<ServerConnection>;

constexpr std::size_t mebibyte = 1024 * 1024;
constexpr std::uint8_t finBinary = 0x82;
constexpr std::uint8_t finContinuation = 0x80;
constexpr std::uint8_t finClose = 0x88;
constexpr std::uint8_t finPing = 0x89;

Task<void> sendAndRead(Connection connection, std::string bytes) {
    co_await connection->upgrade();
    co_await connection->sendRaw(std::move(bytes));
    co_await connection->readToTheEnd();
}

Task<void> sendAndHangUp(Connection connection, std::string bytes) {
    co_await connection->upgrade();
    co_await connection->sendRaw(std::move(bytes));
    connection->tcp().close();
}

Task<void> resetAtOnce(Connection connection) {
    co_await connection->upgrade();
    connection->reset();
}

Task<void> sendCompressed(Connection connection, std::string text) {
    co_await connection->upgrade(true);
    co_await connection->send(std::move(text));
    co_await connection->readToTheEnd();
}

Task<void> neverRead(Connection connection) {
    co_await connection->upgrade();
    co_await connection->tcp().async_wait(asio::ip::tcp::socket::wait_error, asio::use_awaitable);
}

Task<void> speakButNeverRead(Connection connection, Clock& clock) {
    co_await connection->upgrade();
    for (;;) {
        co_await clock.sleepFor(10s);
        co_await connection->sendRaw(serverFrame(finText, "still here"));
    }
}

Task<void> keepTexts(Connection connection, std::vector<std::string>& texts) {
    co_await connection->upgrade();
    for (;;) {
        std::string text = co_await connection->receive();
        texts.push_back(std::move(text));
    }
}

/// More than the buffers between here and a server that does not read can hold.
std::string unsendable() {
    return std::string(16 * mebibyte, 'x');
}

class BeastWebSocketConnectionTest : public WebSocketFixture {
protected:
    std::unique_ptr<WebSocketConnection> connectToSender(std::string bytes) {
        return connectTo([bytes](Connection c) { return sendAndRead(c, bytes); });
    }

    std::string failureAfter(std::string bytes) {
        const auto connection = connectToSender(std::move(bytes));
        std::string failure = failureOf(connection->receive());
        settle();
        return failure;
    }
};

TEST_F(BeastWebSocketConnectionTest, receivesTextBinaryEmptyAndFragmentedMessagesInOrder) {
    const auto connection = connectToSender(
        serverFrame(finText, "zażółć") + serverFrame(finBinary, std::string("\0\xff", 2)) +
        serverFrame(finText, "") + serverFrame(0x01, "in ") + serverFrame(finPing, "between") +
        serverFrame(0x00, "three ") + serverFrame(finContinuation, "pieces"));
    const auto text = std::get<WebSocketMessage>(loop.run(connection->receive()));
    EXPECT_TRUE(text.isText);
    EXPECT_EQ(text.data, "zażółć");
    const auto binary = std::get<WebSocketMessage>(loop.run(connection->receive()));
    EXPECT_FALSE(binary.isText);
    EXPECT_EQ(binary.data, std::string("\0\xff", 2));
    EXPECT_EQ(receiveText(*connection), "");
    EXPECT_EQ(receiveText(*connection), "in three pieces");
}

TEST_F(BeastWebSocketConnectionTest, receivesAMebibyteButNotAByteMore) {
    const std::string largest(mebibyte, 'x');
    const auto connection = connectToSender(serverFrame(finText, largest));
    EXPECT_EQ(receiveText(*connection), largest);
    EXPECT_EQ(failureAfter(serverFrame(finText, largest + "x")),
              "The server sent a message over the limit (dataLengthExceedsMaximum)");
    EXPECT_EQ(failureAfter(serverFrame(0x01, largest) + serverFrame(finContinuation, "x")),
              "The server sent a message over the limit (dataLengthExceedsMaximum)");
}

TEST_F(BeastWebSocketConnectionTest, understandsCompressedMessages) {
    const std::string text(100'000, 'a');
    const auto connection = connectTo([text](Connection c) { return sendCompressed(c, text); });
    EXPECT_EQ(receiveText(*connection), text);
    EXPECT_THAT(std::string(peer().request["Sec-WebSocket-Extensions"]),
                testing::StartsWith("permessage-deflate"));
}

TEST_F(BeastWebSocketConnectionTest, limitsWhatACompressedMessageUnpacksTo) {
    const std::string bomb(4 * mebibyte, 'a');
    const auto connection = connectTo([bomb](Connection c) { return sendCompressed(c, bomb); });
    EXPECT_EQ(failureOf(connection->receive()),
              "The server sent a message over the limit (dataLengthExceedsMaximum)");
}

TEST_F(BeastWebSocketConnectionTest, endsAConnectionThatBreaksTheProtocol) {
    EXPECT_THAT(failureAfter(serverFrame(finText, "\xff\xfe")),
                testing::StartsWith("The server violated the WebSocket protocol"));
    EXPECT_EQ(peer().closeCode, 1007);
    const std::vector<std::string> violations = {
        serverFrame(0x83, "reserved opcode"),
        serverFrame(0xc1, "compressed without agreement"),
        serverFrame(finContinuation, "continues nothing"),
        serverFrame(0x09, "fragmented ping"),
        serverFrame(finPing, std::string(126, 'x')),
        serverFrame(finClose, "x"),
        serverFrame(finClose, "\x03\xed"),  // 1005 must not be sent
    };
    for (const std::string& violation : violations) {
        EXPECT_THAT(
            failureAfter(violation),
            testing::AllOf(testing::StartsWith("The server violated the WebSocket protocol"),
                           testing::EndsWith("(badServerResponse)")));
        EXPECT_EQ(peer().closeCode, 1002);
    }
}

TEST_F(BeastWebSocketConnectionTest, deliversWhatCameBeforeTheEndAndThenTellsWhy) {
    const auto cut = connectTo(
        [](Connection c) { return sendAndHangUp(c, serverFrame(finText, "last words")); });
    settle();
    EXPECT_EQ(receiveText(*cut), "last words");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(failureOf(cut->receive()),
                  "The server ended the connection without closing the WebSocket "
                  "(networkConnectionLost)");
    }
    EXPECT_THAT(failureOf(cut->sendText("x")), testing::EndsWith("(networkConnectionLost)"));

    const auto broken = connectTo(resetAtOnce);
    EXPECT_THAT(failureOf(broken->receive()), testing::EndsWith("(networkConnectionLost)"));
}

TEST_F(BeastWebSocketConnectionTest, reportsTheServersCloseAfterTheMessagesBeforeIt) {
    const std::pair<std::string, int> closes[] = {{std::string("\x03\xe8", 2), 1000},
                                                  {std::string("\x03\xe9", 2), 1001},
                                                  {std::string("\x03\xf0", 2) + "policy", 1008},
                                                  {std::string("\x11\x31", 2), 4401},
                                                  {"", 1005}};
    for (const auto& [payload, code] : closes) {
        const auto connection =
            connectToSender(serverFrame(finText, "goodbye") + serverFrame(finClose, payload));
        settle();
        EXPECT_EQ(receiveText(*connection), "goodbye");
        EXPECT_EQ(receiveCloseCode(*connection), code);
        EXPECT_EQ(failureOf(connection->receive()),
                  "The connection is closed (networkConnectionLost)");
        EXPECT_EQ(failureOf(connection->sendText("x")),
                  "The connection is closed (networkConnectionLost)");
        loop.run(connection->close(webSocketGoingAway));
        EXPECT_EQ(peer().closeCode, code == 1005 ? 1000 : code);
    }
}

TEST_F(BeastWebSocketConnectionTest, sendsFromSeveralTasksWithoutMixingFrames) {
    std::vector<std::string> texts;
    const auto connection = connectTo([&texts](Connection c) { return keepTexts(c, texts); });
    std::vector<std::string> expected;
    std::vector<std::unique_ptr<BackgroundTask>> senders;
    for (char c = 'a'; c <= 'h'; ++c) {
        expected.emplace_back(30'000, c);
        senders.push_back(
            std::make_unique<BackgroundTask>(loop, connection->sendText(expected.back())));
    }
    settle();
    EXPECT_EQ(texts, expected);
    for (const auto& sender : senders)
        EXPECT_TRUE(sender->isDone && !sender->error);
}

TEST_F(BeastWebSocketConnectionTest, aSenderThatIsCancelledDoesNotBreakItsFrame) {
    std::vector<std::string> texts;
    const auto connection = connectTo([&texts](Connection c) { return keepTexts(c, texts); });
    BackgroundTask sender(loop, connection->sendText(std::string(mebibyte, 'a')));
    loop.context.restart();
    loop.context.poll_one();
    sender.cancel();
    settle();
    EXPECT_EQ(whatOf(sender.error), "cancelled");
    loop.run(connection->sendText("next"));
    settle();
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.back(), "next");
}

TEST_F(BeastWebSocketConnectionTest, aReceiverThatIsCancelledLosesNoMessage) {
    const auto connection = connectTo(answerPings);
    std::vector<std::string> texts;
    BackgroundTask cancelled(loop, receiveInto(connection->receive(), texts));
    settle();
    cancelled.cancel();
    settle();
    EXPECT_EQ(whatOf(cancelled.error), "cancelled");
    loop.run(peer().sendRaw(serverFrame(finText, "hello")));
    EXPECT_EQ(receiveText(*connection), "hello");
}

TEST_F(BeastWebSocketConnectionTest, answersPingsWhileNobodyReceives) {
    std::string flood;
    for (int i = 0; i < 1000; ++i)
        flood += serverFrame(finPing, "are you there");
    const auto connection = connectToSender(flood + serverFrame(finText, "after"));
    settle();
    EXPECT_EQ(receiveText(*connection), "after");
    loop.run(connection->sendText("unharmed"));
}

TEST_F(BeastWebSocketConnectionTest, deliversAFloodInOrderAndPausesWhenSixtyFourWait) {
    constexpr int count = 400;
    int sent = 0;
    const auto connection =
        connectTo([&sent](Connection c) { return sendNumbered(c, count, 64 * 1024, sent); });
    settle();
    const int taken = sent;
    EXPECT_GE(taken, 64);
    EXPECT_LT(taken, count);
    settle();
    EXPECT_EQ(sent, taken);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(std::stoi(receiveText(*connection)), i);
}

TEST_F(BeastWebSocketConnectionTest, aPauseInReadingIsNoSilence) {
    int sent = 0;
    const auto connection =
        connectTo([&sent](Connection c) { return sendNumbered(c, 100, 1, sent); });
    letTimePass(1h);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(std::stoi(receiveText(*connection)), i);
    letTimePass(1h);
    EXPECT_GT(peer().pings, 100);
}

TEST_F(BeastWebSocketConnectionTest, aSilentServerThatAnswersPingsIsHealthyForEver) {
    const auto connection = connectTo(answerPings);
    letTimePass(29s);
    EXPECT_EQ(peer().pings, 0);
    letTimePass(1s);
    EXPECT_EQ(peer().pings, 1);
    clock.sleeps.clear();
    letTimePass(6h);
    EXPECT_NEAR(peer().pings, 6 * 120, 3);
    EXPECT_NEAR(clock.sleeps.size(), 6 * 120, 3);  // it wakes for nothing else
    loop.run(connection->sendText("still open"));
}

TEST_F(BeastWebSocketConnectionTest, aServerThatVanishedIsGivenUpAfterSeventyFiveSeconds) {
    const auto connection = connectTo(swallowPings);
    std::vector<std::string> texts;
    BackgroundTask receiving(loop, receiveInto(connection->receive(), texts));
    letTimePass(75s - 1ms);
    EXPECT_FALSE(receiving.isDone);
    letTimePass(1ms);
    ASSERT_TRUE(receiving.isDone);
    EXPECT_EQ(whatOf(receiving.error), "Nothing arrived from the server for 75 s (timedOut)");
    EXPECT_EQ(failureOf(connection->sendText("x")),
              "Nothing arrived from the server for 75 s (timedOut)");
}

TEST_F(BeastWebSocketConnectionTest, aServerThatSpeaksButTakesNothingIsGivenUpToo) {
    const auto connection = connectTo([this](Connection c) { return speakButNeverRead(c, clock); });
    BackgroundTask sending(loop, connection->sendText(unsendable()));
    letTimePass(74s);
    EXPECT_FALSE(sending.isDone);
    letTimePass(1s);
    ASSERT_TRUE(sending.isDone);
    EXPECT_EQ(whatOf(sending.error), "The server took nothing for 75 s (timedOut)");
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(receiveText(*connection), "still here");
}

TEST_F(BeastWebSocketConnectionTest, closesWithTheCodeAndEndsWhenTheServerAnswers) {
    const auto connection = connectTo(answerPings);
    std::vector<std::string> texts;
    BackgroundTask receiving(loop, receiveInto(connection->receive(), texts));
    settle();
    loop.run(connection->close(webSocketGoingAway));
    settle();
    EXPECT_EQ(peer().closeCode, 1001);
    EXPECT_EQ(whatOf(receiving.error), "The connection is closed (networkConnectionLost)");
    loop.run(connection->close(webSocketGoingAway));
    EXPECT_EQ(clock.sleepers(), 0u);
}

TEST_F(BeastWebSocketConnectionTest, closesWhileReadingPauses) {
    int sent = 0;
    const auto connection =
        connectTo([&sent](Connection c) { return sendNumbered(c, 100, 1, sent); });
    settle();
    loop.run(connection->close(webSocketGoingAway));
    settle();
    EXPECT_EQ(peer().closeCode, 1001);
}

class UncooperativeServerTest : public BeastWebSocketConnectionTest,
                                public testing::WithParamInterface<Task<void> (*)(Connection)> {};

TEST_P(UncooperativeServerTest, delaysACloseByASecondAtMost) {
    const auto connection = connectTo(GetParam());
    BackgroundTask sending(loop, connection->sendText(unsendable()));
    settle();
    BackgroundTask closing(loop, connection->close(webSocketGoingAway));
    letTimePass(1s - 1ms);
    EXPECT_FALSE(closing.isDone);
    letTimePass(1ms);
    EXPECT_TRUE(closing.isDone);
    EXPECT_EQ(closing.error, nullptr);
    EXPECT_EQ(clock.sleepers(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Everywhere, UncooperativeServerTest,
                         testing::Values(&swallowPings, &neverRead));

TEST_F(BeastWebSocketConnectionTest, aServerThatClosesButLeavesTheSocketOpenIsLeftAfterASecond) {
    const auto connection = connectTo(swallowPings);
    loop.run(peer().sendRaw(serverFrame(finClose, std::string("\x03\xe8", 2))));
    EXPECT_EQ(receiveCloseCode(*connection), 1000);
    BackgroundTask closing(loop, connection->close(webSocketGoingAway));
    letTimePass(1s - 1ms);
    EXPECT_FALSE(closing.isDone);
    letTimePass(1ms);
    EXPECT_TRUE(closing.isDone);
}

TEST_F(BeastWebSocketConnectionTest, mayBeDestroyedAtAnyMoment) {
    for (const int steps : {0, 1, 2, 3, 4, 6, 10, 50}) {
        auto connection = connectTo(neverRead);
        loop.context.restart();
        std::vector<std::string> texts;
        BackgroundTask receiving(loop, receiveInto(connection->receive(), texts));
        BackgroundTask sending(loop, connection->sendText(unsendable()));
        connection->probe(5s);
        for (int handlers = 0; handlers < steps; ++handlers)
            loop.context.poll_one();
        connection.reset();
        settle();
        EXPECT_EQ(whatOf(receiving.error), "The connection is closed (networkConnectionLost)");
        EXPECT_EQ(whatOf(sending.error), "The connection is closed (networkConnectionLost)");
        EXPECT_EQ(clock.sleepers(), 0u);
    }
}

TEST_F(BeastWebSocketConnectionTest, aProbeThatIsAnsweredChangesNothing) {
    const auto connection = connectTo(answerPings);
    connection->probe(5s);
    connection->probe(5s);
    letTimePass(5s);
    EXPECT_EQ(peer().pings, 2);
    loop.run(connection->sendText("still open"));
}

TEST_F(BeastWebSocketConnectionTest, aProbeWithoutAnswerGivesTheConnectionUp) {
    const auto connection = connectTo(swallowPings);
    connection->probe(5s);
    letTimePass(5s - 1ms);
    // Other traffic may have been under way before the server vanished.
    loop.run(peer().sendRaw(serverFrame(finText, "old news")));
    EXPECT_EQ(receiveText(*connection), "old news");
    letTimePass(1ms);
    EXPECT_EQ(failureOf(connection->receive()),
              "The server did not answer a ping within 5 s (timedOut)");
}

}  // namespace
}  // namespace orv::test
