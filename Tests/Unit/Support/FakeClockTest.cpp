#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/FakeClock.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

Task<void> sleepAndNote(FakeClock& clock, std::chrono::nanoseconds duration, std::string& notes,
                        char note) {
    co_await clock.sleepFor(duration);
    notes += note;
}

TEST(FakeClockTest, wakesSleepersInTheOrderOfTheirTimes) {
    FakeClock clock;
    TestLoop loop(clock);
    std::string notes;
    BackgroundTask late(loop, sleepAndNote(clock, 3s, notes, 'c'));
    BackgroundTask early(loop, sleepAndNote(clock, 1s, notes, 'a'));
    BackgroundTask middle(loop, sleepAndNote(clock, 2s, notes, 'b'));
    const WallTime begin = clock.now();

    loop.runFor(2s);

    EXPECT_EQ(notes, "ab");
    EXPECT_EQ(clock.now() - begin, 2s);
    EXPECT_THAT(clock.sleeps, ElementsAre(3s, 1s, 2s));
    EXPECT_EQ(clock.sleepers(), 1u);
    late.cancel();
    loop.runReady();
}

TEST(FakeClockTest, aCancelledSleepThrowsTheCancellationError) {
    FakeClock clock;
    TestLoop loop(clock);
    std::string notes;
    BackgroundTask task(loop, sleepAndNote(clock, 1h, notes, 'x'));
    loop.runReady();

    task.cancel();
    loop.runReady();

    ASSERT_TRUE(task.isDone);
    EXPECT_EQ(notes, "");
    EXPECT_EQ(clock.sleepers(), 0u);
    EXPECT_TRUE(task.wasCancelled());
}

TEST(FakeClockTest, aWallClockThatIsSetDoesNotDisturbSleepers) {
    FakeClock clock;
    TestLoop loop(clock);
    std::string notes;
    BackgroundTask task(loop, sleepAndNote(clock, 1h, notes, 'x'));
    loop.runReady();
    clock.setWallTime(clock.now() - 24h);

    loop.runFor(1h);

    EXPECT_EQ(notes, "x");
}

TEST(TestLoopTest, saysWhenATaskDoesNotEnd) {
    TestLoop loop;
    FakeClock nobodyMovesIt;
    EXPECT_THROW(loop.run(nobodyMovesIt.sleepFor(1s), 30ms), std::runtime_error);
}

}  // namespace
}  // namespace orv
