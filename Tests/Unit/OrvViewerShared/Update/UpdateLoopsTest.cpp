#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Update/UpdateLoops.h"
#include "UpdateFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* offered =
    R"({"platform": "macos", "architecture": "arm64", "channel": "stable", "version": "0.3",
        "url": "", "mandatory": false, "silent_args": []})";
constexpr const char* nothingOffered =
    R"({"platform": "macos", "architecture": "arm64", "channel": "stable", "version": "",
        "url": "", "mandatory": false, "silent_args": []})";

class StartingScheduling final : public UpdateScheduling {
public:
    Task<Json> scheduleSelfUpdate(ViewerUpdateManifest manifest, std::string reason,
                                  std::optional<std::string> requesterVersion) override {
        calls.push_back(reason + " " + requesterVersion.value_or("-"));
        co_return Json{{"update_started", true}, {"available_version", manifest.version}};
    }

    std::vector<std::string> calls;
};

class UpdateLoopsTest : public UpdateFixture {
protected:
    UpdateLoopsTest() {
        http.fallback = [](const HttpRequest&) { return response(offered); };
    }

    static HttpResponse response(const char* body) { return {200, {}, body}; }

    /// What the state file, the log and the status said at each recorded error.
    void recordError() {
        const auto status = coordinator.readStatus();
        atRecord.push_back((status ? status->phase : "no status") +
                           (log().find("[ERROR]") == std::string::npos ? "" : " logged"));
    }

    StartingScheduling scheduling;
    std::vector<std::string> atRecord;
    UpdateCheck check{{coordinator, api(), scheduling, clock}};
    UpdateLoops loops{
        {coordinator, check, clock, logger, [this](const std::exception&) { recordError(); }}};
};

TEST_F(UpdateLoopsTest, theFirstDailyStepComesAfterTwoMinutesAndThenEveryHour) {
    BackgroundTask task(loop, loops.autoUpdateLoop());
    loop.runFor(119s);
    EXPECT_TRUE(http.requests.empty());
    loop.runFor(1s);
    EXPECT_EQ(http.requests.size(), 1U);
    EXPECT_THAT(clock.sleeps, ElementsAre(120s, 3600s));
    task.cancel();
    loop.runReady();
    EXPECT_TRUE(task.isDone);
}

TEST_F(UpdateLoopsTest, onlyOneStepADayAsksTheServer) {
    BackgroundTask task(loop, loops.autoUpdateLoop());
    loop.runFor(120s + 23h + 59min);
    EXPECT_EQ(http.requests.size(), 1U);
    loop.runFor(1min);
    EXPECT_EQ(http.requests.size(), 2U);
    EXPECT_THAT(scheduling.calls, ElementsAre("auto_daily -", "auto_daily -"));
    task.cancel();
    loop.runReady();
}

TEST_F(UpdateLoopsTest, aStartedDailyUpdateIsLoggedWithItsResult) {
    loop.run(loops.runDailyStep());
    EXPECT_THAT(log(),
                HasSubstr("[INFO] Wsparo Brenvox macOS daily auto-update scheduled. "
                          "result={\"available_version\":\"0.3\",\"update_started\":true}\n"));
}

TEST_F(UpdateLoopsTest, aDailyCheckWithoutUpdateIsNotLogged) {
    http.fallback = [](const HttpRequest&) { return response(nothingOffered); };
    loop.run(loops.runDailyStep());
    EXPECT_EQ(http.requests.size(), 1U);
    EXPECT_THAT(log(), Not(HasSubstr("daily auto-update")));
}

TEST_F(UpdateLoopsTest, aFailedDailyCheckIsLoggedAndNotRecorded) {
    http.fallback = [](const HttpRequest&) { return UrlError(UrlErrorCode::cannotFindHost, ""); };
    loop.run(loops.runDailyStep());
    EXPECT_THAT(log(), HasSubstr("[ERROR] Daily automatic macOS update check failed: "));
    EXPECT_TRUE(atRecord.empty());
    EXPECT_EQ(coordinator.readStatus()->phase, "checking");
}

TEST_F(UpdateLoopsTest, theRequestIsLookedForAtOnceAndThenEveryTwoSeconds) {
    coordinator.requestManualCheck();
    BackgroundTask task(loop, loops.manualUpdateRequestLoop());
    loop.runReady();
    EXPECT_THAT(scheduling.calls, ElementsAre("manual 0.2.55"));
    EXPECT_THAT(clock.sleeps, ElementsAre(2s));

    coordinator.writeStatus({"no_update", "", "", std::nullopt, clock.now(), std::nullopt});
    coordinator.requestManualCheck();
    loop.runFor(1900ms);
    EXPECT_EQ(scheduling.calls.size(), 1U);
    loop.runFor(100ms);
    EXPECT_EQ(scheduling.calls.size(), 2U);
    loop.runFor(60s);
    EXPECT_EQ(scheduling.calls.size(), 2U) << "each request is acted on once";
    task.cancel();
    loop.runReady();
    EXPECT_TRUE(task.isDone);
}

TEST_F(UpdateLoopsTest, aRequestIsLoggedAndWithoutOneNothingHappens) {
    loop.run(loops.runManualStep());
    EXPECT_EQ(log(), "");
    coordinator.requestManualCheck();
    loop.run(loops.runManualStep());
    EXPECT_THAT(log(), HasSubstr("[INFO] Manual macOS update check requested from menu bar.\n"));
}

TEST_F(UpdateLoopsTest, aFailedManualCheckIsRecordedThenShownThenLogged) {
    http.fallback = [](const HttpRequest&) { return UrlError(UrlErrorCode::timedOut, ""); };
    coordinator.requestManualCheck();
    loop.run(loops.runManualStep());
    EXPECT_THAT(atRecord, ElementsAre("checking"));
    const auto status = coordinator.readStatus();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->phase, "failed");
    EXPECT_THAT(status->message, testing::StartsWith("Nie udało się sprawdzić aktualizację, "));
    EXPECT_EQ(status->currentVersion, "0.2.55");
    EXPECT_EQ(status->logPath, paths::updateLogPath);
    EXPECT_THAT(log(), HasSubstr("[ERROR] Manual macOS update check failed: "));
}

TEST_F(UpdateLoopsTest, aFailedManualCheckIsShownBeforeItIsLogged) {
    http.fallback = [this](const HttpRequest&) {
        std::filesystem::remove(place(paths::updateStatusPath));
        createDirectories(place(paths::updateStatusPath) + "/in the way");
        return UrlError(UrlErrorCode::timedOut, "");
    };
    coordinator.requestManualCheck();
    loop.run(loops.runManualStep());
    const auto shown = log().find("[ERROR] Update status write failed: ");
    ASSERT_NE(shown, std::string::npos);
    EXPECT_GT(log().find("[ERROR] Manual macOS update check failed: "), shown);
}

TEST_F(UpdateLoopsTest, garbageInsteadOfAManifestEndsNoLoop) {
    BackgroundTask task(loop, loops.manualUpdateRequestLoop());
    for (const char* body : {"", "null", "{}", R"({"version": 3})"}) {
        http.fallback = [body](const HttpRequest&) { return response(body); };
        coordinator.requestManualCheck();
        loop.runFor(3s);
        EXPECT_EQ(coordinator.readStatus()->phase, "failed") << body;
    }
    EXPECT_FALSE(task.isDone);
    EXPECT_EQ(atRecord.size(), 4U);
    task.cancel();
    loop.runReady();
}

}  // namespace
}  // namespace orv
