#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/CommandPipeline.h"
#include "Support/AgentFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// A helpdesk that hands out queued commands until their end is reported.
class CommandPipelineTest : public AgentFixture {
protected:
    CommandPipelineTest() {
        ViewerState state;
        state.deviceUid = "u";
        stateFile.save(state);
        http.fallback = [this](const HttpRequest& request) -> FakeHttpClient::Answer {
            if (request.method == "GET") {
                return HttpResponse{200, {}, pending};
            }
            const std::size_t begin = request.url.find("device-commands/") + 16;
            const std::size_t end = request.url.find("/status");
            reports.push_back(request.url.substr(begin, end - begin) + " " + *request.body);
            return HttpResponse{reportStatus, {}, ""};
        };
    }

    CommandPipeline& pipeline() {
        if (!built) {
            built.emplace(CommandPipeline::Parts{
                {{"echo", [this](AgentCommand command) { return echo(std::move(command)); }},
                 {"slow", [this](AgentCommand command) { return slow(std::move(command)); }},
                 {"fails", [this](AgentCommand command) { return fails(std::move(command)); }},
                 {"leaves", [this](AgentCommand command) { return echo(std::move(command)); },
                  Json{{"leaving", false}}, "left"}},
                registration(),
                api(),
                logger,
                [this](std::string reason) { return relay(std::move(reason)); }});
        }
        return *built;
    }

    Task<CommandResult> echo(AgentCommand command) {
        handled.push_back(command.id);
        co_return CommandResult(command.payload);
    }
    Task<CommandResult> slow(AgentCommand command) {
        handled.push_back(command.id);
        co_await clock.sleepFor(10s);
        co_return CommandResult(Json::object());
    }
    Task<CommandResult> fails(AgentCommand command) {
        handled.push_back(command.id);
        throw std::runtime_error("Disk full");
        co_return CommandResult(Json::object());
    }
    Task<void> relay(std::string reason) {
        relays.push_back(std::move(reason));
        co_return;
    }

    void process(std::optional<std::string> type = std::nullopt,
                 const std::string& reason = "timer") {
        loop.run(pipeline().processPendingCommands(std::move(type), reason));
    }

    std::string pending = "[]";
    int reportStatus = 200;
    std::vector<std::string> reports;
    std::vector<std::int64_t> handled;
    std::vector<std::string> relays;

private:
    std::optional<CommandPipeline> built;
};

TEST_F(CommandPipelineTest, anUnregisteredDeviceAsksNothing) {
    stateFile.save(ViewerState{});
    process();
    EXPECT_THAT(http.requests, IsEmpty());
    EXPECT_THAT(relays, IsEmpty());
}

TEST_F(CommandPipelineTest, runsTheCommandsInTheServersOrderAndReportsEach) {
    pending = R"([{"id":9,"command_type":"echo","payload":{"a":1}},
                  {"id":2,"command_type":"echo"}])";
    process();
    EXPECT_THAT(reports, ElementsAre(R"(9 {"result":{"a":1},"status":"completed"})",
                                     R"(2 {"result":{},"status":"completed"})"));
    EXPECT_THAT(log(), EndsWith("[INFO] Processing 2 pending commands. reason=timer type=all\n"));
    EXPECT_THAT(relays, ElementsAre("commands_timer"));
}

TEST_F(CommandPipelineTest, aTypeFilterGoesToTheServerAndIntoTheLog) {
    pending = R"([{"id":9,"command_type":"echo"}])";
    process("user_notify", "chat_timer");
    EXPECT_THAT(http.requests.at(0).url, EndsWith("/pending?command_type=user_notify"));
    EXPECT_THAT(log(), EndsWith("reason=chat_timer type=user_notify\n"));
    EXPECT_THAT(relays, ElementsAre("commands_chat_timer"));
}

TEST_F(CommandPipelineTest, anEmptyFetchLogsNothingAndStillRelaysChat) {
    process(std::nullopt, "control");
    EXPECT_EQ(log(), "");
    EXPECT_THAT(relays, ElementsAre("commands_control"));
}

TEST_F(CommandPipelineTest, aFailedFetchIsLoggedAndRelaysNothing) {
    http.thenAnswer(404, "gone");
    process();
    EXPECT_THAT(log(), EndsWith("[ERROR] Command polling failed: HTTP 404: gone\n"));
    EXPECT_THAT(relays, IsEmpty());
    EXPECT_EQ(stateFile.load().connectionIssue, std::nullopt) << "polling records no problem";
}

TEST_F(CommandPipelineTest, typesAreComparedExactly) {
    pending = R"([{"id":1,"command_type":"Echo"},{"id":2,"command_type":"echo "},{"id":3},
                  {"id":4,"command_type":"echo"}])";
    process();
    EXPECT_THAT(
        reports,
        ElementsAre(R"(1 {"result":{"error":"Unsupported macOS command Echo"},"status":"failed"})",
                    R"(2 {"result":{"error":"Unsupported macOS command echo "},"status":"failed"})",
                    R"(3 {"result":{"error":"Unsupported macOS command "},"status":"failed"})",
                    R"(4 {"result":{},"status":"completed"})"));
}

TEST_F(CommandPipelineTest, aFailingHandlerIsReportedRecordedAndStopsNothing) {
    pending = R"([{"id":1,"command_type":"fails"},{"id":2,"command_type":"echo"}])";
    process();
    EXPECT_THAT(
        reports,
        ElementsAre(R"(1 {"result":{"error":"Disk full","platform":"macos"},"status":"failed"})",
                    R"(2 {"result":{},"status":"completed"})"));
    EXPECT_THAT(log(), HasSubstr("[ERROR] Command handling failed id=1 type=fails: Disk full\n"));
    EXPECT_EQ(stateFile.load().connectionIssue, AgentConnectionIssue::temporarilyUnavailable);
}

TEST_F(CommandPipelineTest, aCommandThatEndsTheDaemonIsPickedUpFirst) {
    pending = R"([{"id":5,"command_type":"leaves","payload":{"x":1}}])";
    process();
    EXPECT_THAT(reports, ElementsAre(R"(5 {"result":{"leaving":false},"status":"picked_up"})",
                                     R"(5 {"result":{"x":1},"status":"left"})"));
}

TEST_F(CommandPipelineTest, aResultThatTheServerRefusesBecomesAFailure) {
    pending = R"([{"id":5,"command_type":"echo"}])";
    reportStatus = 422;
    process();
    EXPECT_THAT(reports, ElementsAre(R"(5 {"result":{},"status":"completed"})",
                                     StartsWith("5 {\"result\":{\"error\":\"HTTP 422\"")));
    EXPECT_THAT(log(), HasSubstr("Command handling failed id=5 type=echo: HTTP 422\n"));
    EXPECT_THAT(log(), EndsWith("Command failure report failed id=5: HTTP 422\n"));
}

TEST_F(CommandPipelineTest, oneBadMomentOfTheNetworkLosesNoResult) {
    pending = R"([{"id":5,"command_type":"echo"}])";
    http.thenAnswer(200, pending).thenFail(UrlErrorCode::networkConnectionLost);
    process();
    EXPECT_THAT(reports, ElementsAre(R"(5 {"result":{},"status":"completed"})"));
    EXPECT_THAT(handled, ElementsAre(5));
}

TEST_F(CommandPipelineTest, aCommandInHandIsNotHandledTwice) {
    pending = R"([{"id":1,"command_type":"slow"},{"id":2,"command_type":"echo"}])";
    BackgroundTask first(loop, pipeline().processPendingCommands(std::nullopt, "timer"));
    loop.runReady();
    pending = R"([{"id":1,"command_type":"slow"},{"id":2,"command_type":"echo"},
                  {"id":3,"command_type":"echo"}])";
    BackgroundTask second(loop, pipeline().processPendingCommands(std::nullopt, "control"));
    loop.runReady();
    EXPECT_THAT(handled, ElementsAre(1, 3)) << "the wake-up does what is new, at once";

    loop.runFor(10s);
    EXPECT_THAT(handled, ElementsAre(1, 3, 2));
    EXPECT_TRUE(first.isDone);
    EXPECT_TRUE(second.isDone);
}

TEST_F(CommandPipelineTest, onceReportedACommandThatComesAgainIsHandledAgain) {
    pending = R"([{"id":1,"command_type":"echo"}])";
    process();
    process();
    EXPECT_THAT(handled, ElementsAre(1, 1));
}

TEST_F(CommandPipelineTest, anAnswerOlderThanTheReportDoesNotRunTheCommandAgain) {
    pending = R"([{"id":1,"command_type":"echo"}])";
    http.takeTime(clock, 1s);
    // Both answers are made now, while the command is pending; the second arrives after the first
    // fetch has run and reported it.
    BackgroundTask first(loop, pipeline().processPendingCommands(std::nullopt, "timer"));
    loop.runReady();
    http.takeTime(clock, 5s);
    BackgroundTask second(loop, pipeline().processPendingCommands(std::nullopt, "control"));
    loop.runReady();
    http.takeTime(clock, 1s);
    loop.runFor(20s);
    EXPECT_TRUE(first.isDone);
    EXPECT_TRUE(second.isDone);
    EXPECT_THAT(handled, ElementsAre(1));
}

TEST_F(CommandPipelineTest, aCancelledFetchFreesWhatItDidNotBegin) {
    pending = R"([{"id":1,"command_type":"slow"},{"id":2,"command_type":"echo"}])";
    BackgroundTask first(loop, pipeline().processPendingCommands(std::nullopt, "timer"));
    loop.runReady();
    first.cancel();
    loop.runReady();
    ASSERT_TRUE(first.isDone);

    pending = R"([{"id":2,"command_type":"echo"}])";
    process();
    EXPECT_THAT(handled, ElementsAre(1, 2));
}

}  // namespace
}  // namespace orv
