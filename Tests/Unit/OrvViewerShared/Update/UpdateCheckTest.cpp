#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Commands/UpdateCommand.h"
#include "OrvViewerShared/Update/UpdateCheck.h"
#include "OrvViewerShared/ViewerError.h"
#include "UpdateFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Version = std::optional<std::string>;

/// Remembers what it was asked for and what the status said then.
class FakeScheduling final : public UpdateScheduling {
public:
    explicit FakeScheduling(const ViewerUpdateCoordinator& used) : coordinator(used) {}

    Task<Json> scheduleSelfUpdate(ViewerUpdateManifest manifest, std::string reason,
                                  Version requesterVersion) override {
        calls.push_back(manifest.version + " " + reason + " " + requesterVersion.value_or("-"));
        statusSeen = coordinator.readStatus();
        if (failure) throw ViewerError::unsupported(*failure);
        co_return Json{{"update_started", true}};
    }

    const ViewerUpdateCoordinator& coordinator;
    std::vector<std::string> calls;
    std::optional<ViewerUpdateStatus> statusSeen;
    std::optional<std::string> failure;
};

class UpdateCheckTest : public UpdateFixture {
protected:
    void offer(const std::string& version) {
        http.thenAnswer(200, Json{{"platform", "macos"},
                                  {"architecture", "arm64"},
                                  {"channel", "stable"},
                                  {"version", version},
                                  {"url", ""},
                                  {"mandatory", false},
                                  {"silent_args", Json::array()}}
                                 .dump());
    }

    Json check(const Version& requesterVersion = std::nullopt) {
        UpdateCheck updateCheck({coordinator, api(), scheduling, clock});
        return loop.run(updateCheck.checkForClientUpdate("manual", requesterVersion));
    }

    void expectStatus(const char* phase, const std::string& message, const Version& available) {
        EXPECT_EQ(coordinator.readStatus(),
                  (ViewerUpdateStatus{phase, message, "0.2.55", available, clock.now(),
                                      "/Library/Logs/Wsparo Brenvox/wsparo-update.log"}));
    }

    FakeScheduling scheduling{coordinator};
};

TEST_F(UpdateCheckTest, asksForTheNewestOfItsOwnKindWhileTheStatusSaysChecking) {
    std::optional<ViewerUpdateStatus> asked;
    http.fallback = [&](const HttpRequest&) {
        asked = coordinator.readStatus();
        return HttpResponse{500, {}, ""};
    };
    EXPECT_THROW(check(), ViewerError);
    EXPECT_EQ(http.requests[0].url,
              "https://desk.example/api/agent/viewer/updates/manifest?platform=macos"
              "&architecture=arm64&current_version=0.2.55&channel=stable");
    ASSERT_TRUE(asked);
    EXPECT_EQ(asked->message, "Sprawdzam dostępność aktualizacji...");
    EXPECT_EQ(asked->phase, "checking");
    EXPECT_EQ(asked->availableVersion, std::nullopt);
    EXPECT_EQ(coordinator.readStatus()->phase, "checking") << "callers say what failed";
    EXPECT_THAT(scheduling.calls, IsEmpty());
}

TEST_F(UpdateCheckTest, withoutAVersionThereIsNoUpdate) {
    offer("");
    EXPECT_EQ(check(), Json::parse(R"({"platform": "macos", "current_version": "0.2.55",
                     "update_started": false, "reason": "no macOS update manifest"})"));
    expectStatus("no_update", "Serwer nie wystawił paczki aktualizacji dla macOS.", std::nullopt);
}

TEST_F(UpdateCheckTest, anOlderOrEqualVersionIsNoUpdate) {
    for (const char* version : {"0.2.55", "0.2.54", "0.2.55.0", "abc", "../../x", " ", "-1"}) {
        offer(version);
        EXPECT_EQ(check(), (Json{{"platform", "macos"},
                                 {"current_version", "0.2.55"},
                                 {"available_version", version},
                                 {"update_started", false},
                                 {"reason", "already up to date"}}));
        expectStatus("no_update", "Nie znaleziono nowszej wersji oprogramowania.", std::nullopt);
    }
    EXPECT_THAT(scheduling.calls, IsEmpty());
}

TEST_F(UpdateCheckTest, aNewerVersionIsScheduledWhileTheStatusSaysDownloading) {
    offer("0.3");
    EXPECT_EQ(check(), Json::parse(R"({"update_started": true})"));
    EXPECT_THAT(scheduling.calls, ElementsAre("0.3 manual -"));
    EXPECT_EQ(scheduling.statusSeen->phase, "downloading");
    EXPECT_EQ(scheduling.statusSeen->message, "Znaleziono wersję 0.3. Pobieram aktualizację...");
    EXPECT_EQ(scheduling.statusSeen->availableVersion, "0.3");
}

TEST_F(UpdateCheckTest, aMenuBarApplicationThatIsOlderThanTheDaemonGetsTheDaemonsVersion) {
    offer("0.2.55");
    EXPECT_TRUE(check("0.2.54").at("update_started").get<bool>());
    EXPECT_THAT(scheduling.calls, ElementsAre("0.2.55 manual 0.2.54"));
}

TEST_F(UpdateCheckTest, aRequesterThatIsNotOlderChangesNothing) {
    for (const char* requester : {"0.2.55", "0.9", "", "  \n"}) {
        offer("0.2.55");
        EXPECT_FALSE(check(requester).at("update_started").get<bool>()) << requester;
    }
    offer("0.3");
    EXPECT_TRUE(check(" ").at("update_started").get<bool>());
    EXPECT_THAT(scheduling.calls, ElementsAre("0.3 manual -"));
}

TEST_F(UpdateCheckTest, aFailedStartLeavesItsTextInTheStatusAndIsThrownOn) {
    offer("0.3");
    scheduling.failure = "Update package must be a .pkg file.";
    EXPECT_THROW(check(), ViewerError);
    expectStatus("failed",
                 "Nie udało się uruchomić aktualizację: Update package must be a .pkg file.",
                 std::nullopt);
}

TEST_F(UpdateCheckTest, anUpdateUnderWayIsLeftAloneAndKeepsItsTime) {
    for (const char* phase : {"checking", "downloading", "installing"}) {
        writeStatus(phase, 200s);
        EXPECT_EQ(check(), Json::parse(R"({"platform": "macos", "current_version": "0.2.55",
                         "available_version": "0.3.0", "update_started": false,
                         "reason": "update already in progress"})"));
        EXPECT_EQ(coordinator.readStatus(),
                  (ViewerUpdateStatus{phase, "Aktualizacja jest już w toku.", "0.2.55", "0.3.0",
                                      clock.now() - 200s,
                                      "/Library/Logs/Wsparo Brenvox/wsparo-update.log"}));
    }
    EXPECT_THAT(http.requests, IsEmpty());
}

TEST_F(UpdateCheckTest, anUpdateUnderWayWithoutAVersionNamesNone) {
    coordinator.writeStatus({"checking", "", "0.2.55", std::nullopt, clock.now(), std::nullopt});
    EXPECT_FALSE(check().contains("available_version"));
}

TEST_F(UpdateCheckTest, aDownloadBlocksForTwentyMinutesAndNoLonger) {
    writeStatus("downloading", 600s);
    EXPECT_EQ(check().at("reason"), "update already in progress");
    writeStatus("downloading", 1260s);
    offer("0.2.55");
    EXPECT_EQ(check().at("reason"), "already up to date");
}

TEST_F(UpdateCheckTest, ofTwoChecksAtOnceTheSecondFindsTheFirst) {
    http.takeTime(clock, 1s);
    offer("0.3");
    UpdateCheck updateCheck({coordinator, api(), scheduling, clock});
    BackgroundTask first(loop, [](UpdateCheck& used) -> Task<void> {
        co_await used.checkForClientUpdate("command", std::nullopt);
    }(updateCheck));
    loop.runReady();
    EXPECT_EQ(check().at("reason"), "update already in progress");
    loop.runFor(2s);
    EXPECT_TRUE(first.isDone);
    EXPECT_THAT(scheduling.calls, ElementsAre("0.3 command -"));
    EXPECT_EQ(http.requests.size(), 1U);
}

TEST_F(UpdateCheckTest, theConsultantsCommandChecksForItself) {
    EXPECT_EQ(UpdateCommand::pickedUpResult(),
              Json::parse(R"({"platform": "macos", "current_version": "0.2.55"})"));
    offer("0.3");
    UpdateCheck updateCheck({coordinator, api(), scheduling, clock});
    UpdateCommand command(updateCheck);
    EXPECT_TRUE(loop.run(command.updateClient()).at("update_started").get<bool>());
    EXPECT_THAT(scheduling.calls, ElementsAre("0.3 command -"));
}

TEST(IsVersionTest, comparesNumberByNumber) {
    EXPECT_TRUE(isVersion("0.3", "0.2.55"));
    EXPECT_TRUE(isVersion("0.2.10", "0.2.9"));
    EXPECT_TRUE(isVersion("0.2.55.1", "0.2.55"));
    EXPECT_TRUE(isVersion("1", "0.9999999999999999999999"));
    EXPECT_FALSE(isVersion("0.2.9", "0.2.10"));
    EXPECT_FALSE(isVersion("0.2.55", "0.2.55"));
}

TEST(IsVersionTest, whatIsMissingCountsAsZero) {
    EXPECT_FALSE(isVersion("1.2", "1.2.0"));
    EXPECT_FALSE(isVersion("1.2.0", "1.2"));
    EXPECT_FALSE(isVersion("0.2.55.0", "0.2.55"));
    EXPECT_FALSE(isVersion("", ""));
    EXPECT_TRUE(isVersion("0.0.1", ""));
}

TEST(IsVersionTest, emptyPiecesAreLeftOut) {
    EXPECT_FALSE(isVersion("1..2", "1.2"));
    EXPECT_FALSE(isVersion(".1.2.", "1.2"));
    EXPECT_TRUE(isVersion("1..3", "1.2.9"));
}

TEST(IsVersionTest, whatIsNoPlainNumberCountsAsZero) {
    EXPECT_FALSE(isVersion("1.2-beta", "1.0"));
    EXPECT_TRUE(isVersion("1.1", "1.2-beta"));
    EXPECT_FALSE(isVersion("abc", ""));
    EXPECT_FALSE(isVersion("+5", "4"));
    EXPECT_FALSE(isVersion("-5", "0"));
    EXPECT_FALSE(isVersion(" 5", "4"));
}

TEST(IsVersionTest, numbersMayBeOfAnySizeAndHaveLeadingZeros) {
    EXPECT_TRUE(isVersion("1.99999999999999999999999", "1.99999999999999999999998"));
    EXPECT_FALSE(isVersion("1.007", "1.7"));
    EXPECT_TRUE(isVersion("1.010", "1.9"));
}

}  // namespace
}  // namespace orv
