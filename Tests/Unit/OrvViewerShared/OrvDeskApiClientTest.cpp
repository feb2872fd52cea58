#include <chrono>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/UrlError.h"
#include "Support/ApiClientFixture.h"

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

/// How requests are sent: with which authorization, and what is tried again.
class OrvDeskApiClientTest : public ApiClientFixture {};

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
    EXPECT_TRUE(task.wasCancelled());
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
          UrlErrorCode::cannotParseResponse, UrlErrorCode::dataLengthExceedsMaximum,
          UrlErrorCode::redirectToNonSecureUrl}) {
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

TEST_F(OrvDeskApiClientTest, anAnswerThatIsNotHttpIsNoAnswer) {
    const auto missing = ViewerError::invalidResponse("Missing HTTP response.");
    http.thenFail(UrlErrorCode::badServerResponse);
    EXPECT_EQ(errorOfHeartbeat(), missing);
    EXPECT_THAT(http.requests, SizeIs(1));
    EXPECT_THAT(clock.sleeps, IsEmpty());
    http.thenAnswer(503).thenFail(UrlErrorCode::badServerResponse);
    EXPECT_EQ(errorOfHeartbeat(), missing);
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

}  // namespace
}  // namespace orv
