#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/CompanionFixture.h"
#include "WsparoCompanion/ChatInbox.h"

namespace orv::companion {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class ChatInboxTest : public CompanionFixture {
protected:
    void arrive(const std::string& conversation, const std::string& text) {
        store.saveIncoming(conversation, "Jan", text);
        clock.setWallTime(clock.now() + 1s);
    }
    std::vector<std::string> newTexts() {
        std::vector<std::string> texts;
        for (const RemoteChatMessage& message : inbox.takeNew())
            texts.push_back(message.text);
        return texts;
    }
    std::string placeOfOnlyFile() const { return root.locate(store.incomingMessageFiles().at(0)); }

    RemoteChatStore store{root, clock, logger};
    ChatInbox inbox{store};
};

TEST_F(ChatInboxTest, takesEachMessageOnceFromTheOldestOn) {
    arrive("z", "1");
    arrive("a", "2");
    arrive("z", "3");
    EXPECT_THAT(newTexts(), ElementsAre("1", "2", "3"));
    EXPECT_THAT(newTexts(), IsEmpty());
    arrive("a", "4");
    EXPECT_THAT(newTexts(), ElementsAre("4"));
}

TEST_F(ChatInboxTest, skipsWhatIsThere) {
    arrive("a", "1");
    inbox.skipAll();
    arrive("a", "2");
    EXPECT_THAT(newTexts(), ElementsAre("2"));
}

TEST_F(ChatInboxTest, looksAgainAtWhatCannotBeReadYet) {
    arrive("a", "1");
    const std::string whole = readFile(placeOfOnlyFile(), 1000);
    writeFileAtomically(placeOfOnlyFile(), whole.substr(0, 20));
    EXPECT_THAT(newTexts(), IsEmpty());
    writeFileAtomically(placeOfOnlyFile(), whole);
    EXPECT_THAT(newTexts(), ElementsAre("1"));
}

TEST_F(ChatInboxTest, leavesMessagesToOthersAlone) {
    store.saveOutgoing("a", "mine", "Anna");
    EXPECT_THAT(newTexts(), IsEmpty());
}

TEST(ChatOrderTest, readsTheTimeFromTheNameWhateverTheConversationIsCalled) {
    EXPECT_EQ(writtenAt("/x/r.1772356502000.ID.incoming.json"), 1772356502000);
    EXPECT_EQ(writtenAt("/x/r.1.2.3.7.ID.incoming.json"), 7);
    EXPECT_EQ(writtenAt("/x/.5.ID.outgoing.json"), 5);
    EXPECT_EQ(writtenAt("/x/r.12x.ID.incoming.json"), 0);
    EXPECT_EQ(writtenAt("/x/.incoming.json"), 0);
    EXPECT_EQ(writtenAt(""), 0);
}

TEST(ChatOrderTest, goesByTimeAcrossConversations) {
    EXPECT_THAT(byTime({"/x/a.20.I.incoming.json", "/x/b.10.I.outgoing.json"}),
                ElementsAre("/x/b.10.I.outgoing.json", "/x/a.20.I.incoming.json"));
}

}  // namespace
}  // namespace orv::companion
