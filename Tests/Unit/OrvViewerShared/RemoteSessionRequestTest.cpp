#include <gtest/gtest.h>

#include "OrvViewerShared/RemoteSessionRequest.h"

namespace orv {
namespace {

std::optional<RemoteSessionRequest> parsed(const char* text) {
    return RemoteSessionRequest::parse(Json::parse(text));
}

TEST(RemoteSessionRequestTest, readsWhatTheHelpdeskSends) {
    const auto request = parsed(R"({"type": "remote_session.requested", "unknown": 1, "session": {
        "public_id": "rs-1", "status": "requested", "metadata": {"by": "Ola"},
        "control_urls": {"signaling": "wss://s.example/x?t=1", "relay_url": "wss://r.example/"}}})");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->sessionPublicId, "rs-1");
    EXPECT_EQ(request->status, "requested");
    EXPECT_EQ(request->signalingUrl, "wss://s.example/x?t=1");
    EXPECT_EQ(request->relayUrl, "wss://r.example/");
    EXPECT_EQ(request->metadata, Json::parse(R"({"by": "Ola"})"));
}

TEST(RemoteSessionRequestTest, understandsTheOtherSpelling) {
    const auto request = parsed(R"({"type": "remote_session.requested", "session": {
        "public_id": 5, "publicId": "rs-2", "control_urls": null,
        "controlUrls": {"signaling": "wss://s.example"}}})");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->sessionPublicId, "rs-2");
    EXPECT_EQ(request->signalingUrl, "wss://s.example");
}

TEST(RemoteSessionRequestTest, prefersTheSnakeCaseSpelling) {
    const auto request = parsed(R"({"type": "remote_session.requested", "session": {
        "publicId": "other", "public_id": "rs-3", "controlUrls": {"signaling": "wss://other"},
        "control_urls": {}}})");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->sessionPublicId, "rs-3");
    EXPECT_EQ(request->signalingUrl, std::nullopt);
}

TEST(RemoteSessionRequestTest, needsNothingButTheSessionsId) {
    const auto request =
        parsed(R"({"type": "remote_session.requested", "session": {"public_id": "rs-4"}})");
    ASSERT_TRUE(request);
    EXPECT_EQ(*request,
              (RemoteSessionRequest{"rs-4", "", std::nullopt, std::nullopt, std::nullopt}));
}

TEST(RemoteSessionRequestTest, takesWhatIsOfAnotherShapeAsAbsent) {
    const auto request = parsed(R"({"type": "remote_session.requested", "session": {
        "public_id": "rs-5", "status": 1, "metadata": [1],
        "control_urls": {"signaling": "not a url", "relay_url": 7}}})");
    ASSERT_TRUE(request);
    EXPECT_EQ(*request,
              (RemoteSessionRequest{"rs-5", "", std::nullopt, std::nullopt, std::nullopt}));
}

TEST(RemoteSessionRequestTest, isNoneWithoutTypeSessionOrId) {
    for (const char* text : {
             R"({"type": "remote_session.requested"})",
             R"({"type": "remote_session.requested", "session": "rs"})",
             R"({"type": "remote_session.requested", "session": ["public_id"]})",
             R"({"type": "remote_session.requested", "session": {}})",
             R"({"type": "remote_session.requested", "session": {"public_id": null}})",
             R"({"type": "remote_session.ended", "session": {"public_id": "rs"}})",
             R"({"session": {"public_id": "rs"}})",
             R"({"type": 1, "session": {"public_id": "rs"}})",
             "{}",
         }) {
        EXPECT_EQ(parsed(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace orv
