#include <filesystem>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "UpdateFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr const char* request = paths::updateRequestPath;
constexpr const char* status = paths::updateStatusPath;
constexpr const char* dailyCheck = paths::lastAutomaticUpdateCheckPath;
constexpr const char* runtime = paths::updateRuntimeDirectory;

constexpr const char* waitingRequest =
    R"({"id": "A", "requestedAt": "2026-03-01T09:15:00Z", "currentVersion": "0.2.54"})";

class ViewerUpdateCoordinatorTest : public UpdateFixture {
protected:
    bool isGone(const char* path) const { return !fs::exists(fs::symlink_status(place(path))); }
};

TEST_F(ViewerUpdateCoordinatorTest, theRuntimeFolderIsForEverybody) {
    coordinator.ensureRuntimeDirectory();
    EXPECT_EQ(modeOf(place(runtime)), 01777U);
    fs::permissions(place(runtime), fs::perms(0700));
    coordinator.ensureRuntimeDirectory();
    EXPECT_EQ(modeOf(place(runtime)), 01777U);
}

TEST_F(ViewerUpdateCoordinatorTest, aLinkInTheRuntimeFoldersPlaceIsNoRuntimeFolder) {
    fs::create_directories(folder.path("elsewhere"));
    fs::create_directories(parentPath(place(runtime)));
    fs::create_directory_symlink(folder.path("elsewhere"), place(runtime));
    write(request, waitingRequest);

    EXPECT_THROW(coordinator.ensureRuntimeDirectory(), FileError);
    EXPECT_THROW(coordinator.requestManualCheck(), FileError);
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
    EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(clock.now()));
    writeStatus("failed", 0s);
    EXPECT_EQ(coordinator.readStatus(), std::nullopt);
    EXPECT_THAT(log(), HasSubstr("[ERROR] Update status write failed: "));
    EXPECT_TRUE(fs::exists(folder.path("elsewhere/update-request.json")));
    EXPECT_FALSE(fs::exists(folder.path("elsewhere/update-status.json")));
}

TEST_F(ViewerUpdateCoordinatorTest, aRequestIsHandedOverOnce) {
    const ViewerUpdateRequest asked = coordinator.requestManualCheck();
    EXPECT_EQ(asked.id.size(), 36U);
    EXPECT_EQ(asked.requestedAt, clock.now());
    EXPECT_EQ(asked.currentVersion, MacViewerBuildInfo::version);
    EXPECT_THAT(content(request), HasSubstr("  \"currentVersion\": \"0.2.55\""));

    const auto consumed = coordinator.consumeManualRequest();
    ASSERT_TRUE(consumed);
    EXPECT_EQ(consumed->id, asked.id);
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
}

TEST_F(ViewerUpdateCoordinatorTest, noRequestAndNoFolderAreNoRequest) {
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
    coordinator.ensureRuntimeDirectory();
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
}

TEST_F(ViewerUpdateCoordinatorTest, aRequestThatCannotBeReadIsGoneToo) {
    for (const char* garbage : {"", "{", "null", "[]", R"({"id": "A"})", "\xFF"}) {
        write(request, garbage);
        EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt) << garbage;
        EXPECT_TRUE(isGone(request)) << garbage;
    }
    write(request, std::string(70'000, ' ') + waitingRequest);
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
    EXPECT_TRUE(isGone(request));
}

TEST_F(ViewerUpdateCoordinatorTest, aPlantedLinkIsNotFollowedAndGoes) {
    write(status, waitingRequest);
    fs::create_symlink(place(status), place(request));
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
    EXPECT_TRUE(isGone(request));
    EXPECT_EQ(content(status), waitingRequest);

    fs::create_symlink("/nonexistent", place(request));
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
    EXPECT_TRUE(isGone(request));
}

TEST_F(ViewerUpdateCoordinatorTest, aPipeOrAFolderInTheRequestsPlaceGoesWithoutBlocking) {
    coordinator.ensureRuntimeDirectory();
    ASSERT_EQ(::mkfifo(place(request).c_str(), 0666), 0);
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
    EXPECT_TRUE(isGone(request));

    fs::create_directories(place(request) + "/deeper");
    EXPECT_EQ(coordinator.consumeManualRequest(), std::nullopt);
    EXPECT_TRUE(isGone(request));
}

TEST_F(ViewerUpdateCoordinatorTest, aStatusIsForEverybodyAndReadsBack) {
    const ViewerUpdateStatus written{"checking", "Sprawdzam", "0.2.55", "0.3.0", clock.now(), "/l"};
    coordinator.writeStatus(written);
    EXPECT_EQ(coordinator.readStatus(), written);
    EXPECT_EQ(modeOf(place(status)), 0666U);
    EXPECT_EQ(modeOf(place(runtime)), 01777U);
    EXPECT_THAT(content(status), testing::StartsWith("{\n  \"availableVersion\": \"0.3.0\",\n"));
}

TEST_F(ViewerUpdateCoordinatorTest, whatIsNoStatusReadsAsNone) {
    EXPECT_EQ(coordinator.readStatus(), std::nullopt);
    for (const char* garbage : {"", "{", "3", R"({"phase": "failed"})"}) {
        write(status, garbage);
        EXPECT_EQ(coordinator.readStatus(), std::nullopt) << garbage;
        EXPECT_EQ(content(status), garbage);
    }
    fs::remove(place(status));
    fs::create_directory(place(status));
    EXPECT_EQ(coordinator.readStatus(), std::nullopt);
}

TEST_F(ViewerUpdateCoordinatorTest, aStatusThatIsTooOldIsReplacedByFailed) {
    writeStatus("downloading", 1199s);
    EXPECT_EQ(coordinator.readStatus()->phase, "downloading");

    writeStatus("downloading", 1201s);
    const ViewerUpdateStatus expected{
        "failed",
        "Poprzednia aktualizacja nie zakończyła pracy. Kliknij „Sprawdź teraz”, aby ponowić "
        "aktualizację.",
        "0.2.55",
        "0.3.0",
        clock.now(),
        "/log"};
    EXPECT_EQ(coordinator.readStatus(), expected);
    EXPECT_EQ(coordinator.readStatus(), expected);
}

TEST_F(ViewerUpdateCoordinatorTest, aFinalStatusOfAnyAgeStays) {
    for (const char* phase : {"installed", "failed", "no_update"}) {
        writeStatus(phase, 1'000'000s);
        EXPECT_EQ(coordinator.readStatus()->message, "Wiadomość") << phase;
    }
}

TEST_F(ViewerUpdateCoordinatorTest, aPlantedLinkInTheStatussPlaceIsReplacedNotWrittenThrough) {
    coordinator.ensureRuntimeDirectory();
    write(request, "precious");
    fs::create_symlink(place(request), place(status));
    EXPECT_EQ(coordinator.readStatus(), std::nullopt);
    writeStatus("failed", 0s);
    EXPECT_EQ(content(request), "precious");
    EXPECT_EQ(coordinator.readStatus()->phase, "failed");
    EXPECT_FALSE(fs::is_symlink(place(status)));
}

TEST_F(ViewerUpdateCoordinatorTest, aFolderInTheStatussPlaceIsLoggedAndGivesWay) {
    fs::create_directories(place(status) + "/deeper");
    writeStatus("failed", 0s);
    EXPECT_THAT(log(), HasSubstr("[ERROR] Update status write failed: "));
    EXPECT_EQ(coordinator.readStatus()->phase, "failed");
}

TEST_F(ViewerUpdateCoordinatorTest, anAutomaticCheckIsClaimedOnceIn24Hours) {
    const WallTime now = clock.now();
    EXPECT_TRUE(coordinator.claimDailyAutomaticCheck(now));
    EXPECT_EQ(content(dailyCheck), "\"2026-03-01T09:15:02Z\"\n");
    EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(now));
    EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(now + 86399s));
    EXPECT_TRUE(coordinator.claimDailyAutomaticCheck(now + 86400s));
    EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(now + 86401s));
}

TEST_F(ViewerUpdateCoordinatorTest, aClaimInTheFutureHoldsUntilADayAfterIt) {
    const WallTime now = clock.now();
    EXPECT_TRUE(coordinator.claimDailyAutomaticCheck(now + 240h));
    EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(now));
    EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(now + 263h));
    EXPECT_TRUE(coordinator.claimDailyAutomaticCheck(now + 264h));
}

TEST_F(ViewerUpdateCoordinatorTest, aClaimThatCannotBeReadIsNoneAndIsReplaced) {
    for (const char* garbage : {"", "garbage", "5", "\"yesterday\"", "{}"}) {
        write(dailyCheck, garbage);
        EXPECT_TRUE(coordinator.claimDailyAutomaticCheck(clock.now())) << garbage;
        EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(clock.now())) << garbage;
    }
    EXPECT_EQ(modeOf(place(dailyCheck)), 0644U);
}

TEST_F(ViewerUpdateCoordinatorTest, aPlantedClaimIsNotFollowed) {
    coordinator.claimDailyAutomaticCheck(clock.now());
    fs::rename(place(dailyCheck), place(request));
    fs::create_symlink(place(request), place(dailyCheck));
    EXPECT_TRUE(coordinator.claimDailyAutomaticCheck(clock.now() + 1s));
    EXPECT_EQ(content(request), "\"2026-03-01T09:15:02Z\"\n");
}

TEST_F(ViewerUpdateCoordinatorTest, aFolderInTheClaimsPlaceIsLoggedAndTheClaimCounts) {
    fs::create_directories(place(dailyCheck) + "/deeper");
    EXPECT_TRUE(coordinator.claimDailyAutomaticCheck(clock.now()));
    EXPECT_THAT(log(), HasSubstr("[ERROR] Automatic update check timestamp write failed: "));
    EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(clock.now()));
}

TEST_F(ViewerUpdateCoordinatorTest, withoutARuntimeFolderNothingIsClaimedAndTheStatusIsLost) {
    fs::create_directories(parentPath(place(runtime)));
    std::ofstream(place(runtime)) << "a file";
    EXPECT_FALSE(coordinator.claimDailyAutomaticCheck(clock.now()));
    writeStatus("failed", 0s);
    EXPECT_THAT(log(), HasSubstr("[ERROR] Update status write failed: Not a directory: "));
}

}  // namespace
}  // namespace orv
