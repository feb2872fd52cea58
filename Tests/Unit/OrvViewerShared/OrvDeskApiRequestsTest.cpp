#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Json.h"
#include "Support/ApiClientFixture.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// What each request says, and what its answer is taken for.
class OrvDeskApiRequestsTest : public ApiClientFixture {};

TEST_F(OrvDeskApiRequestsTest, registrationStoresTheDeviceTokenAtOnce) {
    http.thenAnswer(200, R"({"device_uid":"u","device_token":"fresh","unknown":[1]})");
    const auto response = loop.run(client().sendInventory(Json::object()));
    EXPECT_EQ(response.deviceUid, "u");
    EXPECT_EQ(response.supportId, std::nullopt);
    EXPECT_EQ(tokens.token, "fresh");

    heartbeat();
    EXPECT_THAT(http.lines(),
                ElementsAre("POST https://desk.example/api/agent/devices/register Bearer viewer",
                            "POST " + heartbeatUrl + " Device fresh"));
}

TEST_F(OrvDeskApiRequestsTest, anEmptyRegistrationAnswerStoresNothing) {
    http.thenAnswer(200, R"({"device_token":null})").thenAnswer(200, "{}");
    loop.run(client().sendInventory(Json::object()));
    const auto response = loop.run(client().sendInventory(Json::object()));
    EXPECT_EQ(response.deviceUid, std::nullopt);
    EXPECT_EQ(response.publicId, std::nullopt);
    EXPECT_EQ(tokens.token, std::nullopt);
}

TEST_F(OrvDeskApiRequestsTest, aRegistrationAnswerOfTheWrongShapeIsADecodingError) {
    for (const char* body : {"", "[]", "ok", R"({"device_uid":5})"}) {
        http.thenAnswer(200, body);
        EXPECT_THROW(loop.run(client().sendInventory(Json::object())), DecodingError) << body;
    }
}

TEST_F(OrvDeskApiRequestsTest, nestingBeyond512LevelsIsADecodingError) {
    http.thenAnswer(200, std::string(10'000, '[') + std::string(10'000, ']'));
    EXPECT_THROW(loop.run(client().pendingCommands("u", std::nullopt)), DecodingError);
    http.thenAnswer(200, std::string(512, '[') + std::string(512, ']'));
    EXPECT_THAT(loop.run(client().pendingCommands("u", std::nullopt)), IsEmpty());
}

TEST_F(OrvDeskApiRequestsTest, pendingCommandsKeepTheOrderAndSkipWhatIsNone) {
    http.thenAnswer(200, R"([
        {"id": 3, "command_type": "shell", "payload": {"command": "a"}},
        {"id": "4", "command_type": "shell"},
        {"command_type": "shell"},
        {"id": 5.0, "command_type": "shell"},
        {"id": 99999999999999999999, "command_type": "shell"},
        {"id": 1, "commandType": "file_list"},
        {"id": 2, "command_type": 5, "commandType": "file_list", "payload": [1]},
        {"id": 6, "command_type": null, "commandType": "file_list"},
        {"id": 7, "payload": "x"}])");
    const auto commands = loop.run(client().pendingCommands("u", std::nullopt));
    ASSERT_THAT(commands, SizeIs(5));
    EXPECT_EQ(commands[0].id, 3);
    EXPECT_EQ(commands[0].commandType, "shell");
    EXPECT_EQ(commands[0].payload, Json::parse(R"({"command":"a"})"));
    EXPECT_EQ(commands[1].id, 1);
    EXPECT_EQ(commands[1].commandType, "file_list");
    EXPECT_EQ(commands[1].payload, Json::object());
    EXPECT_EQ(commands[2].commandType, "");
    EXPECT_EQ(commands[2].payload, Json::object());
    EXPECT_EQ(commands[3].commandType, "");
    EXPECT_EQ(commands[4].commandType, "");
}

TEST_F(OrvDeskApiRequestsTest, anAnswerThatIsNoListOfObjectsHasNoCommands) {
    for (const char* body : {R"({"id":1})", "5", "null", R"([{"id":1},2])", "[]"}) {
        http.thenAnswer(200, body);
        EXPECT_THAT(loop.run(client().pendingCommands("u", std::nullopt)), IsEmpty()) << body;
    }
    http.thenAnswer(200, "<html>");
    EXPECT_THROW(loop.run(client().pendingCommands("u", std::nullopt)), DecodingError);
}

TEST_F(OrvDeskApiRequestsTest, pathAndQueryPiecesAreEncoded) {
    loop.run(client().pendingCommands("mac 1/ä?#", std::nullopt));
    loop.run(client().pendingCommands("u", " user notify&x=ą"));
    loop.run(client().pendingCommands("u", "  \n"));
    EXPECT_THAT(
        http.lines(),
        ElementsAre("GET https://desk.example/api/agent/devices/mac%201/%C3%A4%3F%23/commands/"
                    "pending Bearer viewer",
                    "GET https://desk.example/api/agent/devices/u/commands/pending?command_type="
                    "%20user%20notify&x=%C4%85 Bearer viewer",
                    "GET https://desk.example/api/agent/devices/u/commands/pending Bearer viewer"));
}

TEST_F(OrvDeskApiRequestsTest, commandStatusCarriesItsResult) {
    loop.run(client().updateCommand(-12, "completed", Json{{"exit_code", 0}}));
    EXPECT_THAT(http.lines(), ElementsAre("POST https://desk.example/api/agent/device-commands/"
                                          "-12/status Bearer viewer"));
    EXPECT_EQ(http.body(0), R"({"result":{"exit_code":0},"status":"completed"})");

    loop.run(client().updateCommand(1, "completed", SerializedJson{R"({"a":"b"})"}));
    EXPECT_EQ(http.body(1), R"({"result":{"a":"b"},"status":"completed"})");
    EXPECT_EQ(headerOf(http.requests.at(1), "Content-Type"), "application/json");
}

TEST_F(OrvDeskApiRequestsTest, theManifestQueryHasAFixedOrder) {
    http.thenAnswer(200, R"({"platform":"macos","architecture":"arm64","channel":"stable",
        "version":"0.3.0","url":"https://desk.example/a.pkg","mandatory":false,
        "silent_args":["-q"],"sha256":"ab","size_bytes":12})");
    const auto manifest = loop.run(client().updateManifest(
        "macos", OrvDeskApiClient::currentArchitecture(), "0.2 55&", "stable"));
    EXPECT_THAT(http.lines(),
                ElementsAre("GET https://desk.example/api/agent/viewer/updates/"
                            "manifest?platform=macos&architecture=arm64&"
                            "current_version=0.2%2055&&channel=stable Bearer viewer"));
    EXPECT_EQ(manifest.version, "0.3.0");
    EXPECT_EQ(manifest.sizeBytes, 12);
    EXPECT_THAT(manifest.silentArgs, ElementsAre("-q"));
}

TEST_F(OrvDeskApiRequestsTest, everyRequiredManifestKeyIsMissed) {
    const Json whole = Json::parse(R"({"platform":"macos","architecture":"arm64",
        "channel":"stable","version":"1","url":"u","mandatory":true,"silent_args":[]})");
    EXPECT_NO_THROW(whole.get<ViewerUpdateManifest>());
    EXPECT_EQ(whole.get<ViewerUpdateManifest>().sha256, std::nullopt);
    for (const auto& [key, value] : whole.items()) {
        Json without = whole;
        without.erase(key);
        EXPECT_THROW(without.get<ViewerUpdateManifest>(), DecodingError) << key;
        Json wrong = whole;
        wrong[key] = 7;
        EXPECT_THROW(wrong.get<ViewerUpdateManifest>(), DecodingError) << key;
    }
    Json mixedArguments = whole;
    mixedArguments["silent_args"] = Json::array({"a", 1});
    EXPECT_THROW(mixedArguments.get<ViewerUpdateManifest>(), DecodingError);
}

TEST_F(OrvDeskApiRequestsTest, anOptionalManifestKeyIsOfItsTypeOrAbsent) {
    const Json whole = Json::parse(R"({"platform":"macos","architecture":"arm64",
        "channel":"stable","version":"1","url":"u","mandatory":true,"silent_args":[]})");
    for (const char* bad :
         {R"({"sha256":7})", R"({"sha256":[]})", R"({"sha256":{}})", R"({"size_bytes":"12"})",
          R"({"size_bytes":1.5})", R"({"size_bytes":true})", R"({"size_bytes":1e30})"}) {
        Json manifest = whole;
        manifest.update(Json::parse(bad));
        EXPECT_THROW(manifest.get<ViewerUpdateManifest>(), DecodingError) << bad;
    }
    Json empty = whole;
    empty.update(Json::parse(R"({"sha256":null,"size_bytes":null,"unknown":{}})"));
    EXPECT_EQ(empty.get<ViewerUpdateManifest>().sha256, std::nullopt);
    EXPECT_EQ(empty.get<ViewerUpdateManifest>().sizeBytes, std::nullopt);
}

TEST_F(OrvDeskApiRequestsTest, remoteStatusLeavesOutAMissingErrorMessage) {
    loop.run(client().updateRemoteStatus("s-1", "connecting", std::nullopt, Json{{"a", 1}}));
    loop.run(client().updateRemoteStatus("s-1", "failed", "Źle", Json::object()));
    EXPECT_EQ(http.requests.at(0).url, "https://desk.example/api/agent/remote/sessions/s-1/status");
    EXPECT_EQ(http.body(0), R"({"metadata":{"a":1},"status":"connecting"})");
    EXPECT_EQ(http.body(1), R"({"error_message":"Źle","metadata":{},"status":"failed"})");
}

TEST_F(OrvDeskApiRequestsTest, aSessionIdGoesIntoThePathAsItIs) {
    loop.run(client().updateRemoteStatus("a%20b/c", "x", std::nullopt, Json::object()));
    EXPECT_EQ(http.requests.at(0).url,
              "https://desk.example/api/agent/remote/sessions/a%20b/c/status");
    EXPECT_THROW(loop.run(client().updateRemoteStatus("a b", "x", std::nullopt, Json::object())),
                 ViewerError);
}

}  // namespace
}  // namespace orv
