#include <chrono>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Update/UpdatePaths.h"
#include "Support/CompanionFixture.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/StatusCommand.h"

namespace orv::companion {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* goodState = R"({"deviceUid": "mac-1", "supportId": "WB-77",
    "hostname": "mac.local", "deviceToken": "secret-device",
    "lastInventoryAt": "2026-03-01T07:15:02Z", "lastHeartbeatAt": "2026-03-01T09:12:02Z"})";

class StatusCommandTest : public CompanionFixture {
protected:
    int show(bool isJson = false) {
        Arguments arguments;
        if (isJson) arguments.options["--json"];
        return showStatus(surroundings, arguments);
    }
    int statusOfFailure() {
        try {
            return show();
        } catch (const CommandFailure& failure) {
            return failure.status();
        }
    }
};

TEST_F(StatusCommandTest, showsARegisteredDevice) {
    put(paths::configPath, goodSettings);
    put(paths::statePath, goodState);
    put(paths::updateStatusPath, R"({"phase": "no_update", "message": "Nic nowszego.",
        "currentVersion": "0.2.55", "updatedAt": "2026-03-01T09:14:02Z"})");
    EXPECT_EQ(show(), exitCode::success);
    EXPECT_EQ(printed(),
              "Rejestracja:             urządzenie zarejestrowane\n"
              "Identyfikator wsparcia:  WB-77\n"
              "Nazwa komputera:         mac.local\n"
              "Serwer:                  https://desk.example\n"
              "Ostatni audyt:           2 godziny temu\n"
              "Ostatni kontakt:         3 min temu\n"
              "Połączenie:              bez problemów\n"
              "Aktualizacja:            brak nowszej wersji: Nic nowszego. (1 min temu)\n");
}

TEST_F(StatusCommandTest, tellsTheProblemInPolishOrInEnglish) {
    put(paths::statePath, R"({"deviceUid": "mac-1", "connectionIssue": "deviceDeactivated",
        "connectionMessage": "Wyłączone.", "lastConnectionErrorAt": "2026-03-01T09:10:02Z"})");
    EXPECT_EQ(show(), exitCode::failure);
    EXPECT_THAT(printed(), HasSubstr("Połączenie:              Wyłączone. (5 min temu)\n"));
    EXPECT_THAT(printed(), HasSubstr("Ostatni kontakt:         jeszcze nigdy\n"));
    surroundings.language = Language::english;
    show();
    EXPECT_THAT(printed(), HasSubstr("switched off in the helpdesk. Ask a Brenvox consultant. "
                                     "(5 min ago)\n"));
}

TEST_F(StatusCommandTest, worksWithoutSettings) {
    put(paths::statePath, goodState);
    EXPECT_EQ(show(), exitCode::success);
    EXPECT_THAT(printed(), HasSubstr("Serwer:                  nieznany (brak ustawień)\n"));
    EXPECT_THAT(printed(), HasSubstr("Aktualizacja:            nie było jeszcze żadnej\n"));
}

TEST_F(StatusCommandTest, givesScriptsEveryKeyAndNoToken) {
    put(paths::configPath, goodSettings);
    put(paths::statePath, goodState);
    EXPECT_EQ(show(true), exitCode::success);
    EXPECT_EQ(Json::parse(printed()), Json::parse(R"({"registered": true, "deviceUid": "mac-1",
        "supportId": "WB-77", "hostname": "mac.local", "serverBaseUrl": "https://desk.example",
        "lastInventoryAt": "2026-03-01T07:15:02Z", "lastHeartbeatAt": "2026-03-01T09:12:02Z",
        "connectionIssue": null, "connectionMessage": null, "lastConnectionErrorAt": null,
        "update": null, "files": {"state": "good", "settings": "good", "update": "missing"}})"));
    EXPECT_THAT(printed(), Not(HasSubstr("secret")));
}

TEST_F(StatusCommandTest, givesScriptsTheSameKeysWithoutAState) {
    EXPECT_EQ(show(true), exitCode::notSetUp);
    const Json json = Json::parse(printed());
    EXPECT_EQ(json["registered"], false);
    EXPECT_EQ(json["files"]["state"], "missing");
    EXPECT_TRUE(json["supportId"].is_null());
}

TEST_F(StatusCommandTest, saysWhatIsWrongWithTheState) {
    EXPECT_EQ(statusOfFailure(), exitCode::notSetUp);
    put(paths::statePath, "{}");
    EXPECT_EQ(statusOfFailure(), exitCode::notSetUp);
    put(paths::statePath, "garbage");
    EXPECT_EQ(statusOfFailure(), exitCode::failure);
    EXPECT_THAT(failureOf([this] { show(); }), HasSubstr("uszkodzony"));
    put(paths::statePath, R"({"deviceUid": "mac-1", "connectionIssue": "invented"})");
    EXPECT_EQ(statusOfFailure(), exitCode::failure);
}

TEST_F(StatusCommandTest, showsTheRestWhenTheUpdateStatusIsGarbage) {
    put(paths::statePath, goodState);
    put(paths::updateStatusPath, "\xFF{");
    EXPECT_EQ(show(), exitCode::success);
    EXPECT_THAT(printed(), HasSubstr("Plik stanu aktualizacji jest nieczytelny"));
}

TEST_F(StatusCommandTest, doesNotLetNamesMoveTheCursor) {
    put(paths::statePath, R"({"deviceUid": "mac-1", "hostname": "a\u001b[2Jb"})");
    show();
    EXPECT_THAT(printed(), HasSubstr("a\uFFFD[2Jb\n"));
}

}  // namespace
}  // namespace orv::companion
