#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvViewerShared/ChatRelay.h"
#include "Support/AgentFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class ChatRelayTest : public AgentFixture {
protected:
    ChatRelayTest() { setDeviceUid("mac 1"); }

    void setDeviceUid(std::optional<std::string> uid) {
        ViewerState state;
        state.deviceUid = std::move(uid);
        state.deviceToken = "t";
        stateFile.save(state);
    }

    ChatRelay& relay() {
        if (!built) {
            built.emplace(ChatRelay::Parts{loop.executor(), store, registration(), api(), workers,
                                           logger, filesAtOnce});
        }
        return *built;
    }

    void send(const std::string& reason = "timer") {
        loop.run(relay().sendPendingChatMessages(reason));
    }

    std::string place(const std::string& name) const {
        return root.locate(std::string(RemoteChatStore::directory) + "/" + name);
    }
    /// The conversation and the time stand in the name, and the identifier is the name.
    void write(const std::string& name) {
        std::filesystem::create_directories(place(""));
        std::ofstream(place(name + ".outgoing.json"))
            << prettyJson(RemoteChatMessage{name, "dev", "outgoing", "Anna", "Dzień \"dobry\"",
                                            *parseIso8601("2026-02-03T04:05:06Z")});
    }
    bool isWaiting(const std::string& name) const {
        return fileExists(place(name + ".outgoing.json"));
    }

    std::vector<std::string> sentIds() const {
        std::vector<std::string> ids;
        for (std::size_t i = 0; i < http.requests.size(); ++i)
            ids.push_back(Json::parse(http.body(i)).at("client_message_id"));
        return ids;
    }

    /// Runs what is ready, workers' results included, without moving the clock.
    void until(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (!condition() && std::chrono::steady_clock::now() < deadline) {
            loop.context.restart();
            loop.context.run_one_for(10ms);
        }
        ASSERT_TRUE(condition());
    }

    std::size_t filesAtOnce = 4096;
    RemoteChatStore store{root, clock, logger};
    WorkerPool workers;

private:
    std::optional<ChatRelay> built;
};

TEST_F(ChatRelayTest, anUnregisteredDeviceDoesNothing) {
    setDeviceUid(std::nullopt);
    write("a.1");
    send();
    EXPECT_THAT(http.requests, IsEmpty());
    EXPECT_TRUE(isWaiting("a.1"));
    EXPECT_EQ(log(), "");
}

TEST_F(ChatRelayTest, sendsAMessageDeletesItsFileAndLogsIt) {
    write("a.1");
    send("commands_control");
    EXPECT_THAT(
        http.lines(),
        ElementsAre("POST https://desk.example/api/agent/devices/mac%201/chat-messages Device t"));
    EXPECT_EQ(http.body(0), R"({"client_message_id":"a.1","public_id":"dev","sender":"Anna",)"
                            R"("sent_at":"2026-02-03T04:05:06Z","text":"Dzień \"dobry\""})");
    EXPECT_FALSE(isWaiting("a.1"));
    EXPECT_EQ(log(),
              "2026-03-01T09:15:02Z [INFO] Remote chat reply sent. id=a.1 "
              "reason=commands_control\n");
}

TEST_F(ChatRelayTest, aRefusedMessageStaysAndTheOthersGo) {
    for (const char* name : {"a.1", "a.2", "b.1"})
        write(name);
    http.fallback = [](const HttpRequest& request) -> FakeHttpClient::Answer {
        const bool isRefused = request.body->find("\"a.1\"") != std::string::npos;
        return HttpResponse{isRefused ? 422 : 200, {}, "no"};
    };
    send();
    EXPECT_THAT(sentIds(), ElementsAre("a.1", "a.2", "b.1"));
    EXPECT_TRUE(isWaiting("a.1"));
    EXPECT_FALSE(isWaiting("a.2"));
    EXPECT_FALSE(isWaiting("b.1"));
    EXPECT_THAT(log(), HasSubstr("[ERROR] Remote chat reply send failed id=a.1: "));

    send();
    EXPECT_THAT(sentIds(), ElementsAre("a.1", "a.2", "b.1", "a.1"));
    http.fallback = [](const HttpRequest&) { return HttpResponse{200, {}, ""}; };
    send();
    EXPECT_FALSE(isWaiting("a.1"));
}

TEST_F(ChatRelayTest, aLostNetworkLeavesEverythingWaiting) {
    write("a.1");
    write("a.2");
    http.fallback = [](const HttpRequest&) {
        return UrlError(UrlErrorCode::serverCertificateUntrusted, "Not trusted");
    };
    send();
    EXPECT_TRUE(isWaiting("a.1"));
    EXPECT_TRUE(isWaiting("a.2"));
    EXPECT_THAT(log(), EndsWith("[ERROR] Remote chat reply send failed id=a.2: Not trusted "
                                "(serverCertificateUntrusted)\n"));
}

TEST_F(ChatRelayTest, whatIsNoMessageIsSkippedAndStays) {
    write("a.1");
    write("c.1");
    std::ofstream(place("b.1.outgoing.json")) << "{\"id\":";
    std::filesystem::create_directory(place("b.2.outgoing.json"));
    std::filesystem::create_symlink(place("c.1.outgoing.json"), place("b.3.outgoing.json"));
    std::ofstream(place("b.4.incoming.json")) << "{}";
    send();
    EXPECT_THAT(sentIds(), ElementsAre("a.1", "c.1"));
    EXPECT_TRUE(isWaiting("b.1"));
    EXPECT_TRUE(isWaiting("b.2"));
    EXPECT_TRUE(fileExists(place("b.4.incoming.json")));
    EXPECT_THAT(log(), testing::Not(HasSubstr("ERROR")));
}

TEST_F(ChatRelayTest, aFileThatIsGoneBeforeItsTurnIsSkipped) {
    write("a.1");
    write("a.2");
    write("a.3");
    http.fallback = [this](const HttpRequest&) {
        std::filesystem::remove(place("a.2.outgoing.json"));
        return HttpResponse{200, {}, ""};
    };
    send();
    EXPECT_THAT(sentIds(), ElementsAre("a.1", "a.3"));
    EXPECT_THAT(log(), testing::Not(HasSubstr("ERROR")));
}

TEST_F(ChatRelayTest, manyFilesGoInPortionsInOrder) {
    filesAtOnce = 3;
    std::vector<std::string> names;
    for (int i = 0; i < 9; ++i)
        names.push_back("a." + std::to_string(i));
    for (const std::string& name : names)
        write(name);
    http.fallback = [](const HttpRequest& request) -> FakeHttpClient::Answer {
        const bool isRefused = request.body->find("\"a.2\"") != std::string::npos;
        return HttpResponse{isRefused ? 400 : 200, {}, ""};
    };
    send();
    EXPECT_EQ(sentIds(), names);
    EXPECT_TRUE(isWaiting("a.2"));
    EXPECT_THAT(store.outgoingMessageFiles(), SizeIs(1));
}

TEST_F(ChatRelayTest, anIdleCycleReadsTheFolderOnce) {
    send();
    const std::string text = log();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    EXPECT_THAT(text, HasSubstr("[ERROR] Remote chat directory read failed: "));
    EXPECT_THAT(http.requests, IsEmpty());
}

/// While every worker is busy with something else.
class ChatRelayWithBusyWorkersTest : public ChatRelayTest {
protected:
    /// Whether a call gets by without them. It is waited for either way.
    bool sendsWithoutWorkers() {
        std::promise<void> letGo;
        const std::shared_future<void> gate = letGo.get_future().share();
        const BackgroundTask first(loop, block(workers, gate));
        const BackgroundTask second(loop, block(workers, gate));
        const BackgroundTask sending(loop, relay().sendPendingChatMessages("timer"));
        loop.runReady();
        const bool wasDone = sending.isDone;
        EXPECT_THAT(http.requests, IsEmpty());
        EXPECT_EQ(log(), "");
        letGo.set_value();
        until([&] { return sending.isDone && first.isDone && second.isDone; });
        return wasDone;
    }

private:
    static Task<void> block(WorkerPool& pool, std::shared_future<void> opened) {
        auto wait = [opened] { opened.wait(); };
        co_await pool.run(std::move(wait));
    }
};

TEST_F(ChatRelayWithBusyWorkersTest, filesAreNeverTouchedOnTheCoreThread) {
    write("a.1");
    EXPECT_FALSE(sendsWithoutWorkers());
    EXPECT_THAT(http.requests, SizeIs(1));
}

TEST_F(ChatRelayWithBusyWorkersTest, anEmptyFolderTakesAGlance) {
    std::filesystem::create_directories(place(""));
    std::ofstream(place("a.1.incoming.json")) << "{}";
    EXPECT_TRUE(sendsWithoutWorkers());
}

TEST_F(ChatRelayWithBusyWorkersTest, aCrowdedFolderTakesMore) {
    std::filesystem::create_directories(place(""));
    for (int number = 0; number < 33; ++number)
        std::ofstream(place(std::to_string(number))) << "x";
    EXPECT_FALSE(sendsWithoutWorkers());
}

TEST_F(ChatRelayTest, severalCallsNeverSendAMessageTwiceAtOnce) {
    write("a.1");
    write("a.2");
    http.takeTime(clock, 5s);
    const BackgroundTask working(loop, relay().sendPendingChatMessages("chat"));
    until([&] { return http.requests.size() == 1; });
    const BackgroundTask waiting(loop, relay().sendPendingChatMessages("commands_timer"));
    loop.runReady();
    EXPECT_FALSE(waiting.isDone);

    write("a.0");  // behind the working one's back
    send("third");
    EXPECT_THAT(http.requests, SizeIs(1));
    EXPECT_FALSE(working.isDone);

    while (!waiting.isDone) {
        clock.wakeNext();
        loop.context.restart();
        loop.context.run_one_for(10ms);
    }
    EXPECT_THAT(sentIds(), ElementsAre("a.1", "a.2", "a.0"));
    EXPECT_THAT(log(), EndsWith("id=a.0 reason=commands_timer\n"));
}

TEST_F(ChatRelayTest, aCancelledCallMakesRoomForTheNext) {
    write("a.1");
    http.takeTime(clock, 5s);
    BackgroundTask working(loop, relay().sendPendingChatMessages("first"));
    until([&] { return http.requests.size() == 1; });
    BackgroundTask waiting(loop, relay().sendPendingChatMessages("second"));
    loop.runReady();
    waiting.cancel();
    loop.runReady();
    EXPECT_TRUE(waiting.isDone && waiting.error);
    BackgroundTask next(loop, relay().sendPendingChatMessages("third"));
    loop.runReady();
    EXPECT_FALSE(next.isDone);

    working.cancel();
    until([&] { return working.isDone && http.requests.size() == 2; });
    EXPECT_TRUE(working.error);
    EXPECT_TRUE(isWaiting("a.1"));
    next.cancel();
    until([&] { return next.isDone; });
    send("last");
    EXPECT_FALSE(isWaiting("a.1"));
    EXPECT_THAT(log(), EndsWith("id=a.1 reason=last\n"));
}

TEST_F(ChatRelayTest, aForgedIdentifierGetsNoLineOfItsOwnInTheLog) {
    std::filesystem::create_directories(place(""));
    const std::string id = "x\n2026 [ERROR] forged " + std::string(5000, 'y');
    std::ofstream(place("a.outgoing.json"))
        << prettyJson(RemoteChatMessage{id, "dev", "outgoing", "", "", {}});
    http.thenAnswer(400);
    send();
    send();
    EXPECT_THAT(sentIds(), ElementsAre(id, id));
    const std::string text = log();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
    EXPECT_LT(text.size(), 600U);
    EXPECT_THAT(text, HasSubstr("id=x?2026 [ERROR] forged yyy"));
}

}  // namespace
}  // namespace orv
