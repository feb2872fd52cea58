#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Commands/NotifyCommand.h"
#include "Support/AgentFixture.h"

namespace orv {
namespace {

using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

class NotifyCommandTest : public AgentFixture {
protected:
    Json notify(const char* payload) {
        NotifyCommand command({store, registration(), workers, clock, logger});
        return loop.run(command.handleUserNotification(Json::parse(payload)));
    }
    RemoteChatMessage queued() const {
        const std::vector<std::string> files = store.incomingMessageFiles();
        EXPECT_THAT(files, SizeIs(1));
        return files.empty() ? RemoteChatMessage{} : store.read(files[0]).value();
    }

    RemoteChatStore store{root, clock, logger};
    WorkerPool workers;
};

TEST_F(NotifyCommandTest, leavesTheMessageForTheCompanion) {
    EXPECT_EQ(notify(R"({"title":"Przerwa","message":" Zapisz pracę\n","sender":"Jan Kos",
                         "public_id":"conv/1","chat_message_id":81})"),
              Json::parse(R"({"shown":true,"title":"Przerwa","message":" Zapisz pracę\n",
                              "sender":"Jan Kos","public_id":"conv/1","chat_message_id":81})"));
    const RemoteChatMessage message = queued();
    EXPECT_THAT(message.id, MatchesRegex("[0-9A-F]{32}"));
    EXPECT_EQ(message, (RemoteChatMessage{message.id, "conv/1", "incoming", "Jan Kos",
                                          " Zapisz pracę\n", clock.now()}));
    EXPECT_THAT(store.incomingMessageFiles().at(0),
                EndsWith("/conv_1.1772356502000." + message.id + ".incoming.json"));
    EXPECT_EQ(log(),
              "2026-03-01T09:15:02Z [INFO] User notification queued for menu bar. "
              "title=Przerwa public_id=conv/1\n");
}

TEST_F(NotifyCommandTest, whatIsMissingHasADefault) {
    EXPECT_EQ(notify(R"({"message":"x"})"),
              Json::parse(R"({"shown":true,"title":"Orv-Desk","message":"x","sender":"Konsultant",
                              "public_id":"device-mac"})"));
    EXPECT_EQ(queued().sender, "Konsultant");
    EXPECT_EQ(queued().publicId, "device-mac");
}

TEST_F(NotifyCommandTest, theDefaultConversationIsTheDevices) {
    ViewerState state;
    state.deviceUid = "u1";
    stateFile.save(state);
    EXPECT_EQ(notify(R"({"message":"x"})").at("public_id"), "device-u1");
    EXPECT_EQ(queued().publicId, "device-u1");
}

TEST_F(NotifyCommandTest, aValueOfAnotherTypeCountsAsAbsent) {
    EXPECT_EQ(notify(R"({"message":"x","title":5,"sender":null,"public_id":["p"],
                         "chat_message_id":"81"})"),
              notify(R"({"message":"x"})"));
    EXPECT_EQ(notify(R"({"message":7})").at("message"), "");
}

TEST_F(NotifyCommandTest, onlyAnIntegerIsHandedBack) {
    for (const char* payload :
         {R"({"chat_message_id":1.5})", R"({"chat_message_id":1.0})", R"({"chat_message_id":true})",
          R"({"chat_message_id":null})", R"({})"}) {
        EXPECT_FALSE(notify(payload).contains("chat_message_id")) << payload;
    }
    EXPECT_EQ(notify(R"({"chat_message_id":-9223372036854775808})").at("chat_message_id"),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(notify(R"({"chat_message_id":0})").at("chat_message_id"), 0);
}

TEST_F(NotifyCommandTest, theSenderIsTrimmedInTheMessage) {
    notify(R"({"message":"x","sender":" Jan \n"})");
    EXPECT_EQ(queued().sender, "Jan");
}

TEST_F(NotifyCommandTest, aBlankSenderIsAConsultant) {
    notify(R"({"message":"x","sender":" \n"})");
    EXPECT_EQ(queued().sender, "Konsultant");
}

TEST_F(NotifyCommandTest, aBlankMessageIsAnsweredButNotQueued) {
    for (const char* payload : {R"({})", R"({"message":""})", R"({"message":" \n\t\u00a0"})"}) {
        EXPECT_EQ(notify(payload).at("shown"), true);
    }
    EXPECT_FALSE(fileExists(root.locate(RemoteChatStore::directory)));
    EXPECT_THAT(log(), EndsWith("queued for menu bar. title=Orv-Desk public_id=device-mac\n"));
}

TEST_F(NotifyCommandTest, aMessageThatCannotBeLeftFailsTheCommand) {
    std::filesystem::create_directories(root.locate("/Users/Shared"));
    std::ofstream(root.locate("/Users/Shared/Wsparo Brenvox")) << "in the way";
    EXPECT_THROW(notify(R"({"message":"x"})"), FileError);
    EXPECT_EQ(log(), "");
}

}  // namespace
}  // namespace orv
