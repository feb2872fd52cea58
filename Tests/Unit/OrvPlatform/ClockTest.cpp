#include <limits>

#include <boost/asio/post.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Clock.h"
#include "Support/FakeClock.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

constexpr auto forever = std::chrono::nanoseconds::max();

Task<void> noteAfter(Clock& clock, std::chrono::nanoseconds duration, std::vector<int>& notes,
                     int note) {
    co_await clock.sleepFor(duration);
    notes.push_back(note);
}

TEST(SystemClockTest, sleepsForTheDuration) {
    SystemClock clock;
    TestLoop loop;
    const MonotonicTime before = clock.monotonicNow();
    const WallTime wallBefore = clock.now();
    loop.run(clock.sleepFor(20ms));
    EXPECT_GE(clock.monotonicNow() - before, 20ms);
    EXPECT_GT(clock.now(), wallBefore);
}

TEST(SystemClockTest, aSleepOfNothingLetsReadyWorkGoFirst) {
    for (const std::chrono::nanoseconds nothing : {0ns, -5ns, std::chrono::nanoseconds::min()}) {
        SystemClock clock;
        TestLoop loop;
        std::vector<int> notes;
        BackgroundTask sleeper(loop, noteAfter(clock, nothing, notes, 1));
        asio::post(loop.context, [&] { asio::post(loop.context, [&] { notes.push_back(0); }); });
        loop.context.run();
        EXPECT_THAT(notes, ElementsAre(0, 1));
    }
}

TEST(SystemClockTest, anEndlessSleepEndsOnlyByCancellation) {
    SystemClock clock;
    TestLoop loop;
    BackgroundTask sleeper(loop, clock.sleepFor(forever));
    loop.runReady();
    EXPECT_FALSE(sleeper.isDone);
    sleeper.cancel();
    loop.runReady();
    EXPECT_TRUE(sleeper.isDone);
    EXPECT_TRUE(sleeper.wasCancelled());
}

TEST(SystemClockTest, aTaskThatIsCancelledBeforeItBeganNeverSleeps) {
    SystemClock clock;
    TestLoop loop;
    std::optional<BackgroundTask> sleeper;
    asio::post(loop.context, [&] {
        sleeper.emplace(loop, clock.sleepFor(forever));
        sleeper->cancel();
    });
    loop.runReady();
    EXPECT_TRUE(sleeper->wasCancelled());
}

TEST(FakeClockTest, standsStillUntilItIsMoved) {
    FakeClock clock;
    TestLoop loop(clock);
    const WallTime begin = clock.now();
    BackgroundTask sleeper(loop, clock.sleepFor(1h));
    loop.runReady();
    EXPECT_FALSE(sleeper.isDone);
    EXPECT_EQ(clock.now(), begin);
    loop.runFor(59min);
    EXPECT_FALSE(sleeper.isDone);
    EXPECT_EQ(clock.now(), begin + 59min);
    loop.runFor(1min);
    EXPECT_TRUE(sleeper.isDone);
    EXPECT_EQ(clock.now(), begin + 1h);
    EXPECT_EQ(clock.monotonicNow().time_since_epoch(), 1h);
    EXPECT_THAT(clock.sleeps, ElementsAre(1h));
}

TEST(FakeClockTest, wakesInTheOrderOfTimeThenOfFallingAsleep) {
    FakeClock clock;
    TestLoop loop(clock);
    std::vector<int> notes;
    BackgroundTask last(loop, noteAfter(clock, 3s, notes, 4));
    BackgroundTask second(loop, noteAfter(clock, 2s, notes, 2));
    BackgroundTask first(loop, noteAfter(clock, -1s, notes, 1));
    BackgroundTask third(loop, noteAfter(clock, 2s, notes, 3));
    loop.runReady();
    EXPECT_EQ(clock.sleepers(), 4U);
    loop.runFor(3s);
    EXPECT_THAT(notes, ElementsAre(1, 2, 3, 4));
}

TEST(FakeClockTest, aCancelledSleeperLeaves) {
    FakeClock clock;
    TestLoop loop(clock);
    BackgroundTask sleeper(loop, clock.sleepFor(1h));
    loop.runReady();
    sleeper.cancel();
    loop.runReady();
    EXPECT_TRUE(sleeper.wasCancelled());
    EXPECT_EQ(clock.sleepers(), 0U);
    EXPECT_FALSE(clock.wakeNext());
}

TEST(FakeClockTest, settingTheWallClockLeavesDurationsAlone) {
    FakeClock clock;
    TestLoop loop(clock);
    BackgroundTask sleeper(loop, clock.sleepFor(10s));
    loop.runReady();
    clock.setWallTime(clock.now() - 24h);
    loop.runFor(10s);
    EXPECT_TRUE(sleeper.isDone);
}

}  // namespace
}  // namespace orv
