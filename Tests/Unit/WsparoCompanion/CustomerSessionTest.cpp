#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Support/CompanionFixture.h"
#include "WsparoCompanion/CustomerSession.h"

namespace orv::companion {
namespace {

const CustomerSession anna{
    "https://desk.example",
    {"token", "2026-04-01T00:00:00Z", {"anna@firma.pl", "Anna Żak", std::nullopt, "Firma", true}},
    42};

using CustomerSessionTest = CompanionFixture;

TEST_F(CustomerSessionTest, isKeptInTheHomeFolderForItsOwnerAlone) {
    const CustomerSessionFile file(surroundings);
    file.write(anna);
    EXPECT_EQ(file.location(), folder.path("Users/anna/Library/Application Support/Wsparo "
                                           "Brenvox/session.json"));
    struct stat status{};
    ASSERT_EQ(::stat(file.location().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(file.read().record, anna);
}

TEST_F(CustomerSessionTest, isGoneAfterLoggingOut) {
    const CustomerSessionFile file(surroundings);
    EXPECT_EQ(file.read().condition, FileCondition::missing);
    file.write(anna);
    EXPECT_TRUE(file.remove());
    EXPECT_EQ(file.read().condition, FileCondition::missing);
    EXPECT_TRUE(file.remove());
}

TEST_F(CustomerSessionTest, isBrokenWhenAnythingOfItIsWrong) {
    const CustomerSessionFile file(surroundings);
    for (const char* text : {"", "[]", "{}", R"({"serverBaseUrl": "x", "cursor": 1})",
                             R"({"serverBaseUrl": "x", "cursor": 1, "session": []})",
                             R"({"serverBaseUrl": "x", "cursor": "1", "session": {}})"}) {
        createDirectories(parentPath(file.location()));
        writeFileAtomically(file.location(), text);
        EXPECT_EQ(file.read().condition, FileCondition::broken) << text;
    }
}

TEST_F(CustomerSessionTest, needsAHomeFolder) {
    surroundings.home.reset();
    EXPECT_EQ(failureOf([this] { const CustomerSessionFile file(surroundings); }),
              "Nie wiadomo, gdzie jest folder domowy (HOME).");
}

}  // namespace
}  // namespace orv::companion
