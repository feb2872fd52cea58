#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvViewerShared/RemoteChatStore.h"
#include "Support/FakeClock.h"
#include "Support/FileFacts.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

constexpr const char* uuidPattern = "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}";

class RemoteChatStoreTest : public testing::Test {
protected:
    std::string place(const std::string& name = "") const {
        return folder.path("Users/Shared/Wsparo Brenvox/remote-chat/" + name);
    }
    static std::string path(const std::string& name) {
        return std::string(RemoteChatStore::directory) + "/" + name;
    }

    /// A file as the companion application, or anybody else, leaves it.
    std::string plant(const std::string& name, const std::string& content) {
        std::filesystem::create_directories(place());
        std::ofstream(place(name)) << content;
        return path(name);
    }
    std::string plantMessage(const std::string& name) {
        return plant(name, prettyJson(RemoteChatMessage{"id", "p", "outgoing", "s", name, {}}));
    }

    std::string log() const {
        return fileExists(logger.logFile()) ? readFile(logger.logFile(), 10'000'000) : "";
    }

    std::vector<std::string> names() const { return namesIn(place()); }

    TemporaryDirectory folder;
    FakeClock clock;
    ViewerLogger logger{SystemRoot(folder.path()), clock};
    RemoteChatStore store{SystemRoot(folder.path()), clock, logger};
};

TEST_F(RemoteChatStoreTest, anOutgoingMessageIsOneFile) {
    clock.setWallTime(clock.now() + 7ms);
    store.saveOutgoing("dev", "Dzień dobry", "Anna");

    const std::vector<std::string> files = store.outgoingMessageFiles();
    ASSERT_THAT(files, SizeIs(1));
    EXPECT_THAT(files[0],
                MatchesRegex(path("dev\\.1772356502007\\.") + uuidPattern + "\\.outgoing\\.json"));
    const auto message = store.read(files[0]);
    ASSERT_TRUE(message);
    EXPECT_THAT(message->id, MatchesRegex(uuidPattern));
    EXPECT_THAT(files[0], HasSubstr(message->id));
    EXPECT_EQ(*message, (RemoteChatMessage{message->id, "dev", "outgoing", "Anna", "Dzień dobry",
                                           clock.now() - 7ms}));
    EXPECT_THAT(names(), SizeIs(1));
    EXPECT_EQ(log(), "");
}

TEST_F(RemoteChatStoreTest, anIncomingMessageIsNotInTheOtherList) {
    store.saveIncoming("dev", "Jan", "Tak");
    EXPECT_THAT(store.outgoingMessageFiles(), IsEmpty());
    const std::vector<std::string> files = store.incomingMessageFiles();
    ASSERT_THAT(files, ElementsAre(EndsWith(".incoming.json")));
    EXPECT_EQ(store.read(files[0])->sender, "Jan");
    EXPECT_EQ(store.read(files[0])->direction, "incoming");
}

TEST_F(RemoteChatStoreTest, anUnnamedConsultantHasATitle) {
    store.saveIncoming("dev", "", "Tak");
    EXPECT_EQ(store.read(store.incomingMessageFiles().at(0))->sender, "Konsultant");
}

TEST_F(RemoteChatStoreTest, aGivenMessageIsSavedAsItIs) {
    const RemoteChatMessage given{"my-id", "p", "outgoing", "", "", clock.now() - 24h};
    store.saveOutgoing(given);
    EXPECT_THAT(names(), ElementsAre("p.1772356502000.my-id.outgoing.json"));
    EXPECT_EQ(store.read(path(names().at(0))), given);
}

TEST_F(RemoteChatStoreTest, aNameTakesTheConversationWithoutDangerousCharacters) {
    store.saveOutgoing({"1", "a/b:c", "outgoing", "", "", {}});
    store.saveOutgoing({"2", "\\:?%*|\"<>/", "outgoing", "", "", {}});
    store.saveOutgoing({"3", "../../etc", "outgoing", "", "", {}});
    EXPECT_THAT(names(), ElementsAre(".._.._etc.1772356502000.3.outgoing.json",
                                     "__________.1772356502000.2.outgoing.json",
                                     "a_b_c.1772356502000.1.outgoing.json"));
    EXPECT_EQ(store.read(path("a_b_c.1772356502000.1.outgoing.json"))->publicId, "a/b:c");
}

TEST_F(RemoteChatStoreTest, theFolderAndItsFilesAreForEveryoneWhateverTheUmask) {
    const mode_t before = umask(077);
    store.saveOutgoing({"1", "p", "outgoing", "", "", {}});
    umask(before);
    EXPECT_EQ(modeOf(place()), 0777U);
    EXPECT_EQ(modeOf(folder.path("Users/Shared/Wsparo Brenvox")), 0755U);
    EXPECT_EQ(modeOf(place("p.1772356502000.1.outgoing.json")), 0666U);
}

TEST_F(RemoteChatStoreTest, aFailedSaveIsLoggedAndSwallowed) {
    std::filesystem::create_directories(folder.path("Users/Shared"));
    std::ofstream(folder.path("Users/Shared/Wsparo Brenvox")) << "in the way";
    store.saveOutgoing("dev", "x", "y");
    store.saveIncoming("dev", "x", "y");
    store.saveOutgoing({"1", "p", "outgoing", "", "", {}});
    const std::string line =
        "2026-03-01T09:15:02Z [ERROR] Remote chat message save failed: "
        "Not a directory: /Users/Shared/Wsparo Brenvox\n";
    EXPECT_EQ(log(), line + line + line);
}

TEST_F(RemoteChatStoreTest, whoMustKnowIsToldOfAFailedSave) {
    EXPECT_THROW(store.save({"a/b", "p", "incoming", "", "", {}}), FileError);
    EXPECT_THROW(store.save({"1", std::string(300, 'p'), "incoming", "", "", {}}), FileError);
    EXPECT_EQ(log(), "");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(RemoteChatStoreTest, whatWouldNotBeReadIsNotWritten) {
    RemoteChatMessage message{"1", "p", "incoming", "", "", {}};
    const std::size_t room = RemoteChatStore::messageLimitBytes - prettyJson(message).size();
    message.text = std::string(room, 'x');
    store.save(message);
    EXPECT_EQ(store.read(store.incomingMessageFiles().at(0)), message);
    message.text += 'x';
    EXPECT_THROW(store.save(message), FileError);
    EXPECT_THAT(names(), SizeIs(1));
}

TEST_F(RemoteChatStoreTest, listsByConversationAndTime) {
    for (const char* name : {"b.2.x.outgoing.json", "a.3.x.outgoing.json", "b.1.x.outgoing.json",
                             "B.9.x.outgoing.json", "a.1.x.incoming.json", "a.1.x.json",
                             "a.1.x.outgoing.json.tmp", "outgoing.json", "a.1.x.OUTGOING.JSON"}) {
        plant(name, "");
    }
    EXPECT_THAT(store.outgoingMessageFiles(),
                ElementsAre(path("B.9.x.outgoing.json"), path("a.3.x.outgoing.json"),
                            path("b.1.x.outgoing.json"), path("b.2.x.outgoing.json")));
    EXPECT_THAT(store.incomingMessageFiles(), ElementsAre(path("a.1.x.incoming.json")));
}

TEST_F(RemoteChatStoreTest, listsInPortionsOfTheSmallestNames) {
    for (int i = 50; i > 0; --i)
        plant(fmt::format("{}.outgoing.json", 100 + i * 7 % 53), "");
    const std::vector<std::string> all = store.outgoingMessageFiles();
    ASSERT_THAT(all, SizeIs(50));
    std::vector<std::string> joined;
    for (std::string last;;) {
        const std::vector<std::string> portion = store.outgoingMessageFiles(last, 7);
        if (portion.empty()) break;
        EXPECT_LE(portion.size(), 7U);
        joined.insert(joined.end(), portion.begin(), portion.end());
        last = portion.back();
    }
    EXPECT_EQ(joined, all);
}

TEST_F(RemoteChatStoreTest, aMissingFolderIsEmptyAndLoggedEachTime) {
    std::filesystem::create_directories(folder.path("Users/Shared/Wsparo Brenvox"));
    EXPECT_THAT(store.outgoingMessageFiles(), IsEmpty());
    const std::string line =
        "2026-03-01T09:15:02Z [ERROR] Remote chat directory read failed: "
        "No such file or directory: /Users/Shared/Wsparo Brenvox/remote-chat\n";
    EXPECT_EQ(log(), line);
    EXPECT_THAT(store.incomingMessageFiles(), IsEmpty());
    EXPECT_EQ(log(), line + line);
    EXPECT_FALSE(std::filesystem::exists(place()));
}

TEST_F(RemoteChatStoreTest, whatIsNoMessageIsNotReadAndStays) {
    const std::string whole = prettyJson(RemoteChatMessage{"i", "p", "outgoing", "s", "t", {}});
    const std::string half = whole.substr(0, whole.size() / 2);
    const std::string huge =
        whole + std::string(RemoteChatStore::messageLimitBytes + 1 - whole.size(), ' ');
    std::string wrongDate = whole;
    wrongDate.replace(wrongDate.find("1970"), 4, "late");
    for (const std::string& content :
         {std::string(), half, huge, wrongDate, std::string("[]"), std::string("{}"),
          std::string(100'000, '['), std::string("{\"id\":1}"), std::string("\xff\xfe")}) {
        EXPECT_EQ(store.read(plant("a.outgoing.json", content)), std::nullopt);
    }
    EXPECT_EQ(store.read(path("none.outgoing.json")), std::nullopt);
    EXPECT_THAT(names(), ElementsAre("a.outgoing.json"));
    EXPECT_TRUE(store.read(plant("a.outgoing.json", huge.substr(0, huge.size() - 1))));
    EXPECT_EQ(log(), "");
}

TEST_F(RemoteChatStoreTest, whatIsNoFileIsNeitherReadNorWaitedFor) {
    plantMessage("real.json");
    ASSERT_EQ(mkfifo(place("fifo.outgoing.json").c_str(), 0666), 0);
    std::filesystem::create_directory(place("folder.outgoing.json"));
    std::filesystem::create_symlink(place("real.json"), place("link.outgoing.json"));
    std::filesystem::create_symlink("/dev/zero", place("zero.outgoing.json"));
    for (const char* name : {"fifo", "folder", "link", "zero"}) {
        EXPECT_EQ(store.read(path(std::string(name) + ".outgoing.json")), std::nullopt) << name;
    }
    EXPECT_THAT(store.outgoingMessageFiles(), SizeIs(4));
    EXPECT_TRUE(store.read(path("real.json")));
}

TEST_F(RemoteChatStoreTest, aFolderThatIsALinkIsNeitherWrittenNorReadNorEmptied) {
    const TemporaryDirectory elsewhere;
    std::ofstream(elsewhere.path("x.outgoing.json"))
        << prettyJson(RemoteChatMessage{"i", "p", "outgoing", "s", "t", {}});
    std::filesystem::create_directories(folder.path("Users/Shared/Wsparo Brenvox"));
    std::filesystem::create_directory_symlink(
        elsewhere.path(), folder.path("Users/Shared/Wsparo Brenvox/remote-chat"));

    EXPECT_THROW(store.save({"1", "p", "incoming", "", "", {}}), FileError);
    EXPECT_THAT(store.outgoingMessageFiles(), IsEmpty());
    EXPECT_EQ(store.read(path("x.outgoing.json")), std::nullopt);
    store.remove(path("x.outgoing.json"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(elsewhere.path()), {}), 1);
    EXPECT_NE(modeOf(elsewhere.path()), 0777U);
}

TEST_F(RemoteChatStoreTest, aProductFolderThatIsALinkIsNotWritten) {
    const TemporaryDirectory elsewhere;
    std::filesystem::create_directories(folder.path("Users/Shared"));
    std::filesystem::create_directory_symlink(elsewhere.path(),
                                              folder.path("Users/Shared/Wsparo Brenvox"));
    EXPECT_THROW(store.save({"1", "p", "incoming", "", "", {}}), FileError);
    EXPECT_TRUE(std::filesystem::is_empty(elsewhere.path()));
}

TEST_F(RemoteChatStoreTest, removesAFileAndIgnoresWhatItCannot) {
    const std::string message = plantMessage("a.outgoing.json");
    std::filesystem::create_directory(place("folder"));
    store.remove(message);
    store.remove(message);
    store.remove(path("folder"));
    EXPECT_THAT(names(), ElementsAre("folder"));
    EXPECT_EQ(log(), "");
}

}  // namespace
}  // namespace orv
