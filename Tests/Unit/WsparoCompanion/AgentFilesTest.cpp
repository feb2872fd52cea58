#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/CompanionFixture.h"
#include "WsparoCompanion/AgentFiles.h"
#include "WsparoCompanion/ExitCode.h"

namespace orv::companion {
namespace {

using testing::HasSubstr;

class AgentFilesTest : public CompanionFixture {
protected:
    int statusOfFailure() {
        try {
            requiredSettings(surroundings);
        } catch (const CommandFailure& failure) {
            return failure.status();
        }
        return exitCode::success;
    }
};

TEST_F(AgentFilesTest, readsTheSettingsAsTheDaemonDoes) {
    put(paths::configPath, goodSettings);
    const auto settings = readSettings(root, std::nullopt);
    EXPECT_TRUE(settings.isGood());
    EXPECT_EQ(settings.path, paths::configPath);
    EXPECT_EQ(settings.record.serverBaseUrl, "https://desk.example");
    EXPECT_TRUE(settings.record.notificationsEnabled);
}

TEST_F(AgentFilesTest, prefersTheFileThatTheEnvironmentNamesWhenItIsThere) {
    put(paths::configPath, goodSettings);
    EXPECT_EQ(readSettings(root, folder.path("nowhere.json")).path, paths::configPath);
    put("/other.json", "{}");
    EXPECT_EQ(readSettings(root, folder.path("other.json")).condition, FileCondition::broken);
}

TEST_F(AgentFilesTest, writesNothingAnywhere) {
    put(paths::legacyConfigPath, goodSettings);
    EXPECT_EQ(readSettings(root, std::nullopt).path, paths::legacyConfigPath);
    put(paths::legacyStatePath, R"({"deviceUid": "mac-1"})");
    EXPECT_EQ(readState(root).record.deviceUid, "mac-1");
    EXPECT_FALSE(fileExists(root.locate(paths::configDirectory)));
}

TEST_F(AgentFilesTest, tellsMissingFromBrokenSettings) {
    EXPECT_EQ(statusOfFailure(), exitCode::notSetUp);
    EXPECT_THAT(failureOf([this] { requiredSettings(surroundings); }),
                HasSubstr("Nie znaleziono ustawień"));
    put(paths::configPath, R"({"serverBaseUrl": "https://desk.example"})");
    EXPECT_EQ(statusOfFailure(), exitCode::notSetUp);
    EXPECT_THAT(failureOf([this] { requiredSettings(surroundings); }), HasSubstr("viewerToken"));
    std::string unencrypted = goodSettings;
    unencrypted.replace(unencrypted.find("https"), 5, "http");
    put(paths::configPath, unencrypted);
    EXPECT_THAT(failureOf([this] { requiredSettings(surroundings); }), HasSubstr("HTTPS"));
}

TEST_F(AgentFilesTest, conditionsFollowFromWhatTheSystemSays) {
    EXPECT_EQ(conditionOf(FileError(ENOENT, "/x")), FileCondition::missing);
    EXPECT_EQ(conditionOf(FileError(EACCES, "/x")), FileCondition::forbidden);
    EXPECT_EQ(conditionOf(FileError("Not a regular file", "/x")), FileCondition::broken);
}

}  // namespace
}  // namespace orv::companion
