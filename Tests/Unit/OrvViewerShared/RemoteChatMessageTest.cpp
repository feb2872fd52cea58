#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/Iso8601.h"
#include "OrvViewerShared/RemoteChatMessage.h"
#include "Support/ErrorText.h"

namespace orv {
namespace {

RemoteChatMessage message() {
    return {"7C1D",
            "dev/1",
            "outgoing",
            "Anna",
            "Zażółć \"gęślą\"\n",
            *parseIso8601("2026-03-01T09:15:02Z")};
}

constexpr const char* messageText = R"({
  "createdAt": "2026-03-01T09:15:02Z",
  "direction": "outgoing",
  "id": "7C1D",
  "publicId": "dev/1",
  "sender": "Anna",
  "text": "Zażółć \"gęślą\"\n"
}
)";

TEST(RemoteChatMessageTest, isWrittenWithItsSixKeysSorted) {
    EXPECT_EQ(prettyJson(message()), messageText);
}

TEST(RemoteChatMessageTest, isReadBack) {
    EXPECT_EQ(parseJson(messageText).get<RemoteChatMessage>(), message());
}

TEST(RemoteChatMessageTest, unknownKeysAreIgnored) {
    Json json = message();
    json["more"] = 1;
    EXPECT_EQ(json.get<RemoteChatMessage>(), message());
}

TEST(RemoteChatMessageTest, everyKeyIsRequiredAndMustBeAText) {
    for (const char* key : {"createdAt", "direction", "id", "publicId", "sender", "text"}) {
        Json json = message();
        json[key] = 7;
        EXPECT_EQ(decodingErrorOf<RemoteChatMessage>(json),
                  "The value of \"" + std::string(key) + "\" is not a text.");
        json[key] = nullptr;
        EXPECT_EQ(decodingErrorOf<RemoteChatMessage>(json),
                  "The value of \"" + std::string(key) + "\" is not a text.");
        json.erase(key);
        EXPECT_EQ(decodingErrorOf<RemoteChatMessage>(json),
                  "The key \"" + std::string(key) + "\" is missing.");
    }
    EXPECT_EQ(decodingErrorOf<RemoteChatMessage>(Json::array()), "A JSON object was expected.");
}

TEST(RemoteChatMessageTest, theDateMustBeOne) {
    Json json = message();
    for (const char* date : {"", "yesterday", "2026-02-30T00:00:00Z", "2026-03-01T09:15:02.5Z"}) {
        json["createdAt"] = date;
        EXPECT_EQ(decodingErrorOf<RemoteChatMessage>(json),
                  "The value of \"createdAt\" is not a date.");
    }
}

}  // namespace
}  // namespace orv
