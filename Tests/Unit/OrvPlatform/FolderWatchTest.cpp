#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "OrvPlatform/Deadline.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/FolderWatch.h"
#include "Support/FakeClock.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

Task<void> expectChange(FolderWatch& watch) {
    const bool isThere = co_await watch.changed();
    EXPECT_TRUE(isThere);
}

class FolderWatchTest : public testing::Test {
protected:
    FolderWatchTest() { std::filesystem::create_directory(watched); }

    TemporaryDirectory folder;
    std::string watched = folder.path("watched");
    TestLoop loop;
};

TEST_F(FolderWatchTest, tellsWhenAFileArrives) {
    FolderWatch watch(loop.executor(), watched);
    BackgroundTask arrival(loop, expectChange(watch));
    loop.runReady();
    EXPECT_FALSE(arrival.isDone);
    writeFileAtomically(watched + "/a", "x");
    loop.runReady();
    EXPECT_TRUE(arrival.isDone);
    EXPECT_FALSE(arrival.error);
}

TEST_F(FolderWatchTest, remembersWhatHappenedBeforeAnybodyWaited) {
    FolderWatch watch(loop.executor(), watched);
    writeFileAtomically(watched + "/a", "x");
    writeFileAtomically(watched + "/b", "x");
    EXPECT_TRUE(loop.run(watch.changed()));
    std::filesystem::remove(watched + "/a");
    EXPECT_TRUE(loop.run(watch.changed()));
}

TEST_F(FolderWatchTest, saysWhenTheFolderIsGone) {
    FolderWatch watch(loop.executor(), watched);
    std::filesystem::remove(watched);
    EXPECT_FALSE(loop.run(watch.changed()));
}

TEST_F(FolderWatchTest, saysWhenTheFolderWasMoved) {
    FolderWatch watch(loop.executor(), watched);
    std::filesystem::rename(watched, folder.path("elsewhere"));
    EXPECT_FALSE(loop.run(watch.changed()));
}

TEST_F(FolderWatchTest, endsWithItsTask) {
    FakeClock clock;
    TestLoop driven(clock);
    FolderWatch watch(driven.executor(), watched);
    Task<bool> change = watch.changed();
    EXPECT_EQ(driven.run(finishedWithin(clock, 30s, std::move(change))), std::nullopt);
}

TEST_F(FolderWatchTest, refusesWhatIsNoFolder) {
    EXPECT_THROW(FolderWatch(loop.executor(), folder.path("nowhere")), FileError);
    writeFileAtomically(folder.path("file"), "x");
    EXPECT_THROW(FolderWatch(loop.executor(), folder.path("file")), FileError);
}

}  // namespace
}  // namespace orv
