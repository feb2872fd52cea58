#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/AgentService.h"
#include "OrvViewerShared/RemoteChatStore.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "Support/AgentFixture.h"
#include "Support/FakeProcessRunner.h"
#include "Support/FakeWebSockets.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

Task<void> note(std::vector<std::chrono::nanoseconds>& times, const FakeClock& clock) {
    times.push_back(clock.monotonicNow().time_since_epoch());
    co_return;
}

TEST(PeriodicLoopTest, sleepsFirstAndActsOncePerPeriod) {
    FakeClock clock;
    TestLoop loop(clock);
    std::vector<std::chrono::nanoseconds> times;
    BackgroundTask task(loop, periodicLoop(clock, 10s, [&] { return note(times, clock); }));

    loop.runFor(35s);

    EXPECT_THAT(times, ElementsAre(10s, 20s, 30s));
    task.cancel();
    loop.runReady();
    EXPECT_TRUE(task.isDone);
}

TEST(PeriodicLoopTest, actsOnceForAllThePeriodsThatTheMachineSlept) {
    FakeClock clock;
    TestLoop loop(clock);
    std::vector<std::chrono::nanoseconds> times;
    BackgroundTask task(loop, periodicLoop(clock, 10s, [&] { return note(times, clock); }));
    loop.runReady();
    clock.sleepMachine(8h);
    loop.runFor(25s);
    EXPECT_THAT(times, ElementsAre(8h, 8h + 10s, 8h + 20s));
    task.cancel();
    loop.runReady();
}

TEST(PeriodicLoopTest, aPeriodBeyondTheClockCountsAsACentury) {
    FakeClock clock;
    TestLoop loop(clock);
    std::vector<std::chrono::nanoseconds> times;
    BackgroundTask task(
        loop, periodicLoop(clock, std::chrono::seconds::max(), [&] { return note(times, clock); }));
    loop.runFor(24h * 36'525);
    EXPECT_THAT(times, ElementsAre(24h * 36'525));
    task.cancel();
    loop.runReady();
}

TEST(AuditPeriodTest, isNeverUnderFiveMinutes) {
    ViewerSettings settings;
    settings.auditIntervalMinutes = 1;
    EXPECT_EQ(auditPeriod(settings), 5min);
    settings.auditIntervalMinutes = 6;
    EXPECT_EQ(auditPeriod(settings), 6min);
    settings.auditIntervalMinutes = std::numeric_limits<std::int64_t>::max();
    EXPECT_GT(auditPeriod(settings), 24h * 36'000);
}

class AgentServiceTest : public AgentFixture {
protected:
    AgentServiceTest() {
        settings.auditIntervalMinutes = 60;
        settings.heartbeatIntervalSeconds = 300;
        settings.commandPollIntervalSeconds = 600;
        settings.chatPollIntervalSeconds = 5;
        settings.controlReconnectMaxSeconds = 300;
        webSockets.failure = UrlError(UrlErrorCode::cannotConnectToHost, "Connection refused");
        http.fallback = [this](const HttpRequest& request) -> FakeHttpClient::Answer {
            seen.push_back({clock.monotonicNow().time_since_epoch(), request.url});
            const bool isRegistration = request.url.ends_with("/register");
            return HttpResponse{200, {}, isRegistration ? registrationAnswer : "[]"};
        };
    }

    AgentService& service() {
        if (!built) {
            built.emplace(settings, AgentEnvironment{loop.executor(), root, clock, http, webSockets,
                                                     processes, hostFacts, workers, logger,
                                                     [this] { return asleep; }});
        }
        return *built;
    }

    /// When requests whose URL ends so went out.
    std::vector<std::chrono::nanoseconds> timesOf(const std::string& urlEnd) const {
        std::vector<std::chrono::nanoseconds> times;
        for (const Seen& request : seen) {
            if (request.url.ends_with(urlEnd)) times.push_back(request.at);
        }
        return times;
    }

    void storeRegistration() const {
        ViewerState state;
        state.deviceUid = "u";
        state.supportId = "7";
        stateFile.save(state);
    }

    void plantReply(const std::string& id) const {
        RemoteChatStore(root, clock, logger)
            .saveOutgoing({id, "dev", RemoteChatMessage::outgoing, "Anna", "Tak", clock.now()});
    }

    void runFor(std::chrono::nanoseconds span) {
        BackgroundTask task(loop, service().runForever());
        loop.runFor(span);
        task.cancel();
        loop.runReady();
        ASSERT_TRUE(task.isDone);
        EXPECT_TRUE(task.wasCancelled());
    }

    struct Seen {
        std::chrono::nanoseconds at;
        std::string url;
    };

    std::string registrationAnswer = R"({"device_uid":"u","support_id":"7"})";
    std::vector<Seen> seen;
    FakeWebSockets webSockets{loop.executor()};  // on which none can be opened
    std::chrono::nanoseconds asleep{0};
    FakeProcessRunner processes{clock};
    SystemHostFacts hostFacts{root};
    WorkerPool workers{0};

private:
    std::optional<AgentService> built;
};

TEST_F(AgentServiceTest, aFreshDeviceRegistersBeforeItsFirstHeartbeat) {
    runFor(1s);
    ASSERT_GE(seen.size(), 2u);
    EXPECT_THAT(seen[0].url, testing::EndsWith("/devices/register"));
    EXPECT_THAT(seen[1].url, testing::EndsWith("/devices/heartbeat"));
    EXPECT_THAT(log(), StartsWith("2026-03-01T09:15:02Z [INFO] Wsparo Brenvox macOS daemon "
                                  "started.\n"));
    EXPECT_THAT(log(), HasSubstr("reason=initial_registration device_uid=u support_id=7\n"));
    EXPECT_THAT(log(), HasSubstr("reason=startup device_uid=u support_id=7\n"));
}

TEST_F(AgentServiceTest, aRegisteredDeviceSendsOnlyTheHeartbeatAtItsStart) {
    storeRegistration();
    runFor(1s);
    EXPECT_THAT(timesOf("/register"), testing::IsEmpty());
    EXPECT_THAT(timesOf("/heartbeat"), ElementsAre(0s));
}

TEST_F(AgentServiceTest, aUidWithoutSupportIdCountsAsUnregistered) {
    ViewerState state;
    state.deviceUid = "u";
    stateFile.save(state);
    runFor(1s);
    EXPECT_THAT(timesOf("/register"), ElementsAre(0s));
}

TEST_F(AgentServiceTest, aSupportIdWithoutUidCountsAsUnregistered) {
    ViewerState state;
    state.supportId = "7";
    stateFile.save(state);
    runFor(1s);
    EXPECT_THAT(timesOf("/register"), ElementsAre(0s));
}

TEST_F(AgentServiceTest, theStartUpHeartbeatFollowsEvenAFailedRegistration) {
    http.thenAnswer(422);
    runFor(1s);
    EXPECT_THAT(timesOf("/heartbeat"), ElementsAre(0s));
}

TEST_F(AgentServiceTest, everyLoopKeepsItsPeriod) {
    storeRegistration();
    runFor(2h);
    EXPECT_THAT(timesOf("/register"), ElementsAre(1h, 2h));
    EXPECT_THAT(timesOf("&channel=stable"), ElementsAre(120s)) << "once a day";
    const auto heartbeats = timesOf("/heartbeat");
    ASSERT_EQ(heartbeats.size(), 1u + 24u);
    EXPECT_EQ(heartbeats[1], 300s);
    EXPECT_EQ(heartbeats[24], 2h);
    const auto polls = timesOf("/commands/pending");
    ASSERT_EQ(polls.size(), 12u);
    EXPECT_EQ(polls[0], 600s);
    const auto notificationPolls = timesOf("?command_type=user_notify");
    ASSERT_EQ(notificationPolls.size(), 1440u);
    EXPECT_EQ(notificationPolls[0], 5s);
}

TEST_F(AgentServiceTest, inventoriesAreFiveMinutesApartAtLeast) {
    storeRegistration();
    settings.auditIntervalMinutes = 1;
    runFor(11min);
    EXPECT_THAT(timesOf("/register"), ElementsAre(5min, 10min));
}

TEST_F(AgentServiceTest, repliesGoOutInTheChatsPeriodEvenWhenNoFetchSucceeds) {
    storeRegistration();
    http.fallback = [this](const HttpRequest& request) -> FakeHttpClient::Answer {
        seen.push_back({clock.monotonicNow().time_since_epoch(), request.url});
        const bool isFetch = request.url.find("/commands/pending") != std::string::npos;
        return HttpResponse{isFetch ? 404 : 200, {}, "{}"};
    };
    settings.chatPollIntervalSeconds = 7;
    plantReply("a");
    runFor(8s);
    EXPECT_THAT(timesOf("/chat-messages"), ElementsAre(7s));
}

TEST_F(AgentServiceTest, everyLoopGivesItsReason) {
    storeRegistration();
    http.fallback = [](const HttpRequest& request) -> FakeHttpClient::Answer {
        const bool isFetch = request.url.find("/commands/pending") != std::string::npos;
        const bool isFiltered = request.url.ends_with("?command_type=user_notify");
        if (isFetch && isFiltered) return HttpResponse{503, {}, ""};
        return HttpResponse{200, {}, isFetch ? R"([{"id":1,"command_type":"?"}])" : "{}"};
    };
    plantReply("a");
    settings.auditIntervalMinutes = 5;
    runFor(10min);
    EXPECT_THAT(log(), HasSubstr("Remote chat reply sent. id=a reason=timer\n"));
    EXPECT_THAT(log(), HasSubstr("Processing 1 pending commands. reason=timer type=all\n"));
    EXPECT_THAT(log(), HasSubstr("Heartbeat sent successfully. reason=timer "));
    EXPECT_THAT(log(), HasSubstr("Inventory sent successfully. reason=timer "));
}

TEST_F(AgentServiceTest, notificationsAreFetchedForTheirReasonAndRepliesFollow) {
    storeRegistration();
    http.fallback = [](const HttpRequest& request) -> FakeHttpClient::Answer {
        const bool isFiltered = request.url.ends_with("?command_type=user_notify");
        const char* command = R"([{"id":1,"command_type":"user_notify","payload":{}}])";
        return HttpResponse{200, {}, isFiltered ? command : "[]"};
    };
    plantReply("a");
    runFor(5s);
    EXPECT_THAT(log(), HasSubstr("commands. reason=chat_timer type=user_notify\n"));
    EXPECT_THAT(log(), HasSubstr("Remote chat reply sent. id=a reason="));
}

TEST_F(AgentServiceTest, aServerThatTakesNoRepliesHoldsUpNoCommands) {
    storeRegistration();
    http.fallback = [this](const HttpRequest& request) -> FakeHttpClient::Answer {
        seen.push_back({clock.monotonicNow().time_since_epoch(), request.url});
        http.takeTime(clock, request.url.ends_with("/chat-messages") ? 10h : 0s);
        return HttpResponse{200, {}, "[]"};
    };
    plantReply("a");
    runFor(20min);
    EXPECT_EQ(timesOf("/chat-messages").size(), 1u);
    EXPECT_EQ(timesOf("/commands/pending").size(), 2u);
    EXPECT_EQ(timesOf("?command_type=user_notify").size(), 240u);
}

TEST_F(AgentServiceTest, noFailureEndsALoop) {
    storeRegistration();
    http.fallback = [this](const HttpRequest& request) -> FakeHttpClient::Answer {
        seen.push_back({clock.monotonicNow().time_since_epoch(), request.url});
        return UrlError(UrlErrorCode::serverCertificateUntrusted, "Bad certificate");
    };
    runFor(1h);
    EXPECT_EQ(timesOf("/heartbeat").size(), 13u);
    EXPECT_EQ(timesOf("/register").size(), 1u);
    EXPECT_THAT(log(), HasSubstr("[ERROR] Command polling failed: Bad certificate "));
    EXPECT_THAT(log(), Not(HasSubstr("loop ended")));
}

TEST_F(AgentServiceTest, theControlChannelIsOpenedAfterTheStartUpExchange) {
    storeRegistration();
    runFor(7s);
    EXPECT_EQ(webSockets.requests.size(), 3u) << "at once, after 2 s and after 4 s more";
    EXPECT_EQ(stateFile.load().connectionIssue, AgentConnectionIssue::temporarilyUnavailable);
}

TEST_F(AgentServiceTest, theControlChannelWaitsForTheAnswersOfTheStartUpExchange) {
    http.takeTime(clock, 3s);  // the registration, then the heartbeat
    BackgroundTask task(loop, service().runForever());
    loop.runFor(5s);
    EXPECT_EQ(webSockets.requests.size(), 0u);
    loop.runFor(1s);
    EXPECT_EQ(webSockets.requests.size(), 1u);
    task.cancel();
    loop.runReady();
}

TEST_F(AgentServiceTest, aFailedManualUpdateCheckIsKeptInTheState) {
    storeRegistration();
    webSockets.failure.reset();
    ViewerUpdateCoordinator({root, clock, logger}).requestManualCheck();
    http.fallback = [](const HttpRequest& request) -> FakeHttpClient::Answer {
        const bool isCheck = request.url.ends_with("&channel=stable");
        if (isCheck) return HttpResponse{410, {}, R"({"detail":"device is deactivated"})"};
        return HttpResponse{200, {}, "[]"};
    };
    runFor(1s);
    EXPECT_EQ(stateFile.load().connectionIssue, AgentConnectionIssue::deviceDeactivated);
}

TEST_F(AgentServiceTest, theControlConnectionIsProbedSoonAfterTheMachineWoke) {
    storeRegistration();
    webSockets.failure.reset();
    BackgroundTask task(loop, service().runForever());
    loop.runFor(1min);
    ASSERT_EQ(webSockets.opened.size(), 1u);
    const auto& probes = webSockets.opened[0]->probes;
    EXPECT_THAT(probes, testing::IsEmpty());
    asleep = 1h;
    loop.runFor(5s);
    EXPECT_THAT(probes, ElementsAre(5s));
    EXPECT_THAT(log(), HasSubstr("[INFO] The machine woke after 3600 s.\n"));
    loop.runFor(1min);
    EXPECT_EQ(probes.size(), 1u);
    task.cancel();
    loop.runReady();
}

TEST_F(AgentServiceTest, onceSendsBothWhateverBecomesOfTheInventory) {
    http.thenAnswer(422);
    loop.run(service().runOnce());
    EXPECT_THAT(timesOf("/heartbeat"), ElementsAre(0s));
    EXPECT_EQ(http.requests.size(), 2u);
    EXPECT_THAT(log(), HasSubstr("reason=manual_once"));
    EXPECT_THAT(log(), Not(HasSubstr("daemon started")));
}

}  // namespace
}  // namespace orv
