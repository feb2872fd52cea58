#include <cerrno>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/Url.h"
#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/SanitizeJson.h"
#include "OrvViewerShared/ViewerError.h"
#include "Support/FakeClock.h"
#include "Support/FakeHttpClient.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* busyText =
    "Serwer jest chwilowo niedostępny lub trwa jego aktualizacja. Spróbuj ponownie za kilka "
    "sekund.";
constexpr const char* offlineText =
    "Nie udało się połączyć z serwerem. Sprawdź połączenie z Internetem i spróbuj ponownie.";

class MemoryTokenStore final : public DeviceTokenStoring {
public:
    std::optional<std::string> load() const override { return token; }
    void save(const std::string& value) override {
        if (!canSave) throw FileError(ENOSPC, "/state");
        token = value;
    }
    void clear() override { token.reset(); }

    std::optional<std::string> token;
    bool canSave = true;
};

class OrvDeskApiClientTest : public testing::Test {
protected:
    OrvDeskApiClientTest() {
        settings.serverBaseUrl = "https://desk.example";
        settings.viewerToken = "viewer";
    }

    OrvDeskApiClient client() { return OrvDeskApiClient({settings, http, tokens, clock}); }

    void heartbeat() { loop.run(client().sendHeartbeat(Json::object())); }

    ViewerError errorOfHeartbeat() {
        try {
            heartbeat();
        } catch (const ViewerError& error) {
            return error;
        }
        throw std::logic_error("The heartbeat succeeded.");
    }

    ViewerSettings settings;
    FakeHttpClient http;
    MemoryTokenStore tokens;
    FakeClock clock;
    TestLoop loop{clock};
    const std::string heartbeatUrl = "https://desk.example/api/agent/devices/heartbeat";
};

TEST_F(OrvDeskApiClientTest, sendsJsonWithItsHeaders) {
    loop.run(client().sendHeartbeat(Json{{"b", 1}, {"a", nullptr}}));
    ASSERT_THAT(http.requests, SizeIs(1));
    const HttpRequest& request = http.requests[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, heartbeatUrl);
    EXPECT_EQ(headerOf(request, "Accept"), "application/json");
    EXPECT_EQ(headerOf(request, "Content-Type"), "application/json");
    EXPECT_EQ(headerOf(request, "Authorization"), "Bearer viewer");
    EXPECT_EQ(headerOf(request, "X-Customer-Session"), "");
    EXPECT_EQ(http.body(0), R"({"a":null,"b":1})");
}

TEST_F(OrvDeskApiClientTest, blanksAndSlashesAroundTheBaseUrlDoNotMatter) {
    settings.serverBaseUrl = " https://desk.example/base/// \n";
    heartbeat();
    EXPECT_EQ(http.requests.at(0).url, "https://desk.example/base/api/agent/devices/heartbeat");
}

TEST_F(OrvDeskApiClientTest, aBaseUrlThatIsNoneSendsNothing) {
    settings.serverBaseUrl = "https://desk example";
    const ViewerError error = errorOfHeartbeat();
    EXPECT_EQ(error, ViewerError::configuration("Invalid URL for /api/agent/devices/heartbeat."));
    EXPECT_THAT(http.requests, IsEmpty());

    try {
        loop.run(client().pendingCommands("uid", "shell"));
        FAIL();
    } catch (const ViewerError& failure) {
        EXPECT_STREQ(failure.what(),
                     "Invalid URL for /api/agent/devices/uid/commands/pending?command_type=shell.");
    }
    try {
        loop.run(client().sendInventory(Json::object()));
        FAIL();
    } catch (const ViewerError& failure) {
        EXPECT_STREQ(failure.what(), "Invalid URL for /api/agent/devices/register.");
    }
}

TEST_F(OrvDeskApiClientTest, theDeviceTokenComesFirst) {
    tokens.token = "dev";
    heartbeat();
    EXPECT_THAT(http.lines(), ElementsAre("POST " + heartbeatUrl + " Device dev"));
    EXPECT_EQ(client().authorization(), "Device dev");
}

TEST_F(OrvDeskApiClientTest, theViewerTokenIsTrimmedAndMayBeNone) {
    settings.viewerToken = " viewer \n";
    heartbeat();
    settings.viewerToken = "   ";
    heartbeat();
    EXPECT_THAT(http.lines(),
                ElementsAre("POST " + heartbeatUrl + " Bearer viewer", "POST " + heartbeatUrl));
    EXPECT_EQ(client().authorization(), std::nullopt);
}

TEST_F(OrvDeskApiClientTest, aWebSocketRequestCarriesTheSameAuthorizationOrNone) {
    const auto request = [&] { return client().authenticatedWebSocketRequest("wss://desk/x"); };
    settings.viewerToken = " viewer \n";
    EXPECT_EQ(request().url, "wss://desk/x");
    EXPECT_THAT(request().headers, ElementsAre(HttpHeader{"Authorization", "Bearer viewer"}));
    tokens.token = "dev";
    EXPECT_THAT(request().headers, ElementsAre(HttpHeader{"Authorization", "Device dev"}));
    tokens.token.reset();
    settings.viewerToken = "  ";
    EXPECT_THAT(request().headers, IsEmpty());
}

TEST_F(OrvDeskApiClientTest, aTokenThatCannotBeSavedFailsTheRegistration) {
    tokens.canSave = false;
    http.thenAnswer(200, R"({"device_uid":"mac-1","device_token":"new"})");
    EXPECT_THROW(loop.run(client().sendInventory(Json::object())), FileError);
}

TEST_F(OrvDeskApiClientTest, aRequestCancelledInItsPauseIsNotRepeated) {
    http.thenAnswer(503);
    OrvDeskApiClient sender = client();
    BackgroundTask task(loop, sender.sendHeartbeat(Json::object()));
    loop.runReady();
    task.cancel();
    loop.runReady();
    ASSERT_TRUE(task.isDone);
    try {
        std::rethrow_exception(task.error);
    } catch (const std::exception& error) {
        EXPECT_TRUE(isCancellation(error));
    }
    EXPECT_THAT(http.requests, SizeIs(1));
}

TEST_F(OrvDeskApiClientTest, anErrorThatIsNotTheNetworksIsPassedOnAtOnce) {
    http.fallback = [](const HttpRequest&) -> FakeHttpClient::Answer {
        throw std::runtime_error("no descriptors left");
    };
    try {
        heartbeat();
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no descriptors left");
    }
    EXPECT_THAT(http.requests, SizeIs(1));
}

TEST_F(OrvDeskApiClientTest, aRejectedDeviceTokenIsDroppedAndTheRequestRepeated) {
    tokens.token = "dev";
    http.thenAnswer(401, R"({"detail":"Invalid device token"})").thenAnswer(200);
    heartbeat();
    EXPECT_THAT(http.lines(), ElementsAre("POST " + heartbeatUrl + " Device dev",
                                          "POST " + heartbeatUrl + " Bearer viewer"));
    EXPECT_EQ(tokens.token, std::nullopt);
    EXPECT_THAT(clock.sleeps, IsEmpty());
}

TEST_F(OrvDeskApiClientTest, withoutAViewerTokenTheRepeatGoesOutBare) {
    settings.viewerToken = " ";
    tokens.token = "dev";
    http.thenAnswer(401, "invalid device token").thenAnswer(401, "missing viewer token");
    const ViewerError error = errorOfHeartbeat();
    EXPECT_EQ(error, ViewerError::http(401, "missing viewer token"));
    EXPECT_THAT(http.lines(),
                ElementsAre("POST " + heartbeatUrl + " Device dev", "POST " + heartbeatUrl));
}

TEST_F(OrvDeskApiClientTest, otherRefusalsKeepTheDeviceToken) {
    tokens.token = "dev";
    for (const auto& [status, body] : std::vector<std::pair<int, std::string>>{
             {401, "invalid viewer token"}, {401, ""}, {403, "invalid device token"}}) {
        http.thenAnswer(status, body);
        EXPECT_EQ(errorOfHeartbeat(), ViewerError::http(status, body));
        EXPECT_EQ(tokens.token, "dev");
    }
    EXPECT_THAT(http.requests, SizeIs(3));
}

TEST_F(OrvDeskApiClientTest, aViewerTokenCalledADeviceTokenIsNotRetried) {
    http.thenAnswer(401, "invalid device token");
    EXPECT_EQ(errorOfHeartbeat(), ViewerError::http(401, "invalid device token"));
    EXPECT_THAT(http.requests, SizeIs(1));
}

TEST_F(OrvDeskApiClientTest, aBusyServerIsAskedOnceMoreAfterAPause) {
    for (const int status : {500, 502, 503, 504}) {
        http.requests.clear();
        clock.sleeps.clear();
        http.thenAnswer(status).thenAnswer(204, "");
        EXPECT_NO_THROW(heartbeat()) << status;
        EXPECT_THAT(http.requests, SizeIs(2));
        EXPECT_THAT(clock.sleeps, ElementsAre(750ms));

        http.thenAnswer(status).thenAnswer(status);
        EXPECT_EQ(errorOfHeartbeat(), ViewerError::temporarilyUnavailable(busyText)) << status;
    }
}

TEST_F(OrvDeskApiClientTest, theSecondAnswersBodyIsReturned) {
    http.thenAnswer(503, "busy").thenAnswer(200, R"({"support_id":"7"})");
    const auto response = loop.run(client().sendInventory(Json::object()));
    EXPECT_EQ(response.supportId, "7");
}

TEST_F(OrvDeskApiClientTest, otherStatusesFailAtOnce) {
    for (const int status : {199, 300, 304, 400, 404, 409, 422, 429, 501, 505, 599}) {
        http.requests.clear();
        http.thenAnswer(status, "text");
        EXPECT_EQ(errorOfHeartbeat(), ViewerError::http(status, "text"));
        EXPECT_THAT(http.requests, SizeIs(1)) << status;
    }
    http.thenAnswer(299);
    EXPECT_NO_THROW(heartbeat());
}

TEST_F(OrvDeskApiClientTest, anErrorBodyThatIsNoUtf8IsDropped) {
    http.thenAnswer(404, "\xff\xfe");
    EXPECT_EQ(errorOfHeartbeat(), ViewerError::http(404, ""));
}

TEST_F(OrvDeskApiClientTest, aPassingNetworkProblemIsTriedOnceMore) {
    for (const auto code :
         {UrlErrorCode::timedOut, UrlErrorCode::cannotFindHost, UrlErrorCode::cannotConnectToHost,
          UrlErrorCode::networkConnectionLost, UrlErrorCode::dnsLookupFailed,
          UrlErrorCode::notConnectedToInternet, UrlErrorCode::resourceUnavailable}) {
        http.requests.clear();
        clock.sleeps.clear();
        http.thenFail(code).thenAnswer(200);
        EXPECT_NO_THROW(heartbeat()) << urlErrorCodeName(code);
        EXPECT_THAT(http.requests, SizeIs(2));
        EXPECT_THAT(clock.sleeps, ElementsAre(750ms));
        http.thenFail(code).thenFail(code);
        EXPECT_EQ(errorOfHeartbeat(), ViewerError::temporarilyUnavailable(offlineText));
    }
}

TEST_F(OrvDeskApiClientTest, otherNetworkErrorsArePassedOnAtOnce) {
    for (const auto code :
         {UrlErrorCode::badUrl, UrlErrorCode::cancelled, UrlErrorCode::secureConnectionFailed,
          UrlErrorCode::serverCertificateUntrusted, UrlErrorCode::unknown,
          UrlErrorCode::dataLengthExceedsMaximum, UrlErrorCode::redirectToNonSecureUrl}) {
        http.requests.clear();
        http.thenFail(code);
        try {
            heartbeat();
            FAIL() << urlErrorCodeName(code);
        } catch (const UrlError& error) {
            EXPECT_EQ(error.code(), code);
        }
        EXPECT_THAT(http.requests, SizeIs(1));
    }
    EXPECT_THAT(clock.sleeps, IsEmpty());
}

TEST_F(OrvDeskApiClientTest, mixedTroubleIsJudgedByTheLastAttempt) {
    http.thenFail(UrlErrorCode::timedOut).thenAnswer(503);
    EXPECT_EQ(errorOfHeartbeat(), ViewerError::temporarilyUnavailable(busyText));
    http.thenAnswer(503).thenFail(UrlErrorCode::timedOut);
    EXPECT_EQ(errorOfHeartbeat(), ViewerError::temporarilyUnavailable(offlineText));
    http.thenAnswer(503).thenAnswer(404, "x");
    EXPECT_EQ(errorOfHeartbeat(), ViewerError::http(404, "x"));
}

TEST_F(OrvDeskApiClientTest, aCustomerSessionGoesIntoItsHeaderUnlessEmpty) {
    const std::string url = "https://desk.example/x";
    loop.run(client().performRequest("GET", url, nullptr, "session-1", std::nullopt));
    loop.run(client().performRequest("GET", url, nullptr, "", std::nullopt));
    EXPECT_EQ(headerOf(http.requests.at(0), "X-Customer-Session"), "session-1");
    EXPECT_EQ(headerOf(http.requests.at(0), "Authorization"), "");
    EXPECT_EQ(headerOf(http.requests.at(0), "Content-Type"), "");
    EXPECT_EQ(headerOf(http.requests.at(1), "X-Customer-Session"), "");
}

TEST_F(OrvDeskApiClientTest, recoveryDropsOnlyATokenThatIsThereAndCalledInvalid) {
    OrvDeskApiClient api = client();
    const ViewerError rejected = ViewerError::http(401, "Invalid device token");
    EXPECT_FALSE(api.recoverInvalidDeviceToken(rejected));
    tokens.token = "dev";
    EXPECT_FALSE(api.recoverInvalidDeviceToken(ViewerError::http(401, "")));
    EXPECT_FALSE(api.recoverInvalidDeviceToken(UrlError(UrlErrorCode::timedOut, "x")));
    EXPECT_EQ(tokens.token, "dev");
    EXPECT_TRUE(api.recoverInvalidDeviceToken(rejected));
    EXPECT_EQ(tokens.token, std::nullopt);
}

TEST_F(OrvDeskApiClientTest, registrationStoresTheDeviceTokenAtOnce) {
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

TEST_F(OrvDeskApiClientTest, anEmptyRegistrationAnswerStoresNothing) {
    http.thenAnswer(200, R"({"device_token":null})").thenAnswer(200, "{}");
    loop.run(client().sendInventory(Json::object()));
    const auto response = loop.run(client().sendInventory(Json::object()));
    EXPECT_EQ(response.deviceUid, std::nullopt);
    EXPECT_EQ(response.publicId, std::nullopt);
    EXPECT_EQ(tokens.token, std::nullopt);
}

TEST_F(OrvDeskApiClientTest, aRegistrationAnswerOfTheWrongShapeIsADecodingError) {
    for (const char* body : {"", "[]", "ok", R"({"device_uid":5})"}) {
        http.thenAnswer(200, body);
        EXPECT_THROW(loop.run(client().sendInventory(Json::object())), DecodingError) << body;
    }
}

TEST_F(OrvDeskApiClientTest, nestingBeyond512LevelsIsADecodingError) {
    http.thenAnswer(200, std::string(10'000, '[') + std::string(10'000, ']'));
    EXPECT_THROW(loop.run(client().pendingCommands("u", std::nullopt)), DecodingError);
    http.thenAnswer(200, std::string(512, '[') + std::string(512, ']'));
    EXPECT_THAT(loop.run(client().pendingCommands("u", std::nullopt)), IsEmpty());
}

TEST_F(OrvDeskApiClientTest, pendingCommandsKeepTheOrderAndSkipWhatIsNone) {
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

TEST_F(OrvDeskApiClientTest, anAnswerThatIsNoListOfObjectsHasNoCommands) {
    for (const char* body : {R"({"id":1})", "5", "null", R"([{"id":1},2])", "[]"}) {
        http.thenAnswer(200, body);
        EXPECT_THAT(loop.run(client().pendingCommands("u", std::nullopt)), IsEmpty()) << body;
    }
    http.thenAnswer(200, "<html>");
    EXPECT_THROW(loop.run(client().pendingCommands("u", std::nullopt)), DecodingError);
}

TEST_F(OrvDeskApiClientTest, pathAndQueryPiecesAreEncoded) {
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

TEST_F(OrvDeskApiClientTest, commandStatusCarriesItsResult) {
    loop.run(client().updateCommand(-12, "completed", Json{{"exit_code", 0}}));
    EXPECT_THAT(http.lines(), ElementsAre("POST https://desk.example/api/agent/device-commands/"
                                          "-12/status Bearer viewer"));
    EXPECT_EQ(http.body(0), R"({"result":{"exit_code":0},"status":"completed"})");

    loop.run(client().updateCommand(1, "completed", SerializedJson{R"({"a":"b"})"}));
    EXPECT_EQ(http.body(1), R"({"result":{"a":"b"},"status":"completed"})");
    EXPECT_EQ(headerOf(http.requests.at(1), "Content-Type"), "application/json");
}

TEST_F(OrvDeskApiClientTest, theManifestQueryHasAFixedOrder) {
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

TEST_F(OrvDeskApiClientTest, everyRequiredManifestKeyIsMissed) {
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

TEST_F(OrvDeskApiClientTest, anOptionalManifestKeyIsOfItsTypeOrAbsent) {
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

TEST_F(OrvDeskApiClientTest, remoteStatusLeavesOutAMissingErrorMessage) {
    loop.run(client().updateRemoteStatus("s-1", "connecting", std::nullopt, Json{{"a", 1}}));
    loop.run(client().updateRemoteStatus("s-1", "failed", "Źle", Json::object()));
    EXPECT_EQ(http.requests.at(0).url, "https://desk.example/api/agent/remote/sessions/s-1/status");
    EXPECT_EQ(http.body(0), R"({"metadata":{"a":1},"status":"connecting"})");
    EXPECT_EQ(http.body(1), R"({"error_message":"Źle","metadata":{},"status":"failed"})");
}

TEST_F(OrvDeskApiClientTest, aSessionIdGoesIntoThePathAsItIs) {
    loop.run(client().updateRemoteStatus("a%20b/c", "x", std::nullopt, Json::object()));
    EXPECT_EQ(http.requests.at(0).url,
              "https://desk.example/api/agent/remote/sessions/a%20b/c/status");
    EXPECT_THROW(loop.run(client().updateRemoteStatus("a b", "x", std::nullopt, Json::object())),
                 ViewerError);
}

TEST(SanitizeJsonTest, spellsDatesUrlsAndAbsence) {
    FakeClock clock;
    EXPECT_EQ(sanitizeJson(clock.now()), Json("2026-03-01T09:15:02Z"));
    EXPECT_EQ(sanitizeJson(*parseUrl("https://desk.example/a?b=c")),
              Json("https://desk.example/a?b=c"));
    EXPECT_EQ(sanitizeJson(std::optional<std::string>()), Json(nullptr));
    EXPECT_EQ(sanitizeJson(std::optional<WallTime>(clock.now())), Json("2026-03-01T09:15:02Z"));
    EXPECT_EQ(sanitizeJson(std::optional<std::string>("x")), Json("x"));
    EXPECT_EQ(sanitizeJson(Json{{"a", {1, true, nullptr}}}), (Json{{"a", {1, true, nullptr}}}));
}

}  // namespace
}  // namespace orv
