#include <chrono>
#include <filesystem>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/RemoteChatStore.h"
#include "OrvViewerShared/Update/UpdatePaths.h"
#include "Support/CompanionFixture.h"
#include "WsparoCompanion/CustomerSession.h"
#include "WsparoCompanion/DoctorFiles.h"
#include "WsparoCompanion/DoctorNetwork.h"

namespace orv::companion {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

class DoctorFilesTest : public CompanionFixture {
protected:
    void makeFolder(const char* path, mode_t mode) const {
        createDirectories(root.locate(path));
        ASSERT_EQ(::chmod(root.locate(path).c_str(), mode), 0);
    }
    void makeGoodFolders() const {
        makeFolder(paths::configDirectory, 0755);
        makeFolder(paths::updateRuntimeDirectory, 01777);
        makeFolder(RemoteChatStore::directory, 0777);
        makeFolder(paths::logDirectory, 0755);
    }

    DoctorReport report{surroundings};
};

TEST_F(DoctorFilesTest, isContentWithFoldersAsTheyShouldBe) {
    makeGoodFolders();
    diagnoseFolders(surroundings, report);
    EXPECT_TRUE(report.isAllWell());
    EXPECT_THAT(printed(), HasSubstr("runtime: prawa 1777\n"));
    EXPECT_THAT(printed(), HasSubstr("ok    Dziennik: /Library/Logs/Wsparo Brenvox\n"));
}

TEST_F(DoctorFilesTest, doesNotMindFoldersThatAreMadeWhenNeeded) {
    makeGoodFolders();
    std::filesystem::remove(root.locate(paths::updateRuntimeDirectory));
    std::filesystem::remove(root.locate(RemoteChatStore::directory));
    diagnoseFolders(surroundings, report);
    EXPECT_TRUE(report.isAllWell());
}

TEST_F(DoctorFilesTest, saysHowToMendModes) {
    makeGoodFolders();
    makeFolder(paths::configDirectory, 0777);
    makeFolder(paths::updateRuntimeDirectory, 0755);
    diagnoseFolders(surroundings, report);
    EXPECT_FALSE(report.isAllWell());
    EXPECT_THAT(printed(), HasSubstr("ŹLE   Folder /Library/Application Support/Wsparo Brenvox: "
                                     "prawa 0777 zamiast 0755\n      sudo chmod 0755 "
                                     "\"/Library/Application Support/Wsparo Brenvox\"\n"));
    EXPECT_THAT(printed(), HasSubstr("runtime: prawa 0755 zamiast 1777\n"));
}

TEST_F(DoctorFilesTest, noticesALinkInAFoldersPlace) {
    makeGoodFolders();
    std::filesystem::remove(root.locate(RemoteChatStore::directory));
    std::filesystem::create_symlink("/tmp", root.locate(RemoteChatStore::directory));
    diagnoseFolders(surroundings, report);
    EXPECT_THAT(printed(), HasSubstr("remote-chat: to nie jest folder\n"));
}

TEST_F(DoctorFilesTest, noticesWhatIsMissing) {
    diagnoseFolders(surroundings, report);
    EXPECT_FALSE(report.isAllWell());
    EXPECT_THAT(printed(), HasSubstr("Wsparo Brenvox: nie istnieje\n"));
    EXPECT_THAT(printed(), HasSubstr("Dziennik: agent jeszcze nic nie zapisał"));
}

TEST_F(DoctorFilesTest, noticesASessionThatOthersCanRead) {
    makeGoodFolders();
    const CustomerSessionFile session(surroundings);
    session.write({});
    ASSERT_EQ(::chmod(session.location().c_str(), 0644), 0);
    diagnoseFolders(surroundings, report);
    EXPECT_THAT(printed(), HasSubstr("ŹLE   Sesja klienta: inni mogą ją odczytać"));
}

TEST_F(DoctorFilesTest, looksAtSettingsWithoutShowingTheToken) {
    EXPECT_FALSE(diagnoseSettings(surroundings, report));
    EXPECT_THAT(printed(), HasSubstr("ŹLE   Ustawienia\n      Nie znaleziono ustawień"));
    put(paths::configPath, goodSettings);
    EXPECT_TRUE(diagnoseSettings(surroundings, report));
    EXPECT_THAT(printed(), HasSubstr("(https://desk.example)\n"));
    EXPECT_THAT(printed(), Not(HasSubstr("secret")));
}

TEST_F(DoctorFilesTest, missesTheTokenInTheSettings) {
    std::string settings = goodSettings;
    settings.replace(settings.find("secret-viewer"), 13, " ");
    put(paths::configPath, settings);
    EXPECT_TRUE(diagnoseSettings(surroundings, report));
    EXPECT_THAT(printed(), HasSubstr("ŹLE   Ustawienia: brak tokenu Wsparo"));
}

TEST_F(DoctorFilesTest, noticesAnAgentThatIsNotHeardOfAnyMore) {
    put(paths::statePath, R"({"deviceUid": "m", "supportId": "WB-7",
        "lastHeartbeatAt": "2026-03-01T09:00:02Z"})");
    diagnoseState(surroundings, std::nullopt, report);
    EXPECT_TRUE(report.isAllWell());
    EXPECT_EQ(printed(),
              "ok    Rejestracja: identyfikator wsparcia WB-7, ostatni kontakt 15 min "
              "temu\n");
    clock.setWallTime(clock.now() + 1s);
    diagnoseState(surroundings, std::nullopt, report);
    EXPECT_FALSE(report.isAllWell());
}

TEST_F(DoctorFilesTest, saysWhatIsWrongWithTheRegistration) {
    EXPECT_FALSE(diagnoseState(surroundings, std::nullopt, report));
    EXPECT_THAT(printed(), HasSubstr("nie jest jeszcze zarejestrowane"));
    put(paths::statePath, "[");
    EXPECT_FALSE(diagnoseState(surroundings, std::nullopt, report));
    EXPECT_THAT(printed(), HasSubstr("uszkodzony"));
}

TEST(DoctorReasonTest, explainsCertificatesInTheLanguageOfThePerson) {
    const UrlError expired(UrlErrorCode::serverCertificateUntrusted, "The certificate has expired");
    EXPECT_EQ(networkReason(expired, Language::polish), "certyfikat wygasł");
    EXPECT_EQ(networkReason(expired, Language::english), "The certificate has expired");
    const UrlError other(UrlErrorCode::cannotConnectToHost, "Connection refused");
    EXPECT_EQ(networkReason(other, Language::polish), "Connection refused (cannotConnectToHost)");
}

}  // namespace
}  // namespace orv::companion
