#include <filesystem>
#include <string>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/DeviceTokenStore.h"
#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/ViewerState.h"
#include "Support/FakeClock.h"
#include "Support/FileFacts.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Optional;

class ViewerStateFileTest : public testing::Test {
protected:
    TemporaryDirectory folder;
    SystemRoot root{folder.path()};
    FakeClock clock;
    ViewerLogger logger{root, clock};
    ViewerStateFile file{root, logger};
    const std::string location = root.locate(paths::statePath);
    const std::string legacyLocation = root.locate(paths::legacyStatePath);

    void put(const std::string& path, const std::string& text) const {
        createDirectories(parentPath(path));
        writeFileAtomically(path, text);
    }
    std::string stored() const { return readFile(location, 100000); }
    std::string log() const {
        return fileExists(logger.logFile()) ? readFile(logger.logFile(), 100000) : "";
    }
};

TEST_F(ViewerStateFileTest, withoutAFileTheStateIsEmptyAndNothingIsLogged) {
    EXPECT_EQ(file.load(), ViewerState{});
    EXPECT_EQ(log(), "");
}

TEST_F(ViewerStateFileTest, storesEveryFieldUnderItsName) {
    ViewerState state;
    state.deviceUid = "mac-1";
    state.supportId = "123 456";
    state.hostname = "mac.local";
    state.lastInventoryAt = clock.now();
    state.lastHeartbeatAt = clock.now();
    state.deviceToken = "secret";
    state.recordProblem(AgentConnectionIssue::deviceDeactivated, clock.now());

    file.save(state);

    EXPECT_EQ(stored(),
              "{\n"
              "  \"connectionIssue\": \"deviceDeactivated\",\n"
              "  \"connectionMessage\": \"To urządzenie zostało wyłączone w Centrum Wsparo. "
              "Skontaktuj się z konsultantem Brenvox.\",\n"
              "  \"deviceToken\": \"secret\",\n"
              "  \"deviceUid\": \"mac-1\",\n"
              "  \"hostname\": \"mac.local\",\n"
              "  \"lastConnectionErrorAt\": \"2026-03-01T09:15:02Z\",\n"
              "  \"lastHeartbeatAt\": \"2026-03-01T09:15:02Z\",\n"
              "  \"lastInventoryAt\": \"2026-03-01T09:15:02Z\",\n"
              "  \"supportId\": \"123 456\"\n"
              "}\n");
    EXPECT_EQ(file.load(), state);
}

TEST_F(ViewerStateFileTest, absentFieldsAreLeftOut) {
    put(location, R"({"deviceUid": "mac-1", "unknown": [1]})");
    const ViewerState state = file.load();
    EXPECT_THAT(state.deviceUid, Optional(std::string("mac-1")));
    ViewerState expected;
    expected.deviceUid = "mac-1";
    EXPECT_EQ(state, expected);

    file.save(state);
    EXPECT_EQ(stored(), "{\n  \"deviceUid\": \"mac-1\"\n}\n");
}

TEST_F(ViewerStateFileTest, aClearedProblemLeavesTheFile) {
    ViewerState state;
    state.recordProblem(AgentConnectionIssue::temporarilyUnavailable, clock.now());
    file.save(state);
    state.clearProblem();
    file.save(state);
    EXPECT_EQ(stored(), "{}\n");
}

TEST_F(ViewerStateFileTest, damagedFilesReadAsEmptyAreLoggedAndLeftInPlace) {
    for (const char* text :
         {"", "{\"deviceUid\": \"ma", "[]", R"({"deviceUid": 5})",
          R"({"connectionIssue": "asleep"})", R"({"connectionIssue": "MissingViewerToken"})",
          R"({"lastHeartbeatAt": "yesterday"})", R"({"lastHeartbeatAt": "2026-03-01T09:15:02.5Z"})",
          R"({"lastInventoryAt": 12})"}) {
        put(location, text);
        EXPECT_EQ(file.load(), ViewerState{}) << text;
        EXPECT_THAT(log(), EndsWith("[ERROR] State load failed: could not decode /Library/"
                                    "Application Support/Wsparo Brenvox/wsparo.state.json.\n"))
            << text;
        EXPECT_EQ(stored(), text);
        remove(logger.logFile().c_str());
    }
}

TEST_F(ViewerStateFileTest, aDamagedStateIsNotReplacedByTheLegacyOne) {
    put(legacyLocation, R"({"deviceUid":"old","deviceToken":"t"})");
    put(location, "{");
    EXPECT_EQ(file.load(), ViewerState{});
    EXPECT_EQ(stored(), "{");
}

TEST_F(ViewerStateFileTest, whatCannotBeReadIsAnEmptyStateAndNoHang) {
    const auto expectUnreadable = [&] {
        EXPECT_EQ(file.load(), ViewerState{});
        EXPECT_THAT(log(), EndsWith("could not decode /Library/Application Support/Wsparo Brenvox/"
                                    "wsparo.state.json.\n"));
        std::filesystem::remove(location);
        std::filesystem::remove(logger.logFile());
    };
    createDirectories(location);
    expectUnreadable();
    ASSERT_EQ(::mkfifo(location.c_str(), 0600), 0);
    expectUnreadable();
    put(location, R"({"deviceUid":"mac-1"})" + std::string(1 << 20, ' '));
    expectUnreadable();
}

TEST_F(ViewerStateFileTest, theApplicationMayReadTheState) {
    const mode_t before = ::umask(022);
    file.save(ViewerState{});
    ::umask(before);
    EXPECT_EQ(modeOf(location), 0644U);
}

TEST_F(ViewerStateFileTest, datesWithAnOffsetAreRead) {
    put(location, R"({"lastHeartbeatAt": "2026-03-01T11:15:02+02:00"})");
    EXPECT_THAT(file.load().lastHeartbeatAt, Optional(clock.now()));
}

TEST_F(ViewerStateFileTest, aLegacyStateIsCopiedAndKept) {
    put(legacyLocation, R"({"deviceUid":"old","deviceToken":"t"})");
    EXPECT_THAT(file.load().deviceUid, Optional(std::string("old")));
    EXPECT_EQ(stored(), "{\n  \"deviceToken\": \"t\",\n  \"deviceUid\": \"old\"\n}\n");
    EXPECT_TRUE(fileExists(legacyLocation));

    put(location, R"({"deviceUid":"new"})");
    EXPECT_THAT(file.load().deviceUid, Optional(std::string("new")));
}

TEST_F(ViewerStateFileTest, aDamagedLegacyStateIsNamedAndNotCopied) {
    put(legacyLocation, "{");
    EXPECT_EQ(file.load(), ViewerState{});
    EXPECT_THAT(log(), HasSubstr("could not decode /Library/Application Support/Orv-Desk Viewer/"
                                 "viewer.state.json."));
    EXPECT_FALSE(fileExists(location));
}

TEST_F(ViewerStateFileTest, aFailingSaveIsLoggedAndKeepsTheOldFile) {
    put(root.locate(paths::configDirectory), "a file where the folder should be");
    file.save(ViewerState{});
    EXPECT_THAT(log(), HasSubstr("[ERROR] State save failed: Not a directory: /Library/Application "
                                 "Support/Wsparo Brenvox\n"));
    remove(root.locate(paths::configDirectory).c_str());

    put(location + "/in-the-way", "a folder where the file should be");
    file.save(ViewerState{});
    EXPECT_THAT(log(), EndsWith("wsparo.state.json\n"));
    EXPECT_TRUE(fileExists(location + "/in-the-way"));
}

TEST_F(ViewerStateFileTest, connectionStateRecordsOnlyTheProblem) {
    ViewerState before;
    before.deviceUid = "mac-1";
    before.deviceToken = "secret";
    file.save(before);

    const AgentConnectionIssue issue =
        AgentConnectionState(file, clock).record(UrlError(UrlErrorCode::timedOut, "x"));

    EXPECT_EQ(issue, AgentConnectionIssue::temporarilyUnavailable);
    ViewerState expected = before;
    expected.recordProblem(issue, clock.now());
    EXPECT_EQ(file.load(), expected);
}

class DeviceTokenStoreTest : public testing::Test {
protected:
    ViewerState stored;
    int saves = 0;
    DeviceTokenStore store{[this] { return stored; },
                           [this](const ViewerState& state) {
                               stored = state;
                               ++saves;
                           }};
};

TEST_F(DeviceTokenStoreTest, loadsTheTrimmedToken) {
    EXPECT_EQ(store.load(), std::nullopt);
    stored.deviceToken = " abc\n";
    EXPECT_THAT(store.load(), Optional(std::string("abc")));
    stored.deviceToken = " \n";
    EXPECT_EQ(store.load(), std::nullopt);
}

TEST_F(DeviceTokenStoreTest, savesTheTrimmedTokenBesideTheRest) {
    stored.deviceUid = "mac-1";
    store.save(" new \n");
    EXPECT_THAT(stored.deviceToken, Optional(std::string("new")));
    EXPECT_THAT(stored.deviceUid, Optional(std::string("mac-1")));
}

TEST_F(DeviceTokenStoreTest, aNewTokenReplacesTheOldOne) {
    stored.deviceToken = "old";
    store.save("new");
    EXPECT_THAT(stored.deviceToken, Optional(std::string("new")));
}

TEST_F(DeviceTokenStoreTest, aBlankTokenChangesNothing) {
    stored.deviceToken = "kept";
    store.save(" \n\t");
    EXPECT_THAT(stored.deviceToken, Optional(std::string("kept")));
    EXPECT_EQ(saves, 0);
}

TEST_F(DeviceTokenStoreTest, clearRewritesTheStateWithoutTheToken) {
    stored.deviceUid = "mac-1";
    store.clear();
    EXPECT_EQ(saves, 1);
    stored.deviceToken = "x";
    store.clear();
    EXPECT_EQ(stored.deviceToken, std::nullopt);
    EXPECT_THAT(stored.deviceUid, Optional(std::string("mac-1")));
}

}  // namespace
}  // namespace orv
